#pragma once

#include "devicedescription.h"

#include <QByteArray>
#include <QStringList>

#include <cstddef>
#include <vector>

// What the user was told during one update.
struct UpdateOutcome
{
    QStringList errors;
    int lastProgress = -1; // percent; -1 when there was none

    bool succeeded() const { return errors.isEmpty() && lastProgress == 100; }
};

// These texts, and those with which an update refuses a package, or an image of one.
std::vector<const char *> withPackageTexts(std::vector<const char *> texts);

// Updates the described device from the package, on the update task's own thread, as the dialog
// does. Stops the run unless the update ends with exactly one complete() and with everything that
// it took from libusb given back, and unless each error text is a known one. Main thread only.
UpdateOutcome runUpdate(const DeviceDescription &device, const void *package, std::size_t size);
UpdateOutcome runUpdate(const DeviceDescription &device, const QByteArray &package);

// A record of the device with these ids on the accepting bus.
DeviceDescription describeDevice(quint16 vendorId, quint16 productId, DeviceMode mode);
