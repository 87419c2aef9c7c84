#include "messageboxes.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEvent>
#include <QTextDocument>
#include <QTextDocumentFragment>

QString ShownBox::readableText() const
{
    // As Qt::AutoText, a box's text format, decides.
    return Qt::mightBeRichText(text) ? QTextDocumentFragment::fromHtml(text).toPlainText() : text;
}

MessageBoxes::MessageBoxes()
{
    qApp->installEventFilter(this);
}

bool MessageBoxes::eventFilter(QObject *watched, QEvent *event)
{
    auto *box = qobject_cast<QMessageBox *>(watched);
    if (box && event->type() == QEvent::Show) {
        shown.push_back({box->icon(), box->windowTitle(), box->text(), box->standardButtons(),
                         box->parentWidget(), box->isEnabled()});
        QMetaObject::invokeMethod(
            box, [this, box] { answer(box); }, Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void MessageBoxes::answer(QMessageBox *box)
{
    if (whileOpen) {
        whileOpen();
    }
    box->button(QMessageBox::Ok)->click();
}
