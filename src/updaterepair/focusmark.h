#pragma once

#include <QObject>

class QWidget;

// Draws a frame inside a control while it has the keyboard focus, for one whose look leaves no
// place for the style's own: a button without a border, a list without a frame.
class FocusMark : public QObject
{
    Q_OBJECT

public:
    // Belongs to the control. What is drawn on is the control itself, or the viewport of one that
    // scrolls; it must be one that Qt repaints when the focus comes and goes.
    FocusMark(QWidget *control, QWidget *surface);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void draw();

    QWidget *control;
    QWidget *surface;
    bool painting = false; // the surface paints itself, and the frame comes on top of it
};
