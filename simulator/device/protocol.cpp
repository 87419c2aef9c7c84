#include "protocol.h"

#include <cstdio>

namespace sim {
namespace {

constexpr Direction s_out = Direction::Out;
constexpr Direction s_in = Direction::In;

constexpr RequestRule s_rules[] = {
    // name, code, direction, addressed, last index, length from, to, multiple of
    {"MEMORY_ACCESS", MemoryAccess, s_out, true, 0, 0, BlockSize, 1},
    {"MEMORY_ACCESS", MemoryAccess, s_in, true, 0, 1, BlockSize, 1},
    {"INPUT_STATUS", InputStatus, s_in, false, 0, InputStatusSize, InputStatusSize, 1},
    {"USER_MODE", UserMode, s_in, false, UserModeCount - 1, UserModeSize, UserModeSize, 1},
    {"USER_MODE", UserMode, s_out, false, UserModeCount - 1, UserModeSize, UserModeSize, 1},
    {"FPGA_START", FpgaStart, s_out, false, 0, 0, 0, 1},
    {"FPGA_WRITE", FpgaWrite, s_out, false, 0, 1, BlockSize, 1},
    {"FPGA_COMPLETE", FpgaComplete, s_out, false, 0, 0, 0, 1},
    {"FPGA_STATUS", FpgaStatus, s_in, false, 0, 1, 1, 1},
    {"FX3_START", Fx3Start, s_out, false, 0, 0, 0, 1},
    {"FX3_WRITE", Fx3Write, s_out, false, 0, 4, BlockSize, 4},
    {"FX3_COMPLETE", Fx3Complete, s_out, false, 0, 0, 0, 1},
    {"FX3_STATUS", Fx3Status, s_in, false, 0, 1, 1, 1},
    {"EDID_START", EdidStart, s_out, false, 0, 0, 0, 1},
    // The length of an EDID is its low 16 bits, so one of 65536 bytes arrives as 0.
    {"EDID_WRITE", EdidWrite, s_out, false, 0, 0, 0xFFFF, 1},
    {"EDID_COMPLETE", EdidComplete, s_out, false, 0, 0, 0, 1},
    {"GET_DEVICE_FLAGS", GetDeviceFlags, s_in, false, 0, 1, 1, 1},
    {"SET_DEVICE_FLAGS", SetDeviceFlags, s_out, false, 0, 1, 1, 1},
};

std::string describe(const char *what, unsigned value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s is 0x%x", what, value);
    return text;
}

} // namespace

const RequestRule *findRule(uint8_t code, Direction direction)
{
    for (const RequestRule &rule : s_rules) {
        if (rule.code == code && rule.direction == direction) {
            return &rule;
        }
    }
    return nullptr;
}

const char *requestName(uint8_t code)
{
    for (const RequestRule &rule : s_rules) {
        if (rule.code == code) {
            return rule.name;
        }
    }
    return nullptr;
}

int requestCode(const std::string &name)
{
    for (const RequestRule &rule : s_rules) {
        if (name == rule.name) {
            return rule.code;
        }
    }
    return -1;
}

std::string ruleViolation(const Setup &setup)
{
    if (setup.requestType != VendorIn && setup.requestType != VendorOut) {
        return describe("bmRequestType", setup.requestType);
    }
    if (!requestName(setup.request)) {
        return describe("unknown request: bRequest", setup.request);
    }
    const std::string name = requestName(setup.request);
    const RequestRule *rule = findRule(setup.request, setup.direction());
    if (!rule) {
        return name + ": wrong direction";
    }
    if (!rule->addressed && setup.value != 0) {
        return name + ": " + describe("wValue", setup.value);
    }
    if (!rule->addressed && setup.index > rule->lastIndex) {
        return name + ": " + describe("wIndex", setup.index);
    }
    if (setup.length < rule->minLength || setup.length > rule->maxLength ||
        setup.length % rule->multipleOf != 0) {
        return name + ": " + describe("wLength", setup.length);
    }
    return {};
}

} // namespace sim
