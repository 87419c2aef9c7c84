#pragma once

#include "scriptedlibusb.h"

#include "devicedescription.h"

// A record that describes the device where it stands now.
inline DeviceDescription recordOf(const libusb_device *device, quint32 mode = 0)
{
    DeviceDescription record{};
    record.vendorId = device->vendorId;
    record.productId = device->productId;
    record.busNumber = device->bus;
    record.deviceAddress = device->address;
    record.portNumber = device->port;
    record.mode = mode;
    return record;
}
