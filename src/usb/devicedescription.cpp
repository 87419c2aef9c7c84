#include "devicedescription.h"

#include <libusb.h>

#include <utility>

DeviceDescription::DeviceDescription(const DeviceDescription &other)
    : vendorId(other.vendorId),
      productId(other.productId),
      interfaceNumber(other.interfaceNumber),
      busNumber(other.busNumber),
      deviceAddress(other.deviceAddress),
      portNumber(other.portNumber),
      mode(other.mode),
      productName(other.productName),
      serialNumber(other.serialNumber),
      versionString(other.versionString),
      modeText(other.modeText),
      device(other.device ? libusb_ref_device(other.device) : nullptr),
      secondPass(other.secondPass)
{
}

DeviceDescription &DeviceDescription::operator=(const DeviceDescription &other)
{
    if (this == &other) {
        return *this;
    }
    // The new reference is taken before the old one is dropped: both may be the same device.
    libusb_device *taken = other.device ? libusb_ref_device(other.device) : nullptr;
    forgetDevice();
    device = taken;

    vendorId = other.vendorId;
    productId = other.productId;
    interfaceNumber = other.interfaceNumber;
    busNumber = other.busNumber;
    deviceAddress = other.deviceAddress;
    portNumber = other.portNumber;
    mode = other.mode;
    productName = other.productName;
    serialNumber = other.serialNumber;
    versionString = other.versionString;
    modeText = other.modeText;
    secondPass = other.secondPass;
    return *this;
}

DeviceDescription::~DeviceDescription()
{
    forgetDevice();
}

void DeviceDescription::forgetDevice()
{
    if (libusb_device *dropped = std::exchange(device, nullptr)) {
        libusb_unref_device(dropped);
    }
}
