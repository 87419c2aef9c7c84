#include "usbaccess.h"

#include <libusb.h>

#include <atomic>
#include <cstring>
#include <iostream>
#include <utility>

namespace usb {

namespace {

std::atomic_bool s_contextReady{true};

// What the last failed claim of this thread has left open.
thread_local libusb_device_handle *s_unclaimed = nullptr;

QString fromAscii(const char *text)
{
    return QString::fromLatin1(text, text ? int(std::strlen(text)) : -1);
}

// For the log: a null pointer would put the stream into its error state and silence it for good.
const char *nameForLog(long code)
{
    const char *name = libusb_error_name(int(code));
    return name ? name : "";
}

// What a search over the bus came to. When matching devices were found but none could be opened,
// `handle` is null and `device` is the last of them.
struct SearchResult
{
    Device device;
    libusb_device_handle *handle = nullptr;
};

SearchResult search(const DeviceList &list, const DeviceDescription &description)
{
    SearchResult result;
    for (long id = 0; id < list.count(); ++id) {
        const Device candidate(list.at(id));
        if (!device_addressing_compare(candidate, description)) {
            continue;
        }
        result.device = candidate;
        const int code = libusb_open(candidate.get(), &result.handle);
        if (code == 0) {
            std::clog << "Device found: id=" << id << std::endl;
            return result;
        }
        result.handle = nullptr;
        std::cerr << "Can't open device: id=" << id << ", code=" << code << ", " << nameForLog(code)
                  << ". Continue search..." << std::endl;
    }
    return result;
}

SearchResult searchBus(const DeviceDescription &description)
{
    std::clog << "Open device by adressing info" << std::endl;
    const DeviceList list;
    if (list.count() < 0) {
        std::cerr << "Can't get UBS device list: " << nameForLog(list.count()) << std::endl;
        return {};
    }
    std::clog << "Found " << list.count() << " devices. Search needed..." << std::endl;
    SearchResult result = search(list, description);
    if (!result.device.get()) {
        std::cerr << "No device" << std::endl;
    }
    return result;
}

// Returns whether the interface is ours now.
bool claimInterface(libusb_device_handle *handle, int interfaceNumber)
{
    if (libusb_kernel_driver_active(handle, interfaceNumber) != 0) {
        libusb_detach_kernel_driver(handle, interfaceNumber);
    }
    const int code = libusb_claim_interface(handle, interfaceNumber);
    if (code != 0) {
        std::cerr << "Error claim usb interface: " << code << std::endl;
    }
    return code == 0;
}

} // namespace

Device::Device(libusb_device *referenced)
    : device(referenced ? libusb_ref_device(referenced) : nullptr)
{
}

Device::Device(const Device &other) : Device(other.device)
{
}

Device &Device::operator=(Device other)
{
    std::swap(device, other.device);
    return *this;
}

Device::~Device()
{
    if (device) {
        libusb_unref_device(device);
    }
}

void set_context_ready(bool ready)
{
    s_contextReady = ready;
}

DeviceList::DeviceList()
    : deviceCount(s_contextReady ? long(libusb_get_device_list(nullptr, &devices))
                                 : long(LIBUSB_ERROR_OTHER))
{
}

DeviceList::~DeviceList()
{
    if (deviceCount >= 0) {
        libusb_free_device_list(devices, 1);
    }
}

int device_adressing_fill(Device device, DeviceDescription &description)
{
    libusb_device_descriptor descriptor{};
    const int result = libusb_get_device_descriptor(device.get(), &descriptor);
    if (result < 0) {
        return result;
    }
    description.vendorId = descriptor.idVendor;
    description.productId = descriptor.idProduct;
    description.busNumber = libusb_get_bus_number(device.get());
    description.deviceAddress = libusb_get_device_address(device.get());
    description.portNumber = libusb_get_port_number(device.get());
    return result;
}

bool device_addressing_compare(Device device, const DeviceDescription &description)
{
    constexpr quint16 wildcardBit = 0x8000;
    DeviceDescription live;
    if (device_adressing_fill(device, live) < 0) {
        return false;
    }
    return live.vendorId == description.vendorId && live.productId == description.productId &&
           live.busNumber == description.busNumber && live.portNumber == description.portNumber &&
           (live.deviceAddress == description.deviceAddress ||
            (description.deviceAddress & wildcardBit) != 0);
}

libusb_device_handle *init_device(DeviceDescription &description)
{
    close_unclaimed_device();
    SearchResult found;
    if (description.device) {
        std::clog << "Open device by reference" << std::endl;
        found.device = Device(description.device);
    } else {
        found = searchBus(description);
        if (!found.device.get()) {
            return nullptr;
        }
    }

    std::clog << "Device found. Opening..." << std::endl;
    // A device that refused every attempt of the search gets one more.
    if (!found.handle && libusb_open(found.device.get(), &found.handle) != 0) {
        std::cerr << "Can't open device" << std::endl;
        return nullptr;
    }
    std::clog << "Device opened." << std::endl;

    if (!claimInterface(found.handle, description.interfaceNumber)) {
        s_unclaimed = found.handle;
        return nullptr;
    }
    return found.handle;
}

void deinit_device(libusb_device_handle *handle, const DeviceDescription &description)
{
    if (!handle) {
        return;
    }
    libusb_attach_kernel_driver(handle, description.interfaceNumber);
    libusb_release_interface(handle, description.interfaceNumber);
    libusb_close(handle);
}

ClaimedDevice claim_device(DeviceDescription &description)
{
    if (libusb_device_handle *handle = init_device(description)) {
        return {handle, GiveBack{description}};
    }
    return {}; // with no record in it that would hold a device
}

void close_unclaimed_device()
{
    if (libusb_device_handle *left = std::exchange(s_unclaimed, nullptr)) {
        libusb_close(left);
    }
}

QString error_name(int code)
{
    return fromAscii(libusb_error_name(code));
}

QString error_sentence(int code)
{
    return fromAscii(libusb_strerror(code));
}

} // namespace usb
