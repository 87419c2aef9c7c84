#include "recordedtree.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

void makeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

void makeLink(const QByteArray &target, const QString &path)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    if (symlink(target.constData(), QFile::encodeName(path).constData()) != 0) {
        qFatal("cannot link %s", qPrintable(path));
    }
}

} // namespace

RecordedTree::RecordedTree(const QString &recording)
{
    // Tests look at it with the eyes of other users.
    umask(022);
    chmod(QFile::encodeName(root.path()).constData(), 0755);
    QFile file(recording);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qPrintable(recording));
    }
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        line.chop(1);
        if (line.isEmpty() || line.startsWith('#')) {
            continue;
        }
        const QByteArray rest = line.mid(3);
        const int sign = rest.indexOf('=');
        take(line.left(3), rest.left(sign), sign < 0 ? rest : rest.mid(sign + 1));
    }
    finishUevent();
}

usbview::Places RecordedTree::places() const
{
    return {root.path() + QStringLiteral("/sys"), root.path() + QStringLiteral("/dev")};
}

QString RecordedTree::node(const QString &name) const
{
    return places().devices + QLatin1Char('/') + name;
}

void RecordedTree::take(const QByteArray &kind, const QByteArray &name, const QByteArray &value)
{
    const QString path = places().sysfs + QFile::decodeName(folder + '/' + name);
    if (kind == "P: ") {
        finishUevent();
        folder = value;
        ++folderCount;
        QDir().mkpath(places().sysfs + QFile::decodeName(folder));
    } else if (kind == "S: ") {
        makeLink("../../.." + folder,
                 places().sysfs + QStringLiteral("/bus/usb/devices/") + QFile::decodeName(value));
    } else if (kind == "E: ") {
        uevent += name + '=' + value + '\n';
    } else if (kind == "A: ") {
        makeFile(path, value + '\n');
    } else if (kind == "H: ") {
        makeFile(path, QByteArray::fromHex(value));
    } else if (kind == "L: ") {
        makeLink(value, path);
    } else if (kind == "N: ") {
        const QString at = node(QFile::decodeName(value.left(value.indexOf(' '))));
        makeFile(at, {});
        const mode_t mode = value.mid(value.indexOf(' ') + 1).toUInt(nullptr, 8);
        chmod(QFile::encodeName(at).constData(), mode);
    } else {
        qFatal("a line of an unknown kind: %s", kind.constData());
    }
}

void RecordedTree::finishUevent()
{
    if (!folder.isEmpty()) {
        makeFile(places().sysfs + QFile::decodeName(folder) + QStringLiteral("/uevent"), uevent);
    }
    uevent.clear();
}
