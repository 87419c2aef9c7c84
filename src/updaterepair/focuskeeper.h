#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QWidget>

// Gives the keyboard focus back to where it was before controls were locked: Qt takes it from a
// control that is disabled, and a person at the keyboard would have to find the place again.
//
// It is not given back to a person who has gone elsewhere in the meantime, by a key or by the
// mouse. What Qt does by itself when a control is disabled or a message box closes does not count,
// nor do the keys pressed in the box, a modifier key alone, or a key that no control was there for.
class FocusKeeper : public QObject
{
    Q_OBJECT

public:
    // The window must outlive this. Where the old place cannot take the focus, the first of the
    // others that can gets it.
    FocusKeeper(QWidget *inWindow, QList<QWidget *> otherPlaces);

    // Before controls are disabled. Again before giveBack(), it does nothing.
    void hold();
    // After they were enabled. Without a hold() before, it does nothing.
    void giveBack();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool isForAControl(int key) const;
    bool canTakeFocus(const QWidget *widget) const;

    QWidget *window;
    QList<QWidget *> others;
    bool holding = false;
    QPointer<QWidget> place; // that had the focus when hold() was called; null if none had
    bool pressed = false;    // a key that counts or a mouse button, in the window and since then
};
