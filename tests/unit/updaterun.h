#pragma once

#include "capturedoutput.h"
#include "packages.h"
#include "scriptedlibusb.h"

#include "devicedescription.h"

#include <QTemporaryDir>

// One update on a scripted bus, from start() to complete(), with everything that it says.
class UpdateRun
{
public:
    UpdateRun();

    ScriptedUsb bus;
    CapturedDebug debug;
    CapturedStream standardLog;
    CapturedStream standardError;

    // Runs the update and returns its signals in order: "progress 1", "error TEXT", "complete". The
    // end is proved by a second update that is queued behind it, so nothing that comes late is
    // missed.
    QStringList run(const DeviceDescription &description, const QString &packagePath);
    QStringList run(const DeviceDescription &description, const std::vector<PackageEntry> &package);

    // What the first update wrote through qDebug.
    QStringList debugLines() const { return lines; }

    QTemporaryDir directory;

private:
    QStringList lines;
};

// A record that describes the device where it stands now.
DeviceDescription recordOf(const libusb_device *device, quint32 mode = 0);

// The requests of one image, as the device has to see them.
std::vector<ScriptedTransfer> fx3Requests(const QByteArray &image);
std::vector<ScriptedTransfer> fpgaV1Requests(const QByteArray &image);
std::vector<ScriptedTransfer> fpgaV2Requests(const QByteArray &image);
std::vector<ScriptedTransfer> edidRequests(const QByteArray &edid);

// CRC-32 as PKZIP and Ethernet have it, computed bit by bit.
quint32 slowCrc32(const QByteArray &bytes);

// Lines of the call log: the transfers of one device, and opening and giving back around other
// lines.
QStringList transferLines(const char *device, const std::vector<ScriptedTransfer> &transfers);
QStringList opening(const char *device);
QStringList givingBack(const char *device);
QStringList progressLines(std::initializer_list<int> values);
