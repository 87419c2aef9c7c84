#pragma once

#include "usbview.h"

#include <QObject>
#include <QString>

#include <optional>
#include <vector>

class QListWidget;

// Why a scan has found nothing, for the user: what the system says of its devices, in words. Of
// several devices with different reasons, the one that the user can do most about is told.
QString emptyListText(const std::optional<std::vector<usbview::SystemDevice>> &view);

// A text in the middle of a list that has no rows. It is painted into the list's viewport, so that
// the list has no row and the window no widget for it. A screen reader gets it as the list's
// description, which is the usual one again afterwards. Belongs to the list.
class EmptyListHint : public QObject
{
    Q_OBJECT

public:
    explicit EmptyListHint(QListWidget *list);

    // Shows the text, unless the list has rows. It goes by itself when the list gets one.
    void show(const QString &text);
    void hide();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void paint() const;

    QListWidget *list;
    QString shown;            // empty: nothing is
    QString usualDescription; // the list's own, while something is shown
};
