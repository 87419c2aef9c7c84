// The string descriptors of a device, through the probes and into its row of the list. The device
// lies about how long they are.
//
// Input: a byte that chooses the probe and whether there is a serial number; then for product,
// serial number and version: the answered length (signed, little-endian, 16 bits), how many bytes
// the device really writes (8 bits), and these bytes.

#include "acceptingusb.h"
#include "devicedescription.h"
#include "displaytexts.h"
#include "fuzzing.h"
#include "probes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr int s_longestString = 127;
constexpr quint8 s_productIndex = 1;
constexpr quint8 s_serialIndex = 2;
constexpr quint8 s_versionIndex = 3;

class Input
{
public:
    Input(const std::uint8_t *data, std::size_t size) : at(data), left(size) {}

    std::uint8_t byte() { return left > 0 ? (--left, *at++) : 0; }
    std::string bytes(std::size_t count)
    {
        count = std::min(count, left);
        const std::string taken(reinterpret_cast<const char *>(at), count);
        at += count;
        left -= count;
        return taken;
    }

private:
    const std::uint8_t *at;
    std::size_t left;
};

struct Answer
{
    int length = 0;
    std::string written;

    explicit Answer(Input &input)
    {
        const int low = input.byte();
        length = std::int16_t(low | input.byte() << 8);
        written = input.bytes(input.byte());
    }

    // What a person is to read.
    QString text(const char *fallback) const
    {
        if (length < 0) {
            return QString::fromLatin1(fallback);
        }
        std::string known = written.substr(0, std::size_t(std::min(length, s_longestString)));
        known = known.substr(0, known.find('\0'));
        return QString::fromLatin1(known.data(), int(known.size()));
    }
};

struct Liar : libusb_device
{
    explicit Liar(Input &input)
        : libusb_device(0xE5C1, 0x3601), product(input), serial(input), version(input)
    {
    }

    int asciiString(quint8 index, unsigned char *text, int size) override
    {
        require(index == s_productIndex || index == s_serialIndex || index == s_versionIndex,
                "only these strings are read");
        const Answer &answer = index == s_productIndex  ? product
                               : index == s_serialIndex ? serial
                                                        : version;
        std::memset(text, 0, std::size_t(size)); // all of the room that was promised is there
        std::memcpy(text, answer.written.data(),
                    std::min(answer.written.size(), std::size_t(size)));
        return answer.length;
    }

    Answer product;
    Answer serial;
    Answer version;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing({});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t choice = input.byte();
    Liar device(input);
    device.serialString = (choice & 4) ? 0 : s_serialIndex;
    bus::setDevices({&device});

    struct Kind
    {
        ProbeResult (*probe)(libusb_device *, DeviceDescription &);
        bool readsVersion;
        const char *mode;
    };
    const Kind kinds[] = {{probeVelk3, true, ""},
                          {probeSorn3, true, ""},
                          {probeSoft, false, " (Soft Repair Mode)"},
                          {probeHard, false, " (Hard Repair Mode)"}};
    const Kind &kind = kinds[choice & 3];

    DeviceDescription description;
    require(kind.probe(&device, description) == ProbeResult::Found,
            "a device that answers is found");
    const QString serial = device.serialString != 0 ? device.serial.text("FFFFFFFF") : "FFFFFFFF";
    const QString version = kind.readsVersion ? device.version.text("0.0.0") : QString();
    const QString row = device.product.text("") + " (" + serial + ", " + version + ") [e5c1:3601]";
    require(deviceRowText(description) == row + kind.mode, "the row shows the strings as they are");
    bus::requireNothingHeld();
    return 0;
}
