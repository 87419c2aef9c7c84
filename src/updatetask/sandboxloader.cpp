#include "sandboxloader.h"

#include "bootimage.h"
#include "package.h"
#include "updatetexts.h"
#include "usbaccess.h"
#include "vendorrequests.h"
#include "ziparchive.h"

#include <QDebug>

#include <algorithm>
#include <cstring>

namespace {

constexpr int s_pieceSize = 4096; // bytes of memory that go into one request

class SandboxLoader
{
public:
    SandboxLoader(libusb_device_handle *device, const UpdateReport &updateReport)
        : handle(device), report(updateReport)
    {
    }

    bool loadSections(BootImage &image, quint64 imageSize);
    bool start(quint32 entry);

private:
    bool loadSection(quint32 address, const std::vector<quint8> &data);
    bool loadPiece(quint32 address, const quint8 *piece, quint16 length);

    libusb_device_handle *handle;
    const UpdateReport &report;
};

bool SandboxLoader::loadSections(BootImage &image, quint64 imageSize)
{
    auto record = image.readRecord();
    quint64 consumed = 0; // data bytes; the records' headers do not count
    while (record == BootImage::Record::Section) {
        const auto length = image.sectionData().size();
        consumed += length;
        qDebug().nospace() << "Write chunk, addr 0x" << Qt::hex << image.sectionAddress() << Qt::dec
                           << ", len=" << length;
        if (imageSize != 0) {
            report.progress(int(consumed * 13 / imageSize + 2));
        }
        if (!loadSection(image.sectionAddress(), image.sectionData())) {
            return false;
        }
        record = image.readRecord();
    }
    if (record != BootImage::Record::Entry || !image.verifyChecksum()) {
        report.error(UpdateTexts::brokenBootImage());
        return false;
    }
    return true;
}

bool SandboxLoader::loadSection(quint32 address, const std::vector<quint8> &data)
{
    for (std::size_t at = 0; at < data.size();) {
        const auto length = quint16(std::min(data.size() - at, std::size_t(s_pieceSize)));
        if (!loadPiece(address, &data[at], length)) {
            return false;
        }
        at += length;
        address += length; // wraps at 32 bits, as the controller's addresses do
    }
    return true;
}

// Writes a piece of RAM and reads it back before anything else is written.
bool SandboxLoader::loadPiece(quint32 address, const quint8 *piece, quint16 length)
{
    const auto low = quint16(address & 0xFFFF);
    const auto high = quint16(address >> 16);
    quint8 readBack[s_pieceSize] = {};

    int result = usb::write_vendor(handle, MEMORY_ACCESS, low, high, piece, length);
    if (result >= 0) {
        result = usb::read_vendor(handle, MEMORY_ACCESS, low, high, readBack, length);
    }
    if (result < 0) {
        report.error(
            UpdateTexts::tr("Error: failed to write microcode: %1").arg(usb::error_name(result)));
        return false;
    }
    // Bytes that did not come back cannot be vouched for.
    if (result != length || std::memcmp(piece, readBack, length) != 0) {
        report.error(UpdateTexts::tr("Fail to verify image"));
        return false;
    }
    return true;
}

bool SandboxLoader::start(quint32 entry)
{
    const int started = usb::write_vendor(handle, MEMORY_ACCESS, quint16(entry & 0xFFFF),
                                          quint16(entry >> 16), nullptr, 0);
    if (started < 0) {
        report.error(
            UpdateTexts::tr("Error: failed to start microcode: %1").arg(usb::error_name(started)));
        return false;
    }
    return true;
}

} // namespace

bool load_sandbox(libusb_device_handle *device, const UpdateReport &report,
                  const std::string &fileName, Zip &zip)
{
    ZipFile file = zip.fopen(fileName);
    if (!file) {
        qDebug() << "Can't open file";
        return false;
    }
    BootImage image(file);
    const BootImage::Header header = image.readHeader();
    if (header == BootImage::Header::Foreign) {
        report.error(UpdateTexts::foreignBootImage());
        return false;
    }
    if (header == BootImage::Header::Broken) {
        report.error(UpdateTexts::brokenBootImage());
        return false;
    }
    SandboxLoader loader(device, report);
    return loader.loadSections(image, entry_size(zip, fileName)) &&
           loader.start(image.entryAddress());
}
