#include "updateworker.h"

#include "bootimage.h"
#include "driverinstaller.h"
#include "pause.h"
#include "usbaccess.h"

#include <QDebug>

#include <algorithm>
#include <cstring>

// A device in repair mode has nothing but a boot loader. The sandbox, a small firmware, is loaded
// into the controller's RAM and started; the device comes back under another identity and can then
// be updated like a running one.
//
// A failure while the sandbox is loaded returns 0, and so does one in the update that follows: the
// bar then shows 100 percent after the error, and the error text is what counts. Only a device that
// is not found again makes the repair fail.
int UpdateTask::Worker::repairMode(Zip &zip, const DeviceDescription &description)
{
    if (!loadSandbox(zip)) {
        return 0;
    }
    pause_seconds(3); // the device leaves the bus and comes back
    usb::deinit_device(handle, description);
    handle = nullptr;

    const int opened = openSandbox(description);
    if (opened < 0) {
        return opened;
    }
    pause_seconds(1);
    regularUpdate(15, zip);
    return 0;
}

// Loads the image into RAM and starts it. Returns whether it runs.
bool UpdateTask::Worker::loadSandbox(Zip &zip)
{
    const std::string &name = productInfo->sandboxName;
    ZipFile file = zip.fopen(name);
    if (!file) {
        qDebug() << "Can't open file";
        return false;
    }
    BootImage image(file);
    const BootImage::Header header = image.readHeader();
    if (header == BootImage::Header::Foreign) {
        emit error(tr("Error: failed to verify microcode signature"));
        return false;
    }
    if (header == BootImage::Header::Broken) {
        emit error(tr("FX3 checksum error"));
        return false;
    }
    return loadSections(image, entrySize(zip, name)) && startSandbox(image.entryAddress());
}

bool UpdateTask::Worker::loadSections(BootImage &image, quint64 imageSize)
{
    auto record = image.readRecord();
    quint64 consumed = 0; // data bytes; the records' headers do not count
    while (record == BootImage::Record::Section) {
        const auto length = image.sectionData().size();
        consumed += length;
        qDebug().nospace() << "Write chunk, addr 0x" << Qt::hex << image.sectionAddress() << Qt::dec
                           << ", len=" << length;
        if (imageSize != 0) {
            emit progress(int(consumed * 13 / imageSize + 2));
        }
        if (!loadSection(image.sectionAddress(), image.sectionData())) {
            return false;
        }
        record = image.readRecord();
    }
    if (record != BootImage::Record::Entry || !image.verifyChecksum()) {
        emit error(tr("FX3 checksum error"));
        return false;
    }
    return true;
}

bool UpdateTask::Worker::loadSection(quint32 address, const std::vector<quint8> &data)
{
    for (std::size_t at = 0; at < data.size();) {
        const auto length = quint16(std::min(data.size() - at, std::size_t(BlockSize)));
        if (!loadPiece(address, &data[at], length)) {
            return false;
        }
        at += length;
        address += length; // wraps at 32 bits, as the controller's addresses do
    }
    return true;
}

// Writes a piece of RAM and reads it back before anything else is written.
bool UpdateTask::Worker::loadPiece(quint32 address, const quint8 *piece, quint16 length)
{
    const auto low = quint16(address & 0xFFFF);
    const auto high = quint16(address >> 16);
    quint8 readBack[BlockSize] = {};

    int result = usb::write_vendor(handle, MEMORY_ACCESS, low, high, piece, length);
    if (result >= 0) {
        result = usb::read_vendor(handle, MEMORY_ACCESS, low, high, readBack, length);
    }
    if (result < 0) {
        emit error(tr("Error: failed to write microcode: %1").arg(usb::error_name(result)));
        return false;
    }
    // Bytes that did not come back cannot be vouched for.
    if (result != length || std::memcmp(piece, readBack, length) != 0) {
        emit error(tr("Fail to verify image"));
        return false;
    }
    return true;
}

bool UpdateTask::Worker::startSandbox(quint32 entry)
{
    const int started = usb::write_vendor(handle, MEMORY_ACCESS, quint16(entry & 0xFFFF),
                                          quint16(entry >> 16), nullptr, 0);
    if (started < 0) {
        emit error(tr("Error: failed to start microcode: %1").arg(usb::error_name(started)));
        return false;
    }
    return true;
}

// Opens the device under one of the identities that its sandbox may have, at whatever address it
// came back, and installs a driver for it where that is needed.
int UpdateTask::Worker::openSandbox(const DeviceDescription &description)
{
    bool noInstaller = false;
    DeviceDescription sandbox = description;
    for (const ProductId &id : sandboxIds) {
        sandbox.vendorId = id.vendorId;
        sandbox.productId = id.productId;
        sandbox.interfaceNumber = 0;
        sandbox.deviceAddress = DeviceDescription::AnyAddress;
        sandbox.forgetDevice();

        handle = usb::init_device(sandbox);
        if (handle) {
            return 0;
        }
        const int installed = usb::install_driver(id.vendorId, id.productId, 0, false, nullptr);
        if (installed == usb::InstallNeedsAdmin) {
            emit error(
                tr("Access Denied: Administrative privilegies are required to access the device"));
            return -1;
        }
        if (installed != usb::DriverReady && usb::has_driver_installer()) {
            emit error(tr("Error: Failed to install driver"));
            return -1;
        }
        if (installed != usb::DriverReady) {
            // Nothing could be installed on this platform anyway: the device may well be there
            // under the next identity.
            noInstaller = true;
            continue;
        }
        handle = usb::init_device(sandbox);
        if (handle) {
            return 0;
        }
    }
    emit error(noInstaller ? tr("Error: Failed to install driver")
                           : tr("Error: Failed to init device for repair"));
    return -1;
}
