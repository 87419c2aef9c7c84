#include "simtranscript.h"

#include <QCryptographicHash>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int VendorIn = 0xC0;
constexpr int VendorOut = 0x40;
constexpr int GetDescriptor = 6;
constexpr int StringDescriptor = 3;

QString hex(int number)
{
    return QString::number(number, 16);
}

QString statusText(const QJsonObject &object)
{
    const QString status = object["status"].toString();
    return status == "ok" ? QString() : ' ' + status;
}

QString vendorText(const QJsonObject &object)
{
    const bool out = object["requestType"].toInt() == VendorOut;
    const int length = object["length"].toInt();
    QString text = QString("%1 %2 v%3 i%4 %5")
                       .arg(out ? ">" : "<", hex(object["request"].toInt()),
                            hex(object["value"].toInt()), hex(object["index"].toInt()))
                       .arg(length);
    const QByteArray data = QByteArray::fromHex(object["data"].toString().toLatin1());
    if (!data.isEmpty()) {
        text += ' ' + showBytes(data);
    }
    const bool wasShort = object["status"] == "ok" && object["actual"].toInt() != length;
    if (wasShort) {
        text += QString(" short %1").arg(object["actual"].toInt());
    }
    return text + statusText(object);
}

SimLine transferLine(const QJsonObject &object)
{
    const int type = object["requestType"].toInt();
    const int value = object["value"].toInt();
    SimLine line{SimLine::Standard, {}, object["t"].toDouble(), object["address"].toInt(), 0};
    if (type == VendorIn || type == VendorOut) {
        line.kind = SimLine::Vendor;
        line.text = vendorText(object);
    } else if (object["request"].toInt() == GetDescriptor && value >> 8 == StringDescriptor) {
        line.text = QString("string %1").arg(value & 0xFF) + statusText(object);
    } else {
        line.text = QString("standard %1 %2").arg(hex(type), hex(object["request"].toInt()));
    }
    return line;
}

SimLine eventLine(const QJsonObject &object)
{
    const QString event = object["event"].toString();
    SimLine line{SimLine::Presence, event, object["t"].toDouble(), object["address"].toInt(),
                 object["file"].toInt()};
    if (object.contains("file")) {
        line.kind = SimLine::Handle;
    }
    if (object.contains("interface")) {
        line.text +=
            QString(" %1 %2").arg(object["interface"].toInt()).arg(object["status"].toString());
    } else if (event == "plug") {
        line.text += ' ' + object["id"].toString() + ' ' + object["mode"].toString();
    } else if (event == "start") {
        line.text += ' ' + QString::number(qint64(object["entry"].toDouble()), 16) +
                     (object["accepted"].toBool() ? " accepted" : " refused");
    } else if (event == "violation") {
        line.kind = SimLine::Violation;
        line.text += ' ' + object["text"].toString();
    }
    return line;
}

// The simulator notices a close by the end of a connection, a moment after the file that the
// program opened next has made itself known. Puts it back in front of that file's first line. A
// close that comes much later is what it seems to be.
void putCloseInPlace(QVector<SimLine> &lines, int close)
{
    constexpr double noticedWithinMs = 500;
    const int file = lines[close].file;
    int target = close;
    for (int i = close - 1; i >= 0 && lines[i].file != file; --i) {
        if (lines[i].file > file) {
            target = i;
        }
    }
    if (lines[close].time - lines[target].time < noticedWithinMs) {
        lines.move(close, target);
    }
}

} // namespace

QString showBytes(const QByteArray &bytes)
{
    constexpr int shownInFull = 16;
    if (bytes.size() <= shownInFull) {
        return QString::fromLatin1(bytes.toHex());
    }
    const QByteArray hash = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    return QString("sha1:%1").arg(QString::fromLatin1(hash.toHex()));
}

SimTranscript SimTranscript::fromFile(const QString &path)
{
    SimTranscript transcript;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return transcript;
    }
    while (!file.atEnd()) {
        const QJsonObject object = QJsonDocument::fromJson(file.readLine()).object();
        transcript.entries.append({object["device"].toString(), object.contains("event")
                                                                    ? eventLine(object)
                                                                    : transferLine(object)});
    }
    return transcript;
}

QVector<SimLine> SimTranscript::lines(const QString &device) const
{
    QVector<SimLine> found;
    for (const Entry &entry : entries) {
        if (entry.device == device) {
            found.append(entry.line);
            if (entry.line.text == "close") {
                putCloseInPlace(found, found.size() - 1);
            }
        }
    }
    return found;
}

QStringList SimTranscript::texts(const QString &device) const
{
    QStringList found;
    for (const SimLine &line : lines(device)) {
        found.append(line.text);
    }
    return found;
}

QStringList SimTranscript::texts(const QString &device, QVector<SimLine::Kind> kinds) const
{
    QStringList found;
    for (const SimLine &line : lines(device)) {
        if (kinds.contains(line.kind)) {
            found.append(line.text);
        }
    }
    return found;
}

QString SimTranscript::unbalanced(const QString &device) const
{
    QHash<int, int> claims; // claimed interfaces of each open file
    for (const SimLine &line : lines(device)) {
        if (line.kind != SimLine::Handle) {
            continue;
        }
        if (line.text == "open") {
            claims[line.file] = 0;
        } else if (!claims.contains(line.file)) {
            return QString("file %1: '%2' without an open").arg(line.file).arg(line.text);
        } else if (line.text.startsWith("claim") && line.text.endsWith("ok")) {
            claims[line.file] += 1;
        } else if (line.text.startsWith("release")) {
            claims[line.file] -= 1;
        } else if (line.text == "close") {
            if (claims.take(line.file) != 0) {
                return QString("file %1 was closed with its interface claimed").arg(line.file);
            }
        }
    }
    return claims.isEmpty() ? QString() : QString("%1 files were left open").arg(claims.size());
}
