#include "simtranscript.h"

#include "requestline.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int s_vendorIn = 0xC0;
constexpr int s_vendorOut = 0x40;
constexpr int s_getDescriptor = 6;
constexpr int s_stringDescriptor = 3;

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
    const int length = object["length"].toInt();
    const Direction direction =
        object["requestType"].toInt() == s_vendorOut ? Direction::Out : Direction::In;
    QString text = requestLine({direction, object["request"].toInt(), object["value"].toInt(),
                                object["index"].toInt(), length},
                               QByteArray::fromHex(object["data"].toString().toLatin1()));
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
    SimLine line{SimLine::Standard,         {}, object["t"].toDouble(),
                 object["address"].toInt(), 0,  object["fault"].toBool()};
    if (type == s_vendorIn || type == s_vendorOut) {
        line.kind = SimLine::Vendor;
        line.text = vendorText(object);
    } else if (object["request"].toInt() == s_getDescriptor && value >> 8 == s_stringDescriptor) {
        line.text = QString("string %1").arg(value & 0xFF) + statusText(object);
    } else {
        line.text = QString("standard %1 %2").arg(hex(type), hex(object["request"].toInt()));
    }
    return line;
}

SimLine eventLine(const QJsonObject &object)
{
    const QString event = object["event"].toString();
    SimLine line{SimLine::Presence,      event,
                 object["t"].toDouble(), object["address"].toInt(),
                 object["file"].toInt(), object["fault"].toBool()};
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
// close that comes as late as the shortest pause of an update is what it seems to be.
void putCloseInPlace(QVector<SimLine> &lines, int close)
{
    constexpr double noticedWithinMs = 950;
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

SimTranscript SimTranscript::fromFile(const QString &path)
{
    SimTranscript transcript;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return transcript; // without a USB bus there is no simulator
    }
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        if (!line.endsWith('\n')) {
            break; // it is just being written
        }
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        transcript.entries.append({object["device"].toString(), object.contains("event")
                                                                    ? eventLine(object)
                                                                    : transferLine(object)});
    }
    return transcript;
}

SimTranscript SimTranscript::since(int mark) const
{
    SimTranscript later;
    later.entries = entries.mid(mark);
    return later;
}

QVector<SimLine> SimTranscript::lines(const QString &device) const
{
    QVector<SimLine> found;
    for (const Entry &entry : entries) {
        if (entry.device == device) {
            found.append(entry.line);
            if (entry.line.text == "close") {
                putCloseInPlace(found, int(found.size()) - 1);
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

QStringList SimTranscript::texts(const QString &device, const QVector<SimLine::Kind> &kinds) const
{
    QStringList found;
    for (const SimLine &line : lines(device)) {
        if (kinds.contains(line.kind)) {
            found.append(line.text);
        }
    }
    return found;
}

int SimTranscript::count(const QString &device, const QString &word) const
{
    int count = 0;
    for (const SimLine &line : lines(device)) {
        count += line.text.section(' ', 0, 0) == word ? 1 : 0;
    }
    return count;
}

QStringList SimTranscript::requestsOfAll() const
{
    QStringList found;
    for (const Entry &entry : entries) {
        if (entry.line.kind == SimLine::Vendor) {
            found.append(entry.device + ' ' + entry.line.text);
        }
    }
    return found;
}

QStringList SimTranscript::devicesOpened() const
{
    QStringList order;
    for (const Entry &entry : entries) {
        if (entry.line.text == "open") {
            order.append(entry.device);
        }
    }
    order.removeDuplicates();
    return order;
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

QString SimTranscript::misused() const
{
    for (const QString &device : devicesOpened()) {
        for (const SimLine &line : lines(device)) {
            if (line.text.startsWith("claim") && !line.text.endsWith("ok") && !line.faulted) {
                return QString("%1: '%2' after %3 ms").arg(device, line.text).arg(line.time);
            }
        }
        const QString reason = unbalanced(device);
        if (!reason.isEmpty()) {
            return device + ": " + reason;
        }
    }
    return {};
}
