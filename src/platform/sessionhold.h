#pragma once

#include <QObject>

#include <memory>

class QString;

namespace platform {

// While an object of this class lives, the system keeps the session and the machine running as far
// as it lets a program ask for that. GUI thread only.
//
// On Windows: logging off and shutting down stop at a screen that shows the reason beside the
// program's name, where the user can wait or go on all the same; the machine does not fall asleep
// by itself. A session that is ended by force, and a program without a visible window, Windows ends
// after a few seconds, whatever the program says. Elsewhere: nothing.
class SessionHold : public QObject
{
    Q_OBJECT

public:
    // `window` is the native handle of the program's window, QWidget::winId().
    SessionHold(quintptr window, const QString &reason, QObject *parent);
    // For a program without a window, which is given one that nobody sees.
    explicit SessionHold(const QString &reason);
    ~SessionHold() override;
    SessionHold(const SessionHold &) = delete;
    SessionHold &operator=(const SessionHold &) = delete;

private:
    class System;
    std::unique_ptr<System> system;
};

} // namespace platform
