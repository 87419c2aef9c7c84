#include "updateworker.h"

#include "usbaccess.h"

#include <QDebug>
#include <QtEndian>

#include <zlib.h>

#include <iostream>

// The two generations of devices take the bitstream differently: the first wants it framed by a
// header block and a CRC, the second takes the raw blocks.

namespace {

// The block before the bitstream: "FPGA", its size in bytes, and the CRC-32 of these eight bytes.
// Numbers are little-endian; the CRC is zlib's.
struct FpgaHeader
{
    quint8 magic[4];
    quint8 imageSize[4];
    quint8 headerCrc[4];
};
static_assert(sizeof(FpgaHeader) == 12, "the device expects a header block of 12 bytes");

quint32 emptyCrc()
{
    return quint32(crc32(0, nullptr, 0));
}

FpgaHeader makeHeader(quint64 imageSize)
{
    FpgaHeader header = {{'F', 'P', 'G', 'A'}, {}, {}};
    qToLittleEndian(quint32(imageSize), header.imageSize);
    const auto crc = crc32(emptyCrc(), header.magic, sizeof(header.magic));
    qToLittleEndian(quint32(crc32(crc, header.imageSize, sizeof(header.imageSize))),
                    header.headerCrc);
    return header;
}

} // namespace

int UpdateTask::Worker::flashFpgaV1(int progressFrom, int progressTo, const std::string &fileName,
                                    Zip &zip)
{
    ZipFile image;
    int result = startFpga(fileName, zip, image);
    if (result < 0) {
        return result;
    }
    ImageTransfer transfer = fpgaTransfer(progressFrom, progressTo, entrySize(zip, fileName));
    result = sendFpgaHeader(transfer.imageSize);
    if (result < 0) {
        return result;
    }
    quint32 crc = emptyCrc();
    result = streamFpgaV1(image, transfer, crc);
    if (result < 0) {
        return result;
    }

    const quint32 sentCrc = qToLittleEndian(crc);
    const int checked = usb::write_vendor(handle, FPGA_WRITE, 0, 0, &sentCrc, sizeof(sentCrc));
    if (checked < 0) {
        // Not the end: the device has the last word, in the poll and the completion that follow.
        emit error(tr("Error: failed FPGA CRC check: %1").arg(usb::error_name(checked)));
    }
    result = statusWait(FPGA_STATUS);
    if (result < 0) {
        return result;
    }
    return completeFpga();
}

int UpdateTask::Worker::flashFpgaV2(int progressFrom, int progressTo, const std::string &fileName,
                                    Zip &zip)
{
    ZipFile image;
    int result = startFpga(fileName, zip, image);
    if (result < 0) {
        return result;
    }
    ImageTransfer transfer = fpgaTransfer(progressFrom, progressTo, entrySize(zip, fileName));
    result = streamFpgaV2(image, transfer);
    if (result < 0) {
        return result;
    }
    return completeFpga();
}

// Starts the reflashing, opens the image and waits until the device is ready for it.
int UpdateTask::Worker::startFpga(const std::string &fileName, Zip &zip, ZipFile &image)
{
    qDebug() << "Initing flash...";
    const int started = sendCommand(FPGA_START);
    if (started < 0) {
        emit error(tr("Error: failed to start FPGA reflashing: %1").arg(usb::error_name(started)));
        return started;
    }
    image = zip.fopen(fileName);
    if (!image) {
        emit error(tr("Error: failed to find FPGA image"));
        return -1;
    }
    const int ready = statusWait(FPGA_STATUS);
    if (ready < 0) {
        return ready;
    }
    qDebug() << "Flashing Fpga...";
    return 0;
}

UpdateTask::Worker::ImageTransfer UpdateTask::Worker::fpgaTransfer(int progressFrom, int progressTo,
                                                                   quint64 imageSize)
{
    ImageTransfer transfer;
    transfer.writeRequest = FPGA_WRITE;
    transfer.statusRequest = FPGA_STATUS;
    transfer.failure = tr("Error: failed to write FPGA block:  %1");
    transfer.codeText = usb::error_name;
    transfer.progressFrom = progressFrom;
    transfer.progressTo = progressTo;
    transfer.imageSize = imageSize;
    return transfer;
}

int UpdateTask::Worker::sendFpgaHeader(quint64 imageSize)
{
    const FpgaHeader header = makeHeader(imageSize);
    std::clog << "FPGA size: " << imageSize << std::endl;
    const int sent = usb::write_vendor(handle, FPGA_WRITE, 0, 0, &header, sizeof(header));
    if (sent < 0) {
        emit error(tr("Error: failed to write FPGA header block:  %1").arg(usb::error_name(sent)));
    }
    return sent;
}

int UpdateTask::Worker::streamFpgaV1(ZipFile &image, ImageTransfer &transfer, quint32 &crc)
{
    quint8 block[BlockSize];
    for (;;) {
        const int length = image.read(block, sizeof(block));
        if (length < 0) {
            fpgaReadFailed(image);
            return -1;
        }
        if (length == 0) {
            return 0;
        }
        crc = quint32(crc32(crc, block, uInt(length)));
        const int sent = sendBlock(transfer, block, quint16(length));
        if (sent < 0) {
            return sent;
        }
    }
}

int UpdateTask::Worker::streamFpgaV2(ZipFile &image, ImageTransfer &transfer)
{
    quint8 block[BlockSize];
    for (;;) {
        const int length = image.read(block, sizeof(block));
        if (length < 0) {
            // The image ends here for the device, but a damaged bitstream must not pass for a good
            // one.
            fpgaReadFailed(image);
        }
        if (length <= 0) {
            return 0;
        }
        const int sent = sendBlock(transfer, block, quint16(length));
        if (sent < 0) {
            return sent;
        }
    }
}

void UpdateTask::Worker::fpgaReadFailed(const ZipFile &image)
{
    const QString reason = QString::fromStdString(image.errorStr());
    emit error(tr("Error: failed to read FPGA image: %1").arg(reason));
}

int UpdateTask::Worker::completeFpga()
{
    const int completed = sendCommand(FPGA_COMPLETE);
    if (completed < 0) {
        emit error(
            tr("Error: failed to complete FPGA reflash: %1").arg(usb::error_name(completed)));
    }
    qDebug() << "Flashing complete.";
    return completed;
}
