#include "imagewriter.h"

#include "littleendian.h"
#include "package.h"
#include "updatetexts.h"
#include "usbaccess.h"
#include "ziparchive.h"

#include <QDebug>

#include <zlib.h>

#include <iostream>
#include <utility>

// clang-format off
const ImageKind s_fx3Image{
    FX3_START, FX3_WRITE, FX3_STATUS, FX3_COMPLETE,
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to start microcode reflashing: %1"),
    UpdateTexts::ClosedMicrocode,
    UpdateTexts::UnreadableMicrocode,
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to write microcode block: %1"),
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to complete microcode reflash: %1"),
    usb::error_sentence, "Flashing FX3 firmware...", 4, false, false};

const ImageKind s_fpgaImageV1{
    FPGA_START, FPGA_WRITE, FPGA_STATUS, FPGA_COMPLETE,
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to start FPGA reflashing: %1"),
    UpdateTexts::ClosedBitstream,
    UpdateTexts::UnreadableBitstream,
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to write FPGA block:  %1"),
    QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to complete FPGA reflash: %1"),
    usb::error_name, "Flashing Fpga...", 1, true, false};
// clang-format on

namespace {

// The second generation takes the raw blocks. A bitstream that cannot be read to its end is
// completed with what was read, but the error has been told by then.
ImageKind raw(ImageKind kind)
{
    kind.framed = false;
    kind.endsWhereUnreadable = true;
    return kind;
}

} // namespace

const ImageKind s_fpgaImageV2 = raw(s_fpgaImageV1);

namespace {

constexpr int s_blockSize = 4096; // bytes

// The block before a framed image: "FPGA", the image's size in bytes, and the CRC-32 (zlib's) of
// these eight bytes.
struct FrameHeader
{
    quint8 magic[4];
    LittleEndian<quint32> imageSize;
    LittleEndian<quint32> headerCrc;
};
static_assert(sizeof(FrameHeader) == 12, "the device expects a header block of 12 bytes");

quint32 emptyCrc()
{
    return quint32(crc32(0, nullptr, 0));
}

FrameHeader makeHeader(quint64 imageSize)
{
    FrameHeader header = {{'F', 'P', 'G', 'A'}, {}, {}};
    header.imageSize = quint32(imageSize);
    const auto *bytes = reinterpret_cast<const quint8 *>(&header);
    header.headerCrc = quint32(crc32(emptyCrc(), bytes, 8));
    return header;
}

} // namespace

ImageWriter::ImageWriter(const ImageKind &imageKind, libusb_device_handle *device,
                         const UpdateReport &updateReport, StatusWait waitForStatus)
    : kind(imageKind), handle(device), report(updateReport), statusWait(std::move(waitForStatus))
{
}

int ImageWriter::write(int progressFrom, int progressTo, const std::string &fileName, Zip &zip)
{
    from = progressFrom;
    to = progressTo;
    qDebug() << "Initing flash...";
    int result = command(kind.start, kind.startFailed);
    if (result < 0) {
        return result;
    }
    ZipFile image = zip.fopen(fileName);
    if (!image) {
        report.error(UpdateTexts::tr(kind.notFound));
        return -1;
    }
    imageSize = entry_size(zip, fileName);
    result = statusWait(kind.status);
    if (result < 0) {
        return result;
    }
    qDebug() << kind.banner;
    result = kind.framed ? sendFramed(image) : stream(image);
    if (result < 0) {
        return result;
    }
    result = command(kind.complete, kind.completeFailed);
    qDebug() << "Flashing complete.";
    return result;
}

int ImageWriter::command(VendorRequests request, const char *failure)
{
    const int result = usb::write_vendor(handle, request, 0, 0, nullptr, 0);
    if (result < 0) {
        reportCode(failure, result);
    }
    return result;
}

int ImageWriter::stream(ZipFile &image)
{
    quint8 block[s_blockSize];
    for (;;) {
        const int length = image.read(block, sizeof(block));
        if (length < 0 || length % kind.wordSize != 0) {
            reportUnreadable(image, length);
            return kind.endsWhereUnreadable ? 0 : -1;
        }
        if (length == 0) {
            return 0;
        }
        if (kind.framed) {
            crc = quint32(crc32(crc, block, uInt(length)));
        }
        const int sent = sendBlock(block, quint16(length));
        if (sent < 0) {
            return sent;
        }
    }
}

int ImageWriter::sendFramed(ZipFile &image)
{
    int result = sendHeader();
    if (result < 0) {
        return result;
    }
    crc = emptyCrc();
    result = stream(image);
    return result < 0 ? result : sendCrc();
}

int ImageWriter::sendHeader()
{
    const FrameHeader header = makeHeader(imageSize);
    std::clog << "FPGA size: " << imageSize << std::endl;
    const int sent = usb::write_vendor(handle, kind.write, 0, 0, &header, sizeof(header));
    if (sent < 0) {
        reportCode(QT_TRANSLATE_NOOP("UpdateTask::Worker",
                                     "Error: failed to write FPGA header block:  %1"),
                   sent);
    }
    return sent;
}

int ImageWriter::sendCrc()
{
    LittleEndian<quint32> sentCrc{};
    sentCrc = crc;
    const int checked = usb::write_vendor(handle, kind.write, 0, 0, &sentCrc, sizeof(sentCrc));
    if (checked < 0) {
        // Not the end: the device has the last word, in the poll and the completion that follow.
        reportCode(QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed FPGA CRC check: %1"),
                   checked);
    }
    return statusWait(kind.status);
}

// Sends one block, tells how far the image is, and waits until the device has stored the block.
int ImageWriter::sendBlock(const void *block, quint16 length)
{
    const int sent = usb::write_vendor(handle, kind.write, 0, 0, block, length);
    // Once a block, so not through the stream, which takes a quarter longer over it.
    qDebug("Write chunk [ %d ] size:  %d", number, sent);
    number += 1;
    if (sent < 0) {
        reportCode(kind.writeFailed, sent);
        return sent;
    }
    total += quint64(sent);
    if (imageSize != 0) {
        const quint64 done = quint64(qint64(to - from)) * total / imageSize;
        // Added before it becomes an int: a package that lies about the size makes it any number.
        report.progress(int(quint64(from) + done));
    }
    return statusWait(kind.status);
}

void ImageWriter::reportUnreadable(const ZipFile &image, int length)
{
    // Of a block of odd length the length is told, in 16 bits as it would have been sent.
    const QString reason = kind.wordSize > 1 ? QString::number(quint16(length))
                                             : QString::fromStdString(image.errorStr());
    report.error(UpdateTexts::tr(kind.unreadable).arg(reason));
}

void ImageWriter::reportCode(const char *failure, int code)
{
    report.error(UpdateTexts::tr(failure).arg(kind.codeText(code)));
}
