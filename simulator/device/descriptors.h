#pragma once

#include "bytes.h"
#include "product.h"

#include <string>

namespace sim {

enum StringIndex : uint8_t { ManufacturerString = 1, ProductString, VersionString, SerialString };

// Which strings the device descriptor names.
struct DescribedStrings
{
    bool product = true;
    bool serial = true;
};

// The device descriptor (18 bytes) of a USB 3.0 device with one configuration.
Bytes deviceDescriptor(const UsbId &id, const DescribedStrings &strings);
// The configuration descriptor with its vendor-specific interfaces and no endpoint but endpoint 0.
Bytes configurationDescriptor(unsigned interfaces = 1);
// String descriptor 0: US English.
Bytes languageDescriptor();
// A string descriptor for UTF-8 text, cut at the 126 UTF-16 units that its length byte allows.
Bytes stringDescriptor(const std::string &text);

} // namespace sim
