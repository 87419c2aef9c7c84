#pragma once

#include "devicedescription.h"

#include <QString>

#include <memory>

struct libusb_device;
struct libusb_device_handle;

// Finding, opening and giving back capture devices, always in libusb's default context. Everything
// here may block for a while and is called on the worker threads. Progress is logged to std::clog,
// failures to std::cerr, one flushed line each.
namespace usb {

// Holds one libusb reference on a device.
class Device
{
public:
    Device() = default;
    explicit Device(libusb_device *referenced);
    Device(const Device &other);
    Device &operator=(Device other);
    ~Device();

    libusb_device *get() const { return device; }

private:
    libusb_device *device = nullptr;
};

// Tells whether libusb has a default context. Context says so after libusb_init(); without one
// (no USB bus, for example) libusb would crash on the first call, so DeviceList does not reach it.
// True until said otherwise. Any thread.
void set_context_ready(bool ready);

// The devices on the buses at one moment; frees the list, and with it the references that it holds,
// when it goes away.
class DeviceList
{
public:
    DeviceList();
    ~DeviceList();
    DeviceList(const DeviceList &) = delete;
    DeviceList &operator=(const DeviceList &) = delete;

    // The number of devices, or the negative libusb code of the failed listing (LIBUSB_ERROR_OTHER
    // without a context), in which case there is no list.
    long count() const { return deviceCount; }
    libusb_device *at(long index) const { return devices[index]; }

private:
    libusb_device **devices = nullptr;
    long deviceCount = 0;
};

// Fills vendorId, productId, busNumber, deviceAddress and portNumber and nothing else. Returns 0,
// or the negative libusb code of the descriptor read, in which case the record is unchanged.
int device_adressing_fill(Device device, DeviceDescription &description);

// Whether this is the device that the record describes: same ids, bus and port, and the same
// address unless the record's address has bit 15 set. A device that cannot be described matches
// nothing.
bool device_addressing_compare(Device device, const DeviceDescription &description);

// Finds the described device, opens it, detaches a kernel driver and claims the interface. Returns
// null on failure. Give the handle back with deinit_device().
//
// After a failed claim the handle stays open for a while: the next call on the same thread closes
// it before anything else, and so does close_unclaimed_device().
libusb_device_handle *init_device(DeviceDescription &description);

// Asks for the kernel driver to be attached again, then releases the interface, then closes the
// handle, in this order. On Linux the first is refused while the interface is claimed, so that a
// driver that was detached stays away until the device is plugged in again. Does nothing with a
// null handle.
void deinit_device(libusb_device_handle *handle, const DeviceDescription &description);

// A claimed device that gives itself back, by the record that it is to be given back with.
struct GiveBack
{
    DeviceDescription description;

    void operator()(libusb_device_handle *handle) const { deinit_device(handle, description); }
};
using ClaimedDevice = std::unique_ptr<libusb_device_handle, GiveBack>;

// As init_device(); null on failure.
ClaimedDevice claim_device(DeviceDescription &description);

// Closes what a failed claim has left open on the calling thread, if anything. A worker does so in
// its destructor: when a thread-local object is destroyed, libusb may be gone already.
void close_unclaimed_device();

// The symbolic name (libusb_error_name) or the sentence (libusb_strerror) for a libusb code; empty
// when libusb has none.
QString error_name(int code);
QString error_sentence(int code);

} // namespace usb
