#pragma once

namespace usb {

// What install_driver() comes to.
enum InstallResult {
    DriverReady = 0,
    InstallFailed = -1, // for any reason but the next
    InstallNeedsAdmin = -2,
};

// Whether this platform has a driver installer at all (Windows does). Only there can the user do
// something about a failure of install_driver(); elsewhere it is the normal answer.
bool has_driver_installer();

// Installs WinUSB for every connected device with these ids.
//
// interfaceNumber chooses the interface of a composite device and is ignored for any other.
// deviceDescription (UTF-8) names the device in the Device Manager; null takes the name by which
// Windows lists it now. Returns an InstallResult; a platform without an installer and Windows
// without libwdi.dll are failures. Progress is printed to standard output. Blocks the calling
// (worker) thread, for minutes at worst.
int install_driver(unsigned short vendorId, unsigned short productId, unsigned char interfaceNumber,
                   bool composite, char *deviceDescription);

} // namespace usb
