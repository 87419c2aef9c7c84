#include "updateworker.h"

#include "pause.h"
#include "usbaccess.h"

#include <QDebug>

void UpdateTask::Worker::update(DeviceDescription description, const QString &fwFileName)
{
    qDebug() << "Updater start";
    updateDevice(description, fwFileName);
    emit complete();
}

void UpdateTask::Worker::updateDevice(DeviceDescription &description, const QString &fwFileName)
{
    Zip zip(fwFileName.toStdString());
    if (!zip) {
        const QString reason = QString::fromStdString(zip.errorStr());
        qDebug().noquote() << "Can't open firmware file:" << reason;
        emit error(tr("Cannot open firmware package: %1").arg(reason));
        return;
    }
    emit progress(1);

    packageIncomplete = false;
    edidPresent = false;
    reserved = false;
    product = "legacy";
    productInfo = nullptr;
    if (!readProduct(zip) || !checkContents(zip) || !checkCompatibility(description)) {
        return;
    }
    emit progress(2);

    handle = usb::init_device(description);
    if (!handle) {
        emit error(tr("Cannot Access Device. Administrative privilegies may be required"));
        return;
    }
    const int result = runMode(description, zip);
    usb::deinit_device(handle, description);
    handle = nullptr;
    if (result >= 0) {
        emit progress(100);
    }
}

int UpdateTask::Worker::runMode(const DeviceDescription &description, Zip &zip)
{
    switch (description.mode) {
    case DeviceMode::Normal:
        return regularUpdate(2, zip);
    case DeviceMode::SoftRepair:
    case DeviceMode::HardRepair:
        return repairMode(zip, description);
    default:
        return -1;
    }
}

int UpdateTask::Worker::regularUpdate(int progressFrom, Zip &zip)
{
    const int steps = (edidPresent ? 1 : 0) + (packageIncomplete ? 0 : 2);
    qDebug() << "Update steps:" << steps;
    if (steps == 0) {
        return 0;
    }
    const int share = (100 - progressFrom) / steps;
    int at = progressFrom;
    int result = 0;

    if (!packageIncomplete) {
        result = flashFx3(at, at + share, productInfo->fx3Name, zip);
        if (result < 0) {
            return result;
        }
        pause_seconds(1);
        result = flashFpga(at + share, at + 2 * share, zip);
        if (result < 0) {
            return result;
        }
        at += 2 * share;
    }
    if (!edidPresent) {
        return result;
    }
    pause_seconds(1);
    return flashEdid(at, at + share, productInfo->edidName, zip);
}

int UpdateTask::Worker::flashFpga(int progressFrom, int progressTo, Zip &zip)
{
    switch (productInfo->fpgaVersion) {
    case 0:
        return flashFpgaV1(progressFrom, progressTo, productInfo->fpgaName, zip);
    case 1:
        return flashFpgaV2(progressFrom, progressTo, productInfo->fpgaName, zip);
    default:
        return -1;
    }
}

// Polls until the device says that it is ready. A device that keeps saying that it is busy is
// waited for: nobody knows better than the device how long its flash memory takes.
int UpdateTask::Worker::statusWait(VendorRequests request)
{
    for (;;) {
        quint8 ready = 0; // cleared before each poll: an answer of no bytes means busy
        const int result = usb::read_vendor(handle, request, 0, 0, &ready, sizeof(ready));
        if (result < 0) {
            emit error(tr("Error: failed to connect to FPGA: %1").arg(usb::error_name(result)));
            return result;
        }
        if (ready != 0) {
            return 0;
        }
    }
}

int UpdateTask::Worker::sendCommand(VendorRequests request)
{
    return usb::write_vendor(handle, request, 0, 0, nullptr, 0);
}

// Bytes that the entry unpacks to, or 0 when the archive does not say.
quint64 UpdateTask::Worker::entrySize(Zip &zip, const std::string &fileName)
{
    const ZipStat stat = zip.stat(fileName);
    return stat.isSizeValid() ? stat.size() : 0;
}

// Sends one block of an image, tells how far the image is, and waits until the device has stored
// the block.
int UpdateTask::Worker::sendBlock(ImageTransfer &transfer, const void *block, quint16 length)
{
    const int sent = usb::write_vendor(handle, transfer.writeRequest, 0, 0, block, length);
    qDebug() << "Write chunk [" << transfer.block << "] size: " << sent;
    transfer.block += 1;
    if (sent < 0) {
        emit error(transfer.failure.arg(transfer.codeText(sent)));
        return sent;
    }
    transfer.total += quint64(sent);
    if (transfer.imageSize != 0) {
        const auto range = quint64(qint64(transfer.progressTo - transfer.progressFrom));
        const quint64 done = range * transfer.total / transfer.imageSize;
        // Added before it becomes an int: a package that lies about the size makes it any number.
        emit progress(int(quint64(transfer.progressFrom) + done));
    }
    return statusWait(transfer.statusRequest);
}
