#pragma once

#include "usbview.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A made sysfs and /dev, as Linux lays them out for USB: devices in folders below their hubs, links
// to them by name in bus/usb/devices, drivers as links.
class SysfsTree
{
public:
    struct Device
    {
        QByteArray port; // "2-1.4"
        QByteArray vendor = "e5c1";
        QByteArray product = "3601";
        int address = 7;
        QByteArray speed = "5000";
    };

    SysfsTree();
    usbview::Places places() const;

    // A device with its node (rw-rw-rw-) and interface 0 of configuration 1, to which no driver is
    // bound.
    void add(const Device &device);
    void addRootHub(int bus);
    void addInterface(const QByteArray &port, const QByteArray &interface); // "2-1.4:1.1"
    // Takes the device, its interfaces and its node away, as the kernel does when it goes.
    void remove(const QByteArray &port);

    // Binds a driver to a device ("2-1.4") or an interface ("2-1.4:1.0").
    void bind(const QByteArray &name, const QByteArray &driver);
    // The path of a device's attribute.
    QString attribute(const QByteArray &port, const QByteArray &name) const;
    void write(const QByteArray &port, const QByteArray &name, const QByteArray &text) const;
    QString folderOf(const QByteArray &name) const;
    QString linkFolder() const { return root.path() + QStringLiteral("/sys/bus/usb/devices"); }
    static QString nodeName(int bus, int address);
    QString nodeOf(int bus, int address) const;

private:
    void makeFolder(const QByteArray &name) const;

    QTemporaryDir root;
};
