#pragma once

#include <QMessageBox>
#include <QObject>

#include <functional>
#include <vector>

// What a message box said.
struct ShownBox
{
    QMessageBox::Icon icon;
    QString title;
    QString text;
    // The letters that a person reads of it, whether the box takes it for rich text or not.
    QString readableText() const;
    QMessageBox::StandardButtons buttons;
    const QWidget *parent;
    bool enabled; // whether the user could press its button
};

// While an object of this class lives, it notes every message box that opens and presses its Ok, as
// soon as the event loop of the box runs.
class MessageBoxes : public QObject
{
    Q_OBJECT

public:
    MessageBoxes();

    std::vector<ShownBox> shown;

    // Called while a box is open, before its Ok is pressed.
    std::function<void()> whileOpen;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void answer(QMessageBox *box);
};
