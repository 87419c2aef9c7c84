#pragma once

#include <libusb.h>

#include <QtGlobal>

#include <vector>

// A libusb for the fuzz targets: devices that accept everything, at no cost. It keeps no log; what
// it does keep is account of what was taken and not given back.
//
// Wrong use of libusb by the program (a closed handle, a transfer without a claim, a device that is
// no longer referenced) stops the run at once.

// One control transfer, as the program asked for it.
struct Transfer
{
    quint8 requestType;
    quint8 request;
    quint16 value;
    quint16 index;
    unsigned char *data; // the caller's, `length` bytes
    quint16 length;
    unsigned timeout; // milliseconds

    bool isIn() const { return (requestType & 0x80) != 0; }
    quint32 address() const { return value | quint32(index) << 16; }
};

// A device; libusb leaves the type open, so this is it. As it stands it accepts every request,
// answers each status poll with "ready", and has the memory of a boot loader, as far as a piece
// that was just written can be read back.
struct libusb_device // NOLINT(readability-identifier-naming): libusb's name
{
    libusb_device(quint16 vendor, quint16 product) : vendorId(vendor), productId(product) {}
    virtual ~libusb_device() = default;
    libusb_device(const libusb_device &) = delete;
    libusb_device &operator=(const libusb_device &) = delete;

    // Returns what libusb_control_transfer() returns.
    virtual int controlTransfer(const Transfer &transfer);
    // Returns what libusb_get_string_descriptor_ascii() returns.
    virtual int asciiString(quint8 index, unsigned char *text, int size);

    quint16 vendorId;
    quint16 productId;
    quint8 serialString = 2; // index of the descriptor; 0: none
    bool plugged = true;     // an unplugged device keeps working for whoever has it open

    int references = 0;
    int openHandles = 0;

private:
    quint32 pieceAddress = 0;
    std::vector<unsigned char> piece;
};

namespace bus {

constexpr quint8 Number = 1;
constexpr quint8 Port = 1;
constexpr quint8 Address = 1; // of every device: they are one device under different ids

// The devices that the bus has from now on. They stay the caller's.
void setDevices(std::vector<libusb_device *> devices);

// Stops the run unless every handle is closed, every claim released, every reference dropped and
// every list freed.
void requireNothingHeld();

} // namespace bus
