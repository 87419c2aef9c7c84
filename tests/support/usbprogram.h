#pragma once

#include "devicedescription.h"
#include "qtcompat.h"
#include "usbaccess.h"

#include <libusb.h>

// Runs a program on the modules as src/main.cpp does: libusb's default context comes first and goes
// last, and the application object lives in between. `run` is called with that object there; what
// it returns is the exit code.
template<typename Application, typename Run>
int runUsbProgram(int argc, char **argv, const Run &run)
{
    const bool ready = libusb_init(nullptr) >= 0;
    usb::set_context_ready(ready);
    int result = 0;
    {
        const Application application(argc, argv);
        qRegisterMetaType<DeviceDescription>("DeviceDescription");
        qtcompat::register_alias<unsigned char>("uint8_t");
        result = run();
    }
    if (ready) {
        libusb_exit(nullptr);
    }
    return result;
}
