#include "updateworker.h"

#include "usbaccess.h"

#include <QDebug>

// Streams the microcode to the running firmware, which stores and checks it itself. The image is
// not looked at: that is for repair mode, where there is no firmware to do so.
int UpdateTask::Worker::flashFx3(int progressFrom, int progressTo, const std::string &fileName,
                                 Zip &zip)
{
    qDebug() << "Initing flash...";
    const int started = sendCommand(FX3_START);
    if (started < 0) {
        emit error(tr("Error: failed to start microcode reflashing: %1")
                       .arg(usb::error_sentence(started)));
        return started;
    }
    ZipFile image = zip.fopen(fileName);
    if (!image) {
        emit error(tr("Error: failed to find microcode image"));
        return -1;
    }
    ImageTransfer transfer;
    transfer.writeRequest = FX3_WRITE;
    transfer.statusRequest = FX3_STATUS;
    transfer.failure = tr("Error: failed to write microcode block: %1");
    transfer.codeText = usb::error_sentence;
    transfer.progressFrom = progressFrom;
    transfer.progressTo = progressTo;
    transfer.imageSize = entrySize(zip, fileName);
    int result = statusWait(FX3_STATUS);
    if (result < 0) {
        return result;
    }
    qDebug() << "Flashing FX3 firmware...";
    result = streamFx3(image, transfer);
    if (result < 0) {
        return result;
    }

    const int completed = sendCommand(FX3_COMPLETE);
    if (completed < 0) {
        emit error(tr("Error: failed to complete microcode reflash: %1")
                       .arg(usb::error_sentence(completed)));
    }
    qDebug() << "Flashing complete.";
    return completed;
}

int UpdateTask::Worker::streamFx3(ZipFile &image, ImageTransfer &transfer)
{
    char block[BlockSize];
    for (;;) {
        // The low 16 bits are the length, so a failed read (-1) is an odd 65535 bytes and ends
        // below.
        const auto length = quint16(image.read(block, sizeof(block)));
        if (length == 0) {
            return 0;
        }
        if (length % 4 != 0) {
            // The text has no place for the length and is shown with its "%d".
            emit error(tr("Error: failed to read archieve %d").arg(length));
            return -1;
        }
        const int sent = sendBlock(transfer, block, length);
        if (sent < 0) {
            return sent;
        }
    }
}
