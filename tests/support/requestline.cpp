#include "requestline.h"

#include <QCryptographicHash>

QString requestLine(const Request &request, const QByteArray &data)
{
    const QString line = QString("%1 %2 v%3 i%4 %5")
                             .arg(request.direction == Direction::In ? "<" : ">")
                             .arg(request.code, 0, 16)
                             .arg(request.value, 0, 16)
                             .arg(request.index, 0, 16)
                             .arg(request.length);
    return data.isEmpty() ? line : line + ' ' + showBytes(data);
}

QString showBytes(const QByteArray &bytes)
{
    constexpr int shownInFull = 16;
    if (bytes.size() <= shownInFull) {
        return QString::fromLatin1(bytes.toHex());
    }
    const QByteArray hash = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    return QString("sha1:%1").arg(QString::fromLatin1(hash.toHex()));
}
