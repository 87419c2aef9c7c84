#include "platforminstaller.h"

// Linux and macOS let libusb open a device without a driver of its own: nothing to install.

bool usb::has_driver_installer()
{
    return false;
}

int usb::install_driver(unsigned short, unsigned short, unsigned char, bool, char *)
{
    return InstallFailed;
}
