#include "acceptingusb.h"

#include "fuzzing.h"

#include <algorithm>
#include <atomic>
#include <cstring>

struct libusb_device_handle // NOLINT(readability-identifier-naming): libusb's name
{
    libusb_device *device;
    bool claimed = false;
};

namespace {

constexpr quint8 s_memoryAccess = 0xA0;
constexpr quint8 s_vendorIn = 0xC0;
constexpr quint8 s_vendorOut = 0x40;

std::vector<libusb_device *> s_devices;
std::atomic_int s_lists{0};

// Touches every byte, so that AddressSanitizer sees a buffer that is shorter than was said.
void readAll(const unsigned char *data, int length)
{
    volatile unsigned char sink = 0;
    for (int i = 0; i < length; ++i) {
        sink = data[i];
    }
    static_cast<void>(sink);
}

} // namespace

int libusb_device::controlTransfer(const Transfer &transfer)
{
    if (!transfer.isIn()) {
        readAll(transfer.data, transfer.length);
        if (transfer.request == s_memoryAccess) {
            pieceAddress = transfer.address();
            piece.assign(transfer.data, transfer.data + transfer.length);
        }
        return transfer.length;
    }
    std::memset(transfer.data, 1, transfer.length);
    if (transfer.request == s_memoryAccess && transfer.address() == pieceAddress) {
        const auto known = std::min(piece.size(), std::size_t(transfer.length));
        std::memcpy(transfer.data, piece.data(), known);
    }
    return transfer.length;
}

int libusb_device::asciiString(quint8, unsigned char *text, int size)
{
    const char name[] = "Grabber";
    const int length = std::min(size, int(sizeof(name)) - 1);
    std::memcpy(text, name, std::size_t(length));
    return length;
}

void bus::setDevices(std::vector<libusb_device *> devices)
{
    s_devices = std::move(devices);
}

void bus::requireNothingHeld()
{
    require(s_lists == 0, "a device list was not freed");
    for (const libusb_device *device : s_devices) {
        require(device->openHandles == 0, "a device handle was not closed");
        require(device->references == 0, "a device reference was not given back");
    }
}

// ---- libusb's functions, as far as the program calls them

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context *context, libusb_device ***list)
{
    require(context == nullptr, "only the default context is in use");
    auto **devices = new libusb_device *[s_devices.size() + 1];
    ssize_t count = 0;
    for (libusb_device *device : s_devices) {
        if (device->plugged) {
            devices[count++] = libusb_ref_device(device);
        }
    }
    devices[count] = nullptr;
    *list = devices;
    ++s_lists;
    return count;
}

void LIBUSB_CALL libusb_free_device_list(libusb_device **list, int unrefDevices)
{
    for (libusb_device **at = list; unrefDevices && *at; ++at) {
        libusb_unref_device(*at);
    }
    delete[] list;
    --s_lists;
}

libusb_device *LIBUSB_CALL libusb_ref_device(libusb_device *device)
{
    ++device->references;
    return device;
}

void LIBUSB_CALL libusb_unref_device(libusb_device *device)
{
    require(device->references > 0, "a device reference was given back twice");
    --device->references;
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device *device,
                                             libusb_device_descriptor *descriptor)
{
    *descriptor = {};
    descriptor->idVendor = device->vendorId;
    descriptor->idProduct = device->productId;
    descriptor->iProduct = 1;
    descriptor->iSerialNumber = device->serialString;
    return 0;
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device *)
{
    return bus::Number;
}

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device *)
{
    return bus::Port;
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device *)
{
    return bus::Address;
}

int LIBUSB_CALL libusb_open(libusb_device *device, libusb_device_handle **handle)
{
    ++device->openHandles;
    *handle = new libusb_device_handle{libusb_ref_device(device)};
    return 0;
}

void LIBUSB_CALL libusb_close(libusb_device_handle *handle)
{
    require(!handle->claimed, "the interface was not released");
    --handle->device->openHandles;
    libusb_unref_device(handle->device);
    delete handle;
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle *, int)
{
    return 0;
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle *, int)
{
    return 0;
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle *, int)
{
    return 0;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle *handle, int)
{
    handle->claimed = true;
    return 0;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle *handle, int)
{
    require(handle->claimed, "an interface was released that was not claimed");
    handle->claimed = false;
    return 0;
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle *handle, uint8_t requestType,
                                        uint8_t request, uint16_t value, uint16_t index,
                                        unsigned char *data, uint16_t length, unsigned timeout)
{
    require(handle->claimed, "a transfer without a claim");
    require(requestType == s_vendorIn || requestType == s_vendorOut, "not a vendor request");
    require(data || length == 0, "bytes without a buffer");
    require(timeout == 1000 || timeout == 10000, "an unknown time limit");
    return handle->device->controlTransfer(
        {requestType, request, value, index, data, length, timeout});
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle *handle, uint8_t index,
                                                   unsigned char *text, int size)
{
    require(size > 0, "a string was asked for without room for it");
    return handle->device->asciiString(index, text, size);
}

const char *LIBUSB_CALL libusb_error_name(int)
{
    return "LIBUSB_ERROR_IO";
}

const char *LIBUSB_CALL libusb_strerror(int)
{
    return "Input/Output Error";
}
