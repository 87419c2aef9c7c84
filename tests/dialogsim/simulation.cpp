#include "simulation.h"

#include <QFile>
#include <QJsonDocument>

#include <cstdio>
#include <map>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QString directory()
{
    return qEnvironmentVariable("CAPSO_SIM_DIR");
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qPrintable(path));
    }
    return file.readAll();
}

QString requestLine(const QJsonObject &entry)
{
    QString line = (entry["requestType"].toInt() & 0x80) != 0 ? "< " : "> ";
    line += entry["name"].toString();
    if (const int index = entry["index"].toInt()) {
        line += QString(" index %1").arg(index);
    }
    if (const QString data = entry["data"].toString(); !data.isEmpty()) {
        line += ' ' + data;
    }
    if (const QString status = entry["status"].toString(); status != "ok") {
        line += ' ' + status;
    }
    return line;
}

bool isVendorRequest(const QJsonObject &entry)
{
    return entry.contains("transfer") && (entry["requestType"].toInt() & 0x60) == 0x40;
}

} // namespace

// Plain sockets: some tests have no application object, which Qt's need.
QString simulation::control(const QString &command)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s/control",
                  qPrintable(directory()));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const QByteArray line = command.toUtf8() + '\n';
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        write(fd, line.constData(), static_cast<std::size_t>(line.size())) != line.size()) {
        qFatal("no connection to the simulator");
    }
    QByteArray answer;
    for (char c = 0; read(fd, &c, 1) == 1 && c != '\n';) {
        answer += c;
    }
    close(fd);
    if (answer != "ok" && !answer.startsWith("ok ")) {
        qFatal("the simulator answers '%s' to '%s'", answer.constData(), qPrintable(command));
    }
    return QString::fromUtf8(answer.mid(3));
}

QJsonObject simulation::state(const QString &device)
{
    return QJsonDocument::fromJson(control("state " + device).toUtf8()).object();
}

QByteArray simulation::memory(const QString &device, const QString &image)
{
    control("dump");
    return contentOf(directory() + "/memory/" + device + '/' + image + ".bin");
}

QByteArray simulation::packagedImage(const QString &package, const QString &image)
{
    return contentOf(CAPSO_PACKAGES "/" + package + '/' + image + ".bin");
}

QString simulation::packageFile(const QString &package)
{
    return CAPSO_PACKAGES "/" + package + ".fw";
}

QList<QJsonObject> simulation::transcript()
{
    QList<QJsonObject> entries;
    const QString file = directory() + "/transcript.jsonl";
    if (!QFile::exists(file)) {
        return entries; // without a USB bus there is no simulator
    }
    const QByteArray text = contentOf(file);
    // The last line may still be growing.
    for (const QByteArray &line : text.left(text.lastIndexOf('\n') + 1).split('\n')) {
        if (!line.isEmpty()) {
            entries.append(QJsonDocument::fromJson(line).object());
        }
    }
    return entries;
}

int simulation::mark()
{
    return transcript().size();
}

QStringList simulation::requests(const QString &device, int since)
{
    QStringList lines;
    for (const QJsonObject &entry : transcript().mid(since)) {
        if (entry["device"].toString() == device && isVendorRequest(entry)) {
            lines.append(requestLine(entry));
        }
    }
    return lines;
}

QStringList simulation::configRequests(const QString &device, int since)
{
    QStringList lines;
    for (const QString &line : requests(device, since)) {
        if (line.contains("DEVICE_FLAGS") || line.contains("USER_MODE")) {
            lines.append(line);
        }
    }
    return lines;
}

int simulation::countEvents(const QString &device, const QString &event, int since)
{
    int count = 0;
    for (const QJsonObject &entry : transcript().mid(since)) {
        count += entry["device"].toString() == device && entry["event"].toString() == event;
    }
    return count;
}

QStringList simulation::openingOrder(int since)
{
    QStringList order;
    for (const QJsonObject &entry : transcript().mid(since)) {
        if (entry["event"].toString() == "open") {
            order.append(entry["device"].toString());
        }
    }
    order.removeDuplicates();
    return order;
}

QString simulation::usageProblem()
{
    std::map<QString, int> openFiles;
    for (const QJsonObject &entry : transcript()) {
        const QString device = entry["device"].toString();
        const QString event = entry["event"].toString();
        openFiles[device] += (event == "open") - (event == "close");
        if (event == "claim" && entry["status"].toString() != "ok") {
            return QString("%1 refuses a claim after %2 ms: %3")
                .arg(device)
                .arg(entry["t"].toDouble())
                .arg(entry["status"].toString());
        }
    }
    for (const auto &[device, files] : openFiles) {
        if (files != 0) {
            return device + " was not given back";
        }
    }
    return {};
}
