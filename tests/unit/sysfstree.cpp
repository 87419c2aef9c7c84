#include "sysfstree.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

int busOf(const QByteArray &name)
{
    return name.left(name.indexOf('-')).toInt();
}

// The path of a device or an interface below its controller: "2-1.4:1.0" is
// usb2/2-1/2-1.4/2-1.4:1.0.
QByteArray pathOf(const QByteArray &name)
{
    QByteArray path = "usb" + QByteArray::number(busOf(name));
    for (int i = 0; i < name.size(); ++i) {
        if (name[i] == '.' || name[i] == ':') {
            path += '/' + name.left(i);
        }
        if (name[i] == ':') {
            break;
        }
    }
    return path + '/' + name;
}

void makeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

void makeLink(const QByteArray &target, const QString &path)
{
    const QByteArray at = QFile::encodeName(path);
    unlink(at.constData());
    if (symlink(target.constData(), at.constData()) != 0) {
        qFatal("cannot link %s", at.constData());
    }
}

} // namespace

SysfsTree::SysfsTree()
{
    // Tests look at it with the eyes of other users.
    umask(022);
    chmod(QFile::encodeName(root.path()).constData(), 0755);
    QDir().mkpath(linkFolder());
}

usbview::Places SysfsTree::places() const
{
    return {root.path() + QStringLiteral("/sys"), root.path() + QStringLiteral("/dev")};
}

void SysfsTree::add(const Device &device)
{
    const int bus = busOf(device.port);
    makeFolder(device.port);
    write(device.port, "idVendor", device.vendor + '\n');
    write(device.port, "idProduct", device.product + '\n');
    write(device.port, "busnum", QByteArray::number(bus) + '\n');
    write(device.port, "devnum", QByteArray::number(device.address) + '\n');
    write(device.port, "speed", device.speed + '\n');
    bind(device.port, "usb");
    addInterface(device.port, device.port + ":1.0");
    const QString node = nodeOf(bus, device.address);
    QDir().mkpath(node.section(QLatin1Char('/'), 0, -2));
    makeFile(node, {});
    chmod(QFile::encodeName(node).constData(), 0666);
}

void SysfsTree::addRootHub(int bus)
{
    const QByteArray name = "usb" + QByteArray::number(bus);
    const QString folder = root.path() + QStringLiteral("/sys/devices/pci0000:00/") + name;
    QDir().mkpath(folder);
    makeLink("../../../devices/pci0000:00/" + name, linkFolder() + QLatin1Char('/') + name);
    makeFile(folder + QStringLiteral("/idVendor"), "1d6b\n");
    makeFile(folder + QStringLiteral("/idProduct"), "0003\n");
    makeFile(folder + QStringLiteral("/busnum"), QByteArray::number(bus) + '\n');
    makeFile(folder + QStringLiteral("/devnum"), "1\n");
    makeFile(folder + QStringLiteral("/speed"), "10000\n");
}

void SysfsTree::addInterface(const QByteArray &port, const QByteArray &interface)
{
    makeFolder(interface);
    write(interface, "bInterfaceNumber", interface.mid(interface.lastIndexOf('.') + 1) + '\n');
    Q_ASSERT(interface.startsWith(port));
}

void SysfsTree::remove(const QByteArray &port)
{
    QFile devnum(attribute(port, "devnum"));
    if (devnum.open(QIODevice::ReadOnly)) {
        QFile::remove(nodeOf(busOf(port), devnum.readAll().trimmed().toInt()));
    }
    const QStringList links = QDir(linkFolder()).entryList(QDir::AllEntries | QDir::System);
    QDir(folderOf(port)).removeRecursively();
    for (const QString &link : links) {
        if (link == port || link.startsWith(port + ':')) {
            QFile::remove(linkFolder() + QLatin1Char('/') + link);
        }
    }
}

void SysfsTree::bind(const QByteArray &name, const QByteArray &driver)
{
    makeLink("../../../../../bus/usb/drivers/" + driver, attribute(name, "driver"));
}

QString SysfsTree::folderOf(const QByteArray &name) const
{
    return root.path() + QStringLiteral("/sys/devices/pci0000:00/") + pathOf(name);
}

QString SysfsTree::attribute(const QByteArray &port, const QByteArray &name) const
{
    return folderOf(port) + QLatin1Char('/') + name;
}

void SysfsTree::write(const QByteArray &port, const QByteArray &name, const QByteArray &text) const
{
    makeFile(attribute(port, name), text);
}

QString SysfsTree::nodeName(int bus, int address)
{
    return QStringLiteral("bus/usb/%1/%2")
        .arg(bus, 3, 10, QLatin1Char('0'))
        .arg(address, 3, 10, QLatin1Char('0'));
}

QString SysfsTree::nodeOf(int bus, int address) const
{
    return places().devices + QLatin1Char('/') + nodeName(bus, address);
}

void SysfsTree::makeFolder(const QByteArray &name) const
{
    QDir().mkpath(folderOf(name));
    makeLink("../../../devices/pci0000:00/" + pathOf(name), linkFolder() + QLatin1Char('/') + name);
}
