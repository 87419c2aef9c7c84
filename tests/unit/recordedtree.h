#pragma once

#include "usbview.h"

#include <QTemporaryDir>

// sysfs and the device nodes as a kernel has shown them, laid out again from a recording. The file
// says how it is written.
class RecordedTree
{
public:
    explicit RecordedTree(const QString &recording);
    usbview::Places places() const;

    // How many folders the recording has.
    int folders() const { return folderCount; }
    QString node(const QString &name) const; // "bus/usb/004/002"

private:
    void take(const QByteArray &kind, const QByteArray &name, const QByteArray &value);
    void finishUevent();

    QTemporaryDir root;
    QByteArray folder; // that is being laid out, "/devices/..."
    QByteArray uevent; // of it
    int folderCount = 0;
};
