#pragma once

#include <QtGlobal>

struct libusb_device_handle;

// bRequest codes of the vendor requests on endpoint zero. IN requests have bmRequestType 0xC0, OUT
// requests 0x40. Unless said otherwise wValue and wIndex are 0, and "start" and "complete" carry no
// data.
enum VendorRequests : quint8 {
    // OUT and IN: boot loader memory; wValue is the low half of the address, wIndex the high one.
    MEMORY_ACCESS = 0xA0,
    INPUT_STATUS = 0xB2, // IN: one InputStatusInfo
    USER_MODE = 0xB3,    // IN and OUT: one UserMode; wIndex is its number, 0 to 2
    FPGA_START = 0xC1,   // OUT
    // OUT: 1 to 4096 bytes of bitstream; also the header and the CRC of the first generation.
    FPGA_WRITE = 0xC2,
    FPGA_COMPLETE = 0xC3,    // OUT
    FPGA_STATUS = 0xC4,      // IN: 1 byte, non-zero when ready
    FX3_START = 0xC5,        // OUT
    FX3_WRITE = 0xC6,        // OUT: 4 to 4096 bytes of microcode, a multiple of 4
    FX3_COMPLETE = 0xC7,     // OUT
    FX3_STATUS = 0xC8,       // IN: 1 byte, non-zero when ready; also the probe's ping
    EDID_START = 0xCF,       // OUT
    EDID_WRITE = 0xD2,       // OUT: all EDID blocks in one transfer
    EDID_COMPLETE = 0xD4,    // OUT
    GET_DEVICE_FLAGS = 0xE2, // IN: 1 byte
    SET_DEVICE_FLAGS = 0xE3, // OUT: 1 byte
};

namespace usb {

// Milliseconds that a device is given for one request. The device stores an EDID before it answers,
// which takes it longer than anything else.
constexpr unsigned RequestTimeout = 1000;
constexpr unsigned EdidRequestTimeout = 10000;

// One vendor request, device to host, into `data` (`length` bytes). Blocks for at most `timeout`
// milliseconds. Returns the number of bytes received, which may be fewer than asked for, or a
// negative libusb code. Call it on the thread that owns the handle.
int read_vendor(libusb_device_handle *handle, quint8 request, quint16 value, quint16 index,
                void *data, quint16 length, unsigned timeout = RequestTimeout);

// One vendor request, host to device, with `length` bytes of `data` (null and 0 for a bare
// command). Blocks for at most `timeout` milliseconds. Returns the number of bytes sent or a
// negative libusb code.
int write_vendor(libusb_device_handle *handle, quint8 request, quint16 value, quint16 index,
                 const void *data, quint16 length, unsigned timeout = RequestTimeout);

} // namespace usb
