#pragma once

#include "devicedescription.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QStringList>

#include <libusb.h>

#include <cstdio>

// A measurement of the program's own modules: `run` is called with the words of the command line
// when libusb is ready, and what it returns is the exit code.
template<typename Run> int runMeasurement(int argc, char **argv, const char *name, const Run &run)
{
    QCoreApplication application(argc, argv);
    // Makes Qt read its logging rules, which it does at the first line that is logged. In the
    // program that is while the application object is made, long before a scan.
    QLoggingCategory::defaultCategory()->isDebugEnabled();
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    if (libusb_init(nullptr) < 0) {
        std::fprintf(stderr, "%s: no libusb\n", name);
        return 1;
    }
    const int result = run(QCoreApplication::arguments());
    libusb_exit(nullptr);
    return result;
}
