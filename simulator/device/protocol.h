#pragma once

#include <cstdint>
#include <string>

// What goes over the wire, as the device's side knows it. The program under test has its own copy
// of these facts; they are repeated here on purpose, so that a mistake in one of the two shows.
namespace sim {

enum Request : uint8_t {
    MemoryAccess = 0xA0,
    InputStatus = 0xB2,
    UserMode = 0xB3,
    FpgaStart = 0xC1,
    FpgaWrite = 0xC2,
    FpgaComplete = 0xC3,
    FpgaStatus = 0xC4,
    Fx3Start = 0xC5,
    Fx3Write = 0xC6,
    Fx3Complete = 0xC7,
    Fx3Status = 0xC8,
    EdidStart = 0xCF,
    EdidWrite = 0xD2,
    EdidComplete = 0xD4,
    GetDeviceFlags = 0xE2,
    SetDeviceFlags = 0xE3,
};

enum class Direction { Out, In };

constexpr uint8_t VendorIn = 0xC0;   // bmRequestType: vendor request to the device, IN
constexpr uint8_t VendorOut = 0x40;  // the same, OUT
constexpr uint16_t BlockSize = 4096; // largest block of an image
constexpr uint16_t InputStatusSize = 29;
constexpr uint16_t UserModeSize = 5;
constexpr unsigned UserModeCount = 3;

// The setup stage of a control transfer, in host byte order.
struct Setup
{
    uint8_t requestType = 0;
    uint8_t request = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;

    Direction direction() const { return (requestType & 0x80) ? Direction::In : Direction::Out; }
    bool isVendor() const { return (requestType & 0x60) == 0x40; }
    bool isStandard() const { return (requestType & 0x60) == 0; }
};

// One line of the protocol's table.
struct RequestRule
{
    const char *name;
    Request code;
    Direction direction;
    bool addressed;     // wValue and wIndex hold an address
    uint16_t lastIndex; // otherwise wValue is 0 and wIndex is at most this
    uint16_t minLength;
    uint16_t maxLength;
    uint16_t multipleOf; // of wLength
};

// The rule for a code and direction, or null.
const RequestRule *findRule(uint8_t code, Direction direction);
// The name of a vendor request, or null for a code that no rule has.
const char *requestName(uint8_t code);
// The code with that name, or -1.
int requestCode(const std::string &name);

// What in this setup differs from the table; empty when nothing does.
std::string ruleViolation(const Setup &setup);

} // namespace sim
