#pragma once

#include "proberesult.h"

struct libusb_device;
class DeviceDescription;

// The examination of one recognised device. Each probe opens the device, fills the record and
// closes the device again on every path; it logs through qDebug and emits nothing.
// `description.secondPass` is read, every other field is only written. A device that cannot be
// opened may get a driver installed, which takes as long as it takes. Worker threads only.

// A device that runs product firmware: reads its strings and pings it.
ProbeResult probeVelk3(libusb_device *device, DeviceDescription &description);
ProbeResult probeSorn3(libusb_device *device, DeviceDescription &description);

// A device that shows the maker's boot loader (soft) or the bare FX3's (hard): reads its strings
// only, since a boot loader answers no vendor request but memory access.
ProbeResult probeSoft(libusb_device *device, DeviceDescription &description);
ProbeResult probeHard(libusb_device *device, DeviceDescription &description);
