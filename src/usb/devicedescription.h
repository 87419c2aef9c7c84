#pragma once

#include <QMetaType>
#include <QString>

#include <tuple>

struct libusb_device;

// What a device is running, and so what it can be asked to do.
enum DeviceMode : quint32 {
    Normal = 0,     // the product's firmware, which answered the ping
    SoftRepair = 1, // the maker's boot loader, under a repair id of the product
    HardRepair = 2, // the boot loader of the bare FX3 (04b4:00f3)
};

// A USB identity: idVendor and idProduct of the device descriptor. Ordered by vendor, then product.
struct ProductId
{
    quint16 vendorId;
    quint16 productId;
};

inline bool operator==(const ProductId &a, const ProductId &b)
{
    return a.vendorId == b.vendorId && a.productId == b.productId;
}

inline bool operator<(const ProductId &a, const ProductId &b)
{
    return std::tie(a.vendorId, a.productId) < std::tie(b.vendorId, b.productId);
}

// One discovered capture device.
//
// The probes fill it, the scanner hands it to the user interface, and the update and configuration
// workers take a copy and find the device again by its addressing fields (see usbaccess.h). It
// crosses threads by value and is registered as the meta-type "DeviceDescription" by main().
class DeviceDescription
{
public:
    quint16 vendorId = 0;
    quint16 productId = 0;
    quint16 interfaceNumber = 0; // the interface that is claimed for work
    quint8 busNumber = 0;
    quint16 deviceAddress = 0; // with bit 15 set it matches any address: see AnyAddress
    quint8 portNumber = 0;
    quint32 mode = DeviceMode::Normal; // a DeviceMode
    QString productName;               // string descriptor iProduct
    QString serialNumber;              // string descriptor iSerialNumber, or "FFFFFFFF" without one
    QString versionString;             // string descriptor 3 in normal mode, else empty
    QString modeText;                  // translated label of a repair mode, empty in normal mode

    // A device to open directly instead of searching for it. When set, the record holds one libusb
    // reference on it. The scanner's records leave it null, so they never keep a device alive.
    libusb_device *device = nullptr;

    // The scan that found the device had to make a second pass, since on the first every recognised
    // device failed; it lets the soft-repair probe force a driver installation.
    bool secondPass = false;

    // Matches whatever address the device is given when it re-enumerates.
    static constexpr quint16 AnyAddress = 0xFFFF;

    DeviceDescription() = default;
    DeviceDescription(const DeviceDescription &other);
    DeviceDescription &operator=(const DeviceDescription &other);
    ~DeviceDescription();

    // Drops the reference to `device`, so that the record is searched for by its addressing fields.
    void forgetDevice();
};

Q_DECLARE_METATYPE(DeviceDescription)
