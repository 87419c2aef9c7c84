#include "emptylisthint.h"

#include <QCoreApplication>
#include <QEvent>
#include <QListWidget>
#include <QPainter>

#include <algorithm>

using usbview::Obstacle;
using usbview::SystemDevice;

namespace {

// The dialog's own translation context, so that a translator finds all of its texts in one place.
QString translated(const char *text)
{
    return QCoreApplication::translate("UpdateRepair", text);
}

QString deniedText()
{
    const QString what = translated(QT_TRANSLATE_NOOP(
        "UpdateRepair", "A capture device is connected, but you have no right to use it."));
    const QString remedy = translated(QT_TRANSLATE_NOOP(
        "UpdateRepair",
        "Install the package capso-config-udev, then unplug the device and plug it in again."));
    return what + QLatin1Char('\n') + remedy;
}

} // namespace

QString emptyListText(const std::optional<std::vector<SystemDevice>> &view)
{
    if (!view || view->empty()) {
        return translated(QT_TRANSLATE_NOOP(
            "UpdateRepair", "No capture device found. Plug it in and press the round arrow."));
    }
    const auto anyHas = [&view](Obstacle obstacle) {
        return std::any_of(view->begin(), view->end(), [obstacle](const SystemDevice &device) {
            return device.obstacle() == obstacle;
        });
    };
    if (anyHas(Obstacle::Denied)) {
        return deniedText();
    }
    if (anyHas(Obstacle::Held)) {
        return translated(QT_TRANSLATE_NOOP(
            "UpdateRepair", "A capture device is connected, but another program is using it."));
    }
    // A device without a node too: nothing that is asked of it arrives, and plugging it in again
    // makes the node on a system that has lost it. In a container it does not; there a person has
    // the command line, and capso-cli doctor says it.
    return translated(QT_TRANSLATE_NOOP("UpdateRepair",
                                        "A capture device is connected, but it does not answer. "
                                        "Unplug it and plug it in again."));
}

EmptyListHint::EmptyListHint(QListWidget *emptyList) : QObject(emptyList), list(emptyList)
{
    list->viewport()->installEventFilter(this);
    connect(list->model(), &QAbstractItemModel::rowsInserted, this, &EmptyListHint::hide);
}

void EmptyListHint::show(const QString &text)
{
    hide();
    if (list->count() > 0) {
        return;
    }
    shown = text;
    usualDescription = list->accessibleDescription();
    list->setAccessibleDescription(text);
    list->viewport()->update();
}

void EmptyListHint::hide()
{
    if (shown.isEmpty()) {
        return;
    }
    shown.clear();
    list->setAccessibleDescription(usualDescription);
    list->viewport()->update();
}

bool EmptyListHint::eventFilter(QObject * /*watched*/, QEvent *event)
{
    if (event->type() == QEvent::Paint && !shown.isEmpty()) {
        paint();
    }
    return false;
}

// In the middle, or from the top when not all of it fits: the first words say the most.
void EmptyListHint::paint() const
{
    const int margin = list->fontMetrics().height();
    const QRect area = list->viewport()->rect().adjusted(margin, margin, -margin, -margin);
    const int wrapped = Qt::AlignHCenter | Qt::TextWordWrap;
    const bool fits =
        list->fontMetrics().boundingRect(area, wrapped, shown).height() <= area.height();
    QPainter painter(list->viewport());
    painter.setPen(list->palette().color(QPalette::Text));
    painter.drawText(area, wrapped | (fits ? Qt::AlignVCenter : Qt::AlignTop), shown);
}
