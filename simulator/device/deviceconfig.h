#pragma once

#include "fx3image.h"
#include "inputtimeline.h"
#include "product.h"
#include "protocol.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// A string descriptor: as the product has it, absent, or given.
struct StringSetting
{
    enum Kind { Default, None, Text };
    Kind kind = Default;
    std::string text;
};

// One user mode as it travels: 5 bytes.
struct UserModeRecord
{
    uint16_t width = 0;
    uint16_t height = 0;
    uint8_t disabled = 0;
};

// How a device comes back after the start of the sandbox.
struct ReturnRule
{
    bool never = false;
    unsigned afterMs = 500;
    std::optional<UsbId> id;
    std::optional<unsigned> address;
    bool denied = false;
    std::optional<unsigned> bus;   // unless its own
    std::optional<unsigned> speed; // unless its own
    // So long after it has come back it leaves again, and comes back at once at another address.
    std::optional<unsigned> againMs;
};

// What a scene says of a device.
struct DeviceConfig
{
    std::string name;
    const Product *product = nullptr;
    UsbId runningId;
    Mode mode = Mode::Normal;
    unsigned bus = 1;
    std::string hubs; // the ports of the hubs on the way, "2.1"; empty: on the root hub
    std::optional<unsigned> port;
    std::optional<unsigned> address;
    unsigned speed = 5000; // of its link, in Mbit/s
    StringSetting productString;
    StringSetting serial;
    StringSetting version;
    unsigned interfaces = 1;
    std::map<unsigned, std::string> kernelDrivers; // by interface; those without one are not in it
    bool accessDenied = false;
    unsigned busyPolls = 3;
    unsigned latencyMs = 0;
    uint8_t flags = 0;
    std::array<UserModeRecord, UserModeCount> userModes{};
    InputTimeline input;
    std::optional<Bytes> microcode;
    std::optional<Bytes> bitstream;
    std::optional<Bytes> edid;
    std::optional<BootImage> sandboxImage;
    ReturnRule comeback;
    std::vector<uint32_t> badRam;
    std::optional<unsigned> powerCycleWhenIdleMs;
};

} // namespace sim
