#pragma once

#include "bootram.h"
#include "deviceconfig.h"
#include "edidmemory.h"
#include "imagememory.h"

#include <functional>
#include <memory>

namespace sim {

enum class Status { Ok, Stall, Silence, NoDevice, Protocol, Overflow };

// How a control transfer ends. actual counts bytes of the data stage, in either direction.
struct Outcome
{
    Status status = Status::Ok;
    Bytes data; // IN only
    size_t actual = 0;

    static Outcome answer(Bytes bytes);
    static Outcome taken(size_t size);
    static Outcome stall();
};

// A capture device as seen from endpoint 0: modes, memories, settings. Knows nothing of buses and
// files. Used from one thread.
class CaptureDevice
{
public:
    explicit CaptureDevice(DeviceConfig config);

    // One control transfer. out is the data of an OUT transfer as it came through, which a fault
    // may have made shorter than setup.length. claimed: whether the sender holds interface 0.
    // nowMs: time for the input.
    Outcome control(const Setup &setup, const Bytes &out, bool claimed, uint64_t nowMs);

    // Whether code was started since the last call: the device leaves the bus. accepted = it is the
    // sandbox.
    struct Departure
    {
        uint32_t entry = 0;
        bool accepted = false;
    };
    std::optional<Departure> takeDeparture();

    // Everything volatile is lost; the mode is what the memories allow.
    void powerCycle();

    // A poll that a fault answered in the device's place.
    void statusAnswered(uint8_t request, uint8_t value);
    // More busy polls for the memory behind this status request.
    void addBusy(uint8_t request, unsigned polls);

    // Changes by the scene, not by the program. After changing config() in place, call the one that
    // fits.
    DeviceConfig &config() { return settings; }
    const DeviceConfig &config() const { return settings; }
    void presetMemories();
    void presetSettings();
    void presetRam();

    Mode mode() const { return currentMode; }
    UsbId id() const;
    uint8_t flags() const { return deviceFlags; }
    const std::array<UserModeRecord, UserModeCount> &userModes() const { return modes; }
    std::optional<std::string> productString() const;
    std::optional<std::string> serial() const;
    std::optional<std::string> version() const;
    const ImageMemory &microcode() const { return fx3; }
    const ImageMemory &bitstream() const { return *fpga; }
    const EdidMemory &edid() const { return edidMemory; }
    // Whether microcode, bitstream or EDID was completed since power was last cycled.
    bool wasUpdated() const { return updated; }

    // The first hundred; a program that repeats itself without end must not fill the memory.
    const std::vector<std::string> &violations() const { return violationTexts; }
    std::function<void(const std::string &)> onViolation;

private:
    Outcome standardRequest(const Setup &setup) const;
    Outcome stringRequest(const Setup &setup) const;
    Outcome vendorRequest(const Setup &setup, const Bytes &out, bool claimed, uint64_t nowMs);
    Outcome memoryAccess(const Setup &setup, const Bytes &out);
    Outcome startCode(uint32_t entry);
    Outcome readRequest(const Setup &setup, uint64_t nowMs);
    Verdict writeRequest(const Setup &setup, const Bytes &out);
    Verdict edidRequest(const Setup &setup, const Bytes &out);
    Verdict writeUserMode(uint16_t index, const Bytes &out);
    Outcome readUserMode(uint16_t index) const;
    ImageMemory *memoryBehind(uint8_t statusRequest);
    Outcome judge(const Setup &setup, const Verdict &verdict, size_t size);
    Outcome violation(const std::string &text);

    DeviceConfig settings;
    Mode currentMode;
    Mode rescueMode; // what it is when its images are not whole
    ImageMemory fx3;
    std::unique_ptr<ImageMemory> fpga;
    EdidMemory edidMemory;
    BootRam ram;
    uint8_t deviceFlags = 0;
    std::array<UserModeRecord, UserModeCount> modes{};
    bool microcodeWritten = false; // the version comes from the microcode from now on
    bool updated = false;
    std::optional<Departure> departure;
    std::vector<std::string> violationTexts;
};

// The version that a microcode image names: the text after its first "VERSION=", or 0.0.N from its
// CRC-32.
std::string versionOf(const Bytes &microcode);

} // namespace sim
