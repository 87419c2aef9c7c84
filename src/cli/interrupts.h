#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

// Ctrl+C, SIGTERM, SIGQUIT and a lost terminal. Whenever one of them comes, the program first ends
// what it has begun with a device, since a request that is cut leaves the device without its kernel
// driver, and an update that is cut leaves it broken. A signal that was ignored when the program
// started, as under nohup, stays ignored.
//
// One object, made on the main thread before anything else that could be interrupted. When it has
// gone, the signals end the program no more.
class Interrupts : public QObject
{
    Q_OBJECT

public:
    Interrupts();
    ~Interrupts() override;

    // Whether one of the signals has come.
    bool came() const;
    // Nothing has been begun: if one of the signals has come, the program dies of it here.
    void safePoint() const;

    // While one lives, Ctrl+Z does not stop the program but is an interruption as well: the device
    // would wait for its next block until somebody continues the program.
    class NoStop
    {
    public:
        NoStop();
        ~NoStop();
        NoStop(const NoStop &) = delete;
        NoStop &operator=(const NoStop &) = delete;
    };

signals:
    // Once for each signal that comes while the event loop runs.
    void interrupted();

private:
    std::unique_ptr<QSocketNotifier> notifier;
};
