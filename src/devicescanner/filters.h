#pragma once

#include "devicedescription.h"
#include "proberesult.h"

#include <array>

struct libusb_device;

using Probe = ProbeResult (*)(libusb_device *device, DeviceDescription &description);

// One recognised product.
struct Filter
{
    ProductId id;
    bool reserved; // nothing reads it
    Probe probe;   // null: recognised, but not examined
};

// The recognised products. The scanner takes the first entry whose ids equal the device's.
//
// Within each group of sixteen product ids, ...1 is the running product, ...0 and ...F are its
// repair ids. packaging/linux/70-capso-config.rules lists the same ids.
using Filters = std::array<Filter, 14>;
extern const Filters s_filters;
