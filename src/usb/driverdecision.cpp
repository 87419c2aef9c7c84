#include "driverdecision.h"

#include "platforminstaller.h"

#include <QDebug>

#include <libusb.h>

ProbeResult driver_install(int openResult, unsigned short vendorId, unsigned short productId,
                           bool composite, bool force)
{
    if (openResult >= 0) {
        return Found;
    }

    // On Windows libusb says NOT_SUPPORTED of a device whose driver it cannot use. To replace that
    // driver is the last resort, so it takes force: a scan in which every recognised device failed.
    if (openResult == LIBUSB_ERROR_NOT_SUPPORTED && !force) {
        return Found;
    }

    qDebug() << "Can't open device, try to install WinUSB driver";
    switch (usb::install_driver(vendorId, productId, 0, composite, nullptr)) {
    case usb::DriverReady:
        return DriverInstalled;
    case usb::InstallNeedsAdmin:
        qDebug() << "access";
        return AccessDenied;
    default:
        qDebug() << "Error during driver installation";
        return Failed;
    }
}
