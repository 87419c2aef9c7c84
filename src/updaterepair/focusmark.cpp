#include "focusmark.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPainter>
#include <QWidget>

static constexpr int s_width = 1; // of the frame's line, in device independent pixels

FocusMark::FocusMark(QWidget *markedControl, QWidget *paintedSurface)
    : QObject(markedControl), control(markedControl), surface(paintedSurface)
{
    surface->installEventFilter(this);
}

bool FocusMark::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::Paint || painting || !control->hasFocus()) {
        return QObject::eventFilter(watched, event);
    }
    // Through all other filters, since a viewport paints in one.
    painting = true;
    QCoreApplication::sendEvent(watched, event);
    painting = false;
    draw();
    return true;
}

void FocusMark::draw()
{
    QPainter painter(surface);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(surface->palette().color(QPalette::Highlight), s_width));
    const qreal half = s_width / 2.0;
    painter.drawRoundedRect(QRectF(surface->rect()).adjusted(half, half, -half, -half), s_width,
                            s_width);
}
