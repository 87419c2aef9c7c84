#pragma once

#include <cstdint>
#include <string>

namespace sim {

struct UsbId
{
    uint16_t vendor = 0;
    uint16_t product = 0;
    bool operator==(const UsbId &other) const
    {
        return vendor == other.vendor && product == other.product;
    }
};

// "e5c1:3601"
std::string toText(const UsbId &id);

enum class Mode {
    Normal,  // the product's firmware runs
    Soft,    // boot loader, identity ...0
    SoftF,   // boot loader, identity ...F
    Hard,    // boot loader of the bare controller
    Sandbox, // sandbox firmware runs from RAM, identity ...F
    Dead,    // started code that was not the sandbox; gone until power is cycled
};

const char *toText(Mode mode);
bool isBootLoader(Mode mode);

struct Product
{
    const char *name;
    UsbId runningId;        // unless the scene says otherwise; 0:0 = the scene must
    const char *stringText; // product string unless the scene says otherwise
    unsigned fpgaVersion;   // how the bitstream comes: 0 with header and checksums, 1 raw
    bool captures;          // false: a plain USB device that knows no vendor request
    bool hasEdid;
};

// The product of that name, or null.
const Product *findProduct(const std::string &name);

// The identity that a device with this running identity shows in a mode.
UsbId identityIn(Mode mode, const UsbId &runningId);

} // namespace sim
