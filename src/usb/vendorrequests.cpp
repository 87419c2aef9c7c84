#include "vendorrequests.h"

#include <libusb.h>

namespace usb {

namespace {

constexpr quint8 s_vendorIn = quint8(LIBUSB_ENDPOINT_IN) | quint8(LIBUSB_REQUEST_TYPE_VENDOR) |
                              quint8(LIBUSB_RECIPIENT_DEVICE);
constexpr quint8 s_vendorOut = quint8(LIBUSB_ENDPOINT_OUT) | quint8(LIBUSB_REQUEST_TYPE_VENDOR) |
                               quint8(LIBUSB_RECIPIENT_DEVICE);
static_assert(s_vendorIn == 0xC0 && s_vendorOut == 0x40, "bmRequestType of the vendor requests");

} // namespace

int read_vendor(libusb_device_handle *handle, quint8 request, quint16 value, quint16 index,
                void *data, quint16 length, unsigned timeout)
{
    return libusb_control_transfer(handle, s_vendorIn, request, value, index,
                                   static_cast<unsigned char *>(data), length, timeout);
}

int write_vendor(libusb_device_handle *handle, quint8 request, quint16 value, quint16 index,
                 const void *data, quint16 length, unsigned timeout)
{
    // libusb takes one pointer type for both directions and only reads from it when sending.
    auto *bytes = const_cast<unsigned char *>(static_cast<const unsigned char *>(data));
    return libusb_control_transfer(handle, s_vendorOut, request, value, index, bytes, length,
                                   timeout);
}

} // namespace usb
