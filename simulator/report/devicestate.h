#pragma once

#include "capturedevice.h"

#include <map>
#include <string>

namespace sim {

// What a device itself does not know of its place on the bus.
struct Presence
{
    bool plugged = false;
    unsigned bus = 0;
    unsigned port = 0;
    unsigned address = 0;
    unsigned transfers = 0;
    size_t openFiles = 0;
    std::map<std::string, unsigned> calls; // ioctls of all programs so far, by name
    unsigned lateMs = 0; // the most by which a delayed answer was fetched too late
};

// state.json, in one line.
std::string stateJson(const CaptureDevice &device, const Presence &presence);

// Writes fx3.bin, fpga.bin, edid.bin and state.json. Throws std::runtime_error.
void writeMemoryFiles(const CaptureDevice &device, const std::string &state,
                      const std::string &directory);

} // namespace sim
