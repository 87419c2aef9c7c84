#include "focuskeeper.h"

#include <QApplication>
#include <QKeyEvent>

#include <utility>

FocusKeeper::FocusKeeper(QWidget *inWindow, QList<QWidget *> otherPlaces)
    : window(inWindow), others(std::move(otherPlaces))
{
}

void FocusKeeper::hold()
{
    if (std::exchange(holding, true)) {
        return;
    }
    place = window->focusWidget();
    pressed = false;
    qApp->installEventFilter(this);
}

void FocusKeeper::giveBack()
{
    if (!std::exchange(holding, false)) {
        return;
    }
    qApp->removeEventFilter(this);
    const bool wentElsewhere = pressed && window->focusWidget();
    if (!place || wentElsewhere) {
        return;
    }
    for (QWidget *widget : QList<QWidget *>{place} + others) {
        if (canTakeFocus(widget)) {
            widget->setFocus();
            return;
        }
    }
}

bool FocusKeeper::canTakeFocus(const QWidget *widget) const
{
    return widget->isEnabled() && widget->isVisibleTo(window) &&
           widget->focusPolicy() != Qt::NoFocus;
}

bool FocusKeeper::isForAControl(int key) const
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Meta:
        return false;
    case Qt::Key_Tab:
    case Qt::Key_Backtab:
        return true; // from nowhere, they go to a control
    default:
        return window->focusWidget() != nullptr;
    }
}

bool FocusKeeper::eventFilter(QObject *watched, QEvent *event)
{
    const bool isPress = event->type() == QEvent::MouseButtonPress ||
                         (event->type() == QEvent::KeyPress &&
                          isForAControl(static_cast<const QKeyEvent *>(event)->key()));
    if (isPress && watched->isWidgetType() &&
        static_cast<const QWidget *>(watched)->window() == window) {
        pressed = true;
    }
    return QObject::eventFilter(watched, event);
}
