#include "literalmessage.h"

#include <QTextDocument>

QString literalMessage(const QString &text)
{
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text;
}
