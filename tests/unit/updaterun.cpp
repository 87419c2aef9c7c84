#include "updaterun.h"

#include "libziptexts.h"
#include "updatetask.h"

#include <QSignalSpy>

#include <zip.h>

#include <iostream>

namespace {

void addBlocks(std::vector<ScriptedTransfer> &transfers, const QByteArray &image, quint8 write,
               quint8 status)
{
    for (int offset = 0; offset < image.size(); offset += 4096) {
        transfers.push_back(outRequest(write, image.mid(offset, 4096)));
        transfers.push_back(inRequest(status));
    }
}

} // namespace

UpdateRun::UpdateRun() : standardLog(std::clog), standardError(std::cerr)
{
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
}

QStringList UpdateRun::run(const DeviceDescription &description,
                           const std::vector<PackageEntry> &package)
{
    const QString path = directory.filePath(QStringLiteral("package.fw"));
    writeFile(path, zipArchive(package));
    return run(description, path);
}

QStringList UpdateRun::run(const DeviceDescription &description, const QString &packagePath)
{
    UpdateTask task;
    QStringList events;
    QObject::connect(&task, &UpdateTask::progress, &task,
                     [&](int value) { events.append(QStringLiteral("progress %1").arg(value)); });
    QObject::connect(&task, &UpdateTask::error, &task,
                     [&](const QString &text) { events.append(QStringLiteral("error ") + text); });
    QObject::connect(&task, &UpdateTask::complete, &task,
                     [&] { events.append(QStringLiteral("complete")); });
    QSignalSpy completed(&task, &UpdateTask::complete);

    emit task.start(description, packagePath);
    if (!completed.wait(100000)) {
        return {QStringLiteral("the update did not end")};
    }
    lines = debug.lines();

    const int before = completed.count();
    emit task.start(description, directory.filePath(QStringLiteral("no such file")));
    if (before != 1 || !completed.wait(100000)) {
        return {QStringLiteral("complete came %1 times").arg(completed.count())};
    }
    const QStringList sentinel{"error Cannot open firmware package: " + libzipText(ZIP_ER_NOENT),
                               QStringLiteral("complete")};
    if (events.mid(events.size() - 2) != sentinel) {
        return {QStringLiteral("signals came late: ") + events.join(QStringLiteral(", "))};
    }
    return events.mid(0, events.size() - 2);
}

DeviceDescription recordOf(const libusb_device *device, quint32 mode)
{
    DeviceDescription record{};
    record.vendorId = device->vendorId;
    record.productId = device->productId;
    record.busNumber = device->bus;
    record.deviceAddress = device->address;
    record.portNumber = device->port;
    record.mode = mode;
    return record;
}

std::vector<ScriptedTransfer> fx3Requests(const QByteArray &image)
{
    std::vector<ScriptedTransfer> transfers{outRequest(0xC5), inRequest(0xC8)};
    addBlocks(transfers, image, 0xC6, 0xC8);
    transfers.push_back(outRequest(0xC7));
    return transfers;
}

std::vector<ScriptedTransfer> fpgaV1Requests(const QByteArray &image)
{
    const QByteArray header = "FPGA" + le32(static_cast<quint32>(image.size()));
    std::vector<ScriptedTransfer> transfers{outRequest(0xC1), inRequest(0xC4),
                                            outRequest(0xC2, header + le32(slowCrc32(header)))};
    addBlocks(transfers, image, 0xC2, 0xC4);
    transfers.push_back(outRequest(0xC2, le32(slowCrc32(image))));
    transfers.push_back(inRequest(0xC4));
    transfers.push_back(outRequest(0xC3));
    return transfers;
}

std::vector<ScriptedTransfer> fpgaV2Requests(const QByteArray &image)
{
    std::vector<ScriptedTransfer> transfers{outRequest(0xC1), inRequest(0xC4)};
    addBlocks(transfers, image, 0xC2, 0xC4);
    transfers.push_back(outRequest(0xC3));
    return transfers;
}

std::vector<ScriptedTransfer> edidRequests(const QByteArray &edid)
{
    return {outRequest(0xCF, {}, 10000), outRequest(0xD2, edid, 10000),
            outRequest(0xD4, {}, 10000)};
}

quint32 slowCrc32(const QByteArray &bytes)
{
    quint32 crc = 0xFFFFFFFF;
    for (const char next : bytes) {
        crc ^= static_cast<quint8>(next);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

QStringList transferLines(const char *device, const std::vector<ScriptedTransfer> &transfers)
{
    QStringList lines;
    for (const QString &line : describe(transfers)) {
        lines.append(QStringLiteral("control_transfer %1 %2").arg(QLatin1String(device), line));
    }
    return lines;
}

QStringList opening(const char *device)
{
    const QString name = QLatin1String(device);
    return {"open " + name, "kernel_driver_active " + name + " 0",
            "claim_interface " + name + " 0"};
}

QStringList givingBack(const char *device)
{
    const QString name = QLatin1String(device);
    return {"attach_kernel_driver " + name + " 0", "release_interface " + name + " 0",
            "close " + name};
}

QStringList progressLines(std::initializer_list<int> values)
{
    QStringList lines;
    for (const int value : values) {
        lines.append(QStringLiteral("progress %1").arg(value));
    }
    return lines;
}
