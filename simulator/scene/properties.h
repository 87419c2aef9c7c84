#pragma once

#include "deviceconfig.h"
#include "words.h"

namespace sim {

// What a changed property concerns beyond the configuration itself.
enum class PropertyKind {
    Identity, // fixed once the device exists
    Plain,    // looked up whenever it is needed
    Memory,   // contents of a memory
    Setting,  // flags and user modes
    Ram,      // bad addresses
    Access,   // rights on the device node
};

struct PropertyContext
{
    std::string directory; // file names are relative to it
    uint32_t nowMs = 0;    // added to the times of "input at"
};

// Whether a device can have this property at all.
bool isProperty(const std::string &word);
PropertyKind propertyKind(const std::string &word);

// Reads one property (its word first, up to the end of the line) into a configuration. Throws
// SceneError.
void parseProperty(WordReader &words, DeviceConfig &config, const PropertyContext &context);

} // namespace sim
