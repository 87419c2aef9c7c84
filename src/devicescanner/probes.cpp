#include "probes.h"

#include "devicedescription.h"
#include "driverdecision.h"
#include "usbaccess.h"
#include "vendorrequests.h"

#include <QCoreApplication>
#include <QDebug>

#include <libusb.h>

namespace {

constexpr int s_interface = 0;
constexpr quint8 s_versionStringIndex = 3;
constexpr int s_longestString = 127;

// A device that a probe has open. Closing is the destructor's work, so no path forgets it.
struct OpenDevice
{
    libusb_device_descriptor descriptor{};
    libusb_device_handle *handle = nullptr;

    OpenDevice() = default;
    OpenDevice(const OpenDevice &) = delete;
    OpenDevice &operator=(const OpenDevice &) = delete;
    ~OpenDevice()
    {
        if (handle) {
            libusb_close(handle);
        }
    }
};

// How the probes differ in what they do with a device that cannot be opened.
struct DriverPolicy
{
    bool composite; // the driver goes to one interface of a composite device
    bool force;     // install also where the platform says that there is nothing to open with
    bool bracketed; // the log line puts the reason in brackets
};

constexpr DriverPolicy s_runningDevice{true, false, false};
constexpr DriverPolicy s_bareController{false, false, true};

void logOpenError(int code, bool bracketed)
{
    const QString reason = usb::error_sentence(code);
    if (bracketed) {
        qDebug().noquote() << "Can't open device: (" + reason + ")";
    } else {
        qDebug().noquote() << "Can't open device:" << reason;
    }
}

// Opens the device, or tries to get a driver for it. The device is open exactly when the result is
// Found.
ProbeResult openOrInstallDriver(libusb_device *device, const DriverPolicy &policy,
                                OpenDevice &opened)
{
    if (libusb_get_device_descriptor(device, &opened.descriptor) < 0) {
        return ProbeResult::Failed;
    }
    qDebug() << "Product string id:" << opened.descriptor.iProduct;
    qDebug() << "Serial number string id:" << opened.descriptor.iSerialNumber;

    const int code = libusb_open(device, &opened.handle);
    if (code < 0) {
        opened.handle = nullptr;
    }
    const ProbeResult driver =
        driver_install(code, opened.descriptor.idVendor, opened.descriptor.idProduct,
                       policy.composite, policy.force);
    if (driver != ProbeResult::Found) {
        return driver;
    }
    if (code < 0) {
        logOpenError(code, policy.bracketed);
        return code == LIBUSB_ERROR_ACCESS ? ProbeResult::AccessDenied : ProbeResult::Failed;
    }
    return ProbeResult::Found;
}

// The string descriptor with this index, or the fallback when it cannot be read.
QString readString(libusb_device_handle *handle, quint8 index, const char *fallback)
{
    unsigned char text[s_longestString + 1] = {};
    const int length = libusb_get_string_descriptor_ascii(handle, index, text, s_longestString);
    if (length < 0) {
        return QString::fromLatin1(fallback);
    }
    text[qMin(length, s_longestString)] = 0;
    return QString::fromLatin1(reinterpret_cast<const char *>(text));
}

QString readProduct(const OpenDevice &opened)
{
    return readString(opened.handle, opened.descriptor.iProduct, "");
}

QString readSerial(const OpenDevice &opened)
{
    constexpr const char *noSerial = "FFFFFFFF";
    if (opened.descriptor.iSerialNumber == 0) {
        return QString::fromLatin1(noSerial);
    }
    return readString(opened.handle, opened.descriptor.iSerialNumber, noSerial);
}

// The part of a repair-mode probe that follows its banner.
ProbeResult describeBootLoader(libusb_device *device, const DriverPolicy &policy, DeviceMode mode,
                               const QString &modeText, DeviceDescription &description)
{
    OpenDevice opened;
    const ProbeResult result = openOrInstallDriver(device, policy, opened);
    if (result != ProbeResult::Found) {
        return result;
    }
    description.productName = readProduct(opened);
    description.serialNumber = readSerial(opened);
    usb::device_adressing_fill(usb::Device(device), description);
    description.mode = mode;
    description.interfaceNumber = s_interface;
    description.modeText = modeText;
    return ProbeResult::Found;
}

// Claims the interface, sends one status request and gives the interface back. A firmware that
// hangs does not answer it within the second that it has.
bool ping(libusb_device_handle *handle)
{
    if (libusb_kernel_driver_active(handle, s_interface) != 0) {
        libusb_detach_kernel_driver(handle, s_interface);
    }
    const int claimed = libusb_claim_interface(handle, s_interface);
    qDebug() << "Claim interface:" << s_interface << claimed;
    if (claimed != 0) {
        qDebug() << "Error claim usb interface: " << claimed;
        libusb_attach_kernel_driver(handle, s_interface);
        return false;
    }
    quint8 ready = 0; // any answer will do: a busy device is alive
    const int answered = usb::read_vendor(handle, FX3_STATUS, 0, 0, &ready, sizeof(ready));
    libusb_attach_kernel_driver(handle, s_interface);
    libusb_release_interface(handle, s_interface);
    qDebug() << "Ping device:" << answered;
    return answered >= 0;
}

} // namespace

ProbeResult probeVelk3(libusb_device *device, DeviceDescription &description)
{
    qDebug() << "Probe VELK3/SORN3";
    OpenDevice opened;
    const ProbeResult result = openOrInstallDriver(device, s_runningDevice, opened);
    if (result != ProbeResult::Found) {
        return result;
    }
    const QString product = readProduct(opened);
    const QString serial = readSerial(opened);
    const QString version = readString(opened.handle, s_versionStringIndex, "0.0.0");
    if (!ping(opened.handle)) {
        return ProbeResult::Failed;
    }
    usb::device_adressing_fill(usb::Device(device), description);
    description.interfaceNumber = s_interface;
    description.mode = DeviceMode::Normal;
    description.productName = product;
    description.modeText.clear();
    description.serialNumber = serial;
    description.versionString = version;
    return ProbeResult::Found;
}

ProbeResult probeSorn3(libusb_device *device, DeviceDescription &description)
{
    return probeVelk3(device, description);
}

ProbeResult probeSoft(libusb_device *device, DeviceDescription &description)
{
    qDebug() << "Probe Soft";
    const DriverPolicy policy{false, description.secondPass, false};
    return describeBootLoader(device, policy, DeviceMode::SoftRepair,
                              QCoreApplication::translate("DeviceProbes", "Soft Repair Mode"),
                              description);
}

ProbeResult probeHard(libusb_device *device, DeviceDescription &description)
{
    qDebug() << "Probe Hard";
    return describeBootLoader(device, s_bareController, DeviceMode::HardRepair,
                              QCoreApplication::translate("DeviceProbes", "Hard Repair Mode"),
                              description);
}
