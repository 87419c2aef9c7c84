#include "capturedevice.h"

#include "descriptors.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint8_t s_deviceIn = 0x80;
constexpr uint8_t s_getStatus = 0;
constexpr uint8_t s_getDescriptor = 6;
constexpr uint8_t s_getConfiguration = 8;
constexpr size_t s_longestVersion = 31;
constexpr size_t s_keptViolations = 100;
constexpr char s_noBehaviour[] = "stands in the protocol's table, but the device does not know it";

std::unique_ptr<ImageMemory> makeBitstreamMemory(unsigned fpgaVersion)
{
    if (fpgaVersion == 0) {
        return std::make_unique<FramedBitstreamMemory>(ImageMemory::State::Blank);
    }
    return std::make_unique<ImageMemory>(ImageMemory::State::Blank);
}

// Settings and signal are asked of whatever device a person selects, so a boot loader that has none
// refuses them without calling it the program's mistake.
bool isConfiguration(uint8_t request)
{
    return request == InputStatus || request == UserMode || request == GetDeviceFlags ||
           request == SetDeviceFlags;
}

// The boot loader to which a device falls back when its images are not whole.
Mode rescueModeOf(Mode initial)
{
    return isBootLoader(initial) ? initial : Mode::Soft;
}

bool isStatusRequest(uint8_t request)
{
    return request == Fx3Status || request == FpgaStatus;
}

} // namespace

Outcome Outcome::answer(Bytes bytes)
{
    Outcome outcome;
    outcome.actual = bytes.size();
    outcome.data = std::move(bytes);
    return outcome;
}

Outcome Outcome::taken(size_t size)
{
    Outcome outcome;
    outcome.actual = size;
    return outcome;
}

Outcome Outcome::stall()
{
    Outcome outcome;
    outcome.status = Status::Stall;
    return outcome;
}

CaptureDevice::CaptureDevice(DeviceConfig config)
    : settings(std::move(config)),
      currentMode(settings.mode),
      rescueMode(rescueModeOf(settings.mode)),
      fx3(ImageMemory::State::Blank),
      fpga(makeBitstreamMemory(settings.product->fpgaVersion))
{
    if (currentMode == Mode::Normal) {
        fx3.preset({});
        fpga->preset({});
    }
    presetMemories();
    presetSettings();
    presetRam();
}

void CaptureDevice::presetMemories()
{
    if (settings.microcode) {
        fx3.preset(*settings.microcode);
    }
    if (settings.bitstream) {
        fpga->preset(*settings.bitstream);
    }
    if (settings.edid) {
        edidMemory.preset(*settings.edid);
    }
}

void CaptureDevice::presetSettings()
{
    deviceFlags = settings.flags;
    modes = settings.userModes;
}

void CaptureDevice::presetRam()
{
    for (const uint32_t address : settings.badRam) {
        ram.setBad(address);
    }
}

UsbId CaptureDevice::id() const
{
    if (currentMode == Mode::Sandbox && settings.comeback.id) {
        return *settings.comeback.id;
    }
    return identityIn(currentMode, settings.runningId);
}

std::optional<std::string> CaptureDevice::productString() const
{
    if (settings.productString.kind == StringSetting::None) {
        return std::nullopt;
    }
    if (settings.productString.kind == StringSetting::Text) {
        return settings.productString.text;
    }
    return currentMode == Mode::Hard ? "WestBridge" : settings.product->stringText;
}

std::optional<std::string> CaptureDevice::serial() const
{
    if (settings.serial.kind != StringSetting::Text) {
        return std::nullopt;
    }
    return settings.serial.text;
}

std::optional<std::string> CaptureDevice::version() const
{
    const bool fromMicrocode = microcodeWritten || settings.version.kind == StringSetting::Default;
    if (fromMicrocode && !fx3.image().empty()) {
        return versionOf(fx3.image());
    }
    if (settings.version.kind == StringSetting::None) {
        return std::nullopt;
    }
    return settings.version.kind == StringSetting::Text ? settings.version.text : "1.0.0";
}

Outcome CaptureDevice::control(const Setup &setup, const Bytes &out, bool claimed, uint64_t nowMs)
{
    if (currentMode == Mode::Dead) {
        return Outcome::stall();
    }
    if (setup.isStandard()) {
        return standardRequest(setup);
    }
    return vendorRequest(setup, out, claimed, nowMs);
}

Outcome CaptureDevice::standardRequest(const Setup &setup) const
{
    if (setup.requestType != s_deviceIn) {
        return Outcome::stall();
    }
    Bytes bytes;
    if (setup.request == s_getStatus) {
        bytes = {0, 0};
    } else if (setup.request == s_getConfiguration) {
        bytes = {1};
    } else if (setup.request != s_getDescriptor) {
        return Outcome::stall();
    } else if (setup.value == 0x0100) {
        bytes = deviceDescriptor(id(), {productString().has_value(), serial().has_value()});
    } else if (setup.value == 0x0200) {
        bytes = configurationDescriptor(config().interfaces);
    } else {
        return stringRequest(setup);
    }
    bytes.resize(std::min<size_t>(bytes.size(), setup.length));
    return Outcome::answer(std::move(bytes));
}

Outcome CaptureDevice::stringRequest(const Setup &setup) const
{
    if (setup.value >> 8 != 3) {
        return Outcome::stall();
    }
    std::optional<std::string> text;
    switch (setup.value & 0xFF) {
    case ManufacturerString:
        text = currentMode == Mode::Hard ? "Cypress" : "Capture Devices";
        break;
    case ProductString:
        text = productString();
        break;
    case VersionString:
        text = currentMode == Mode::Normal ? version() : std::nullopt;
        break;
    case SerialString:
        text = serial();
        break;
    default:
        break;
    }
    const bool languages = (setup.value & 0xFF) == 0;
    if (!languages && !text) {
        return Outcome::stall();
    }
    Bytes bytes = languages ? languageDescriptor() : stringDescriptor(*text);
    bytes.resize(std::min<size_t>(bytes.size(), setup.length));
    return Outcome::answer(std::move(bytes));
}

Outcome CaptureDevice::vendorRequest(const Setup &setup, const Bytes &out, bool claimed,
                                     uint64_t nowMs)
{
    if (!settings.product->captures) {
        return violation("vendor request to a device that is no capture device");
    }
    const std::string differs = ruleViolation(setup);
    if (!differs.empty()) {
        return violation(differs);
    }
    const std::string name = requestName(setup.request);
    if (!claimed && !isBootLoader(currentMode)) {
        return violation(name + " without a claim of interface 0");
    }
    const bool hasRam = currentMode != Mode::Normal;
    if (setup.request == MemoryAccess) {
        return hasRam ? memoryAccess(setup, out) : violation(name + " while the product runs");
    }
    if (isBootLoader(currentMode)) {
        return isConfiguration(setup.request) ? Outcome::stall()
                                              : violation(name + " to a boot loader");
    }
    if (setup.direction() == Direction::In) {
        return readRequest(setup, nowMs);
    }
    return judge(setup, writeRequest(setup, out), out.size());
}

Outcome CaptureDevice::memoryAccess(const Setup &setup, const Bytes &out)
{
    const uint32_t address = setup.value | static_cast<uint32_t>(setup.index) << 16;
    if (setup.direction() == Direction::In) {
        return Outcome::answer(ram.read(address, setup.length));
    }
    if (setup.length == 0) {
        return startCode(address);
    }
    ram.write(address, out);
    return Outcome::taken(out.size());
}

Outcome CaptureDevice::startCode(uint32_t entry)
{
    const auto &image = settings.sandboxImage;
    const bool accepted = image ? entry == image->entry && ram.holds(*image) : ram.isWritten(entry);
    departure = Departure{entry, accepted};
    currentMode = accepted ? Mode::Sandbox : Mode::Dead;
    return Outcome::taken(0);
}

Outcome CaptureDevice::readRequest(const Setup &setup, uint64_t nowMs)
{
    if (isStatusRequest(setup.request)) {
        return Outcome::answer({memoryBehind(setup.request)->poll()});
    }
    if (setup.request == GetDeviceFlags) {
        return Outcome::answer({deviceFlags});
    }
    if (setup.request == InputStatus) {
        return Outcome::answer(toRecord(settings.input.at(nowMs)));
    }
    if (setup.request == UserMode) {
        return readUserMode(setup.index);
    }
    return judge(setup, Verdict::violation(s_noBehaviour), 0);
}

Outcome CaptureDevice::readUserMode(uint16_t index) const
{
    const UserModeRecord &mode = modes.at(index);
    Bytes bytes;
    appendLe16(bytes, mode.width);
    appendLe16(bytes, mode.height);
    bytes.push_back(mode.disabled);
    return Outcome::answer(std::move(bytes));
}

Verdict CaptureDevice::writeRequest(const Setup &setup, const Bytes &out)
{
    switch (setup.request) {
    case Fx3Start:
        fx3.start(settings.busyPolls);
        return Verdict::taken();
    case Fx3Write:
        return fx3.write(out, setup.length, settings.busyPolls);
    case Fx3Complete:
        return fx3.complete();
    case FpgaStart:
        fpga->start(settings.busyPolls);
        return Verdict::taken();
    case FpgaWrite:
        return fpga->write(out, setup.length, settings.busyPolls);
    case FpgaComplete:
        return fpga->complete();
    case UserMode:
        return writeUserMode(setup.index, out);
    case SetDeviceFlags:
        deviceFlags = out.empty() ? deviceFlags : out[0];
        return Verdict::taken();
    case EdidStart:
    case EdidWrite:
    case EdidComplete:
        return edidRequest(setup, out);
    default:
        return Verdict::violation(s_noBehaviour);
    }
}

Verdict CaptureDevice::edidRequest(const Setup &setup, const Bytes &out)
{
    if (!settings.product->hasEdid) {
        return Verdict::refused("this product has no EDID");
    }
    if (setup.request == EdidWrite) {
        return edidMemory.write(out);
    }
    if (setup.request == EdidComplete) {
        return edidMemory.complete();
    }
    edidMemory.start();
    return Verdict::taken();
}

Verdict CaptureDevice::writeUserMode(uint16_t index, const Bytes &out)
{
    if (out.size() < UserModeSize) {
        return Verdict::taken(); // cut short on its way: nothing that could be stored
    }
    modes.at(index) = {readLe16(&out[0]), readLe16(&out[2]), out[4]};
    return Verdict::taken();
}

Outcome CaptureDevice::judge(const Setup &setup, const Verdict &verdict, size_t size)
{
    if (verdict.kind == Verdict::Violation) {
        return violation(std::string(requestName(setup.request)) + ": " + verdict.text);
    }
    if (verdict.kind == Verdict::Refused) {
        return Outcome::stall();
    }
    if (setup.request == Fx3Complete) {
        microcodeWritten = true;
    }
    if (setup.request == Fx3Complete || setup.request == FpgaComplete ||
        setup.request == EdidComplete) {
        updated = true;
    }
    return Outcome::taken(size);
}

Outcome CaptureDevice::violation(const std::string &text)
{
    if (violationTexts.size() < s_keptViolations) {
        violationTexts.push_back(text);
    }
    if (onViolation) {
        onViolation(text);
    }
    return Outcome::stall();
}

std::optional<CaptureDevice::Departure> CaptureDevice::takeDeparture()
{
    std::optional<Departure> taken;
    taken.swap(departure);
    return taken;
}

void CaptureDevice::powerCycle()
{
    // A running product whose write is cut short keeps its second-stage boot loader: soft repair.
    const bool cut =
        fx3.state() == ImageMemory::State::Writing || fpga->state() == ImageMemory::State::Writing;
    if (cut) {
        rescueMode = Mode::Soft;
    }
    fx3.powerCycle();
    fpga->powerCycle();
    edidMemory.powerCycle();
    ram.clear();
    departure.reset();
    updated = false;
    const bool whole = fx3.state() == ImageMemory::State::Complete &&
                       fpga->state() == ImageMemory::State::Complete;
    currentMode = whole ? Mode::Normal : rescueMode;
}

ImageMemory *CaptureDevice::memoryBehind(uint8_t statusRequest)
{
    return statusRequest == Fx3Status ? &fx3 : fpga.get();
}

void CaptureDevice::statusAnswered(uint8_t request, uint8_t value)
{
    if (isStatusRequest(request) && value != 0) {
        memoryBehind(request)->endBusy();
    }
}

void CaptureDevice::addBusy(uint8_t request, unsigned polls)
{
    if (isStatusRequest(request)) {
        memoryBehind(request)->addBusy(polls);
    }
}

std::string versionOf(const Bytes &microcode)
{
    static const std::string s_marker = "VERSION=";
    const auto marker =
        std::search(microcode.begin(), microcode.end(), s_marker.begin(), s_marker.end());
    std::string version;
    if (marker != microcode.end()) {
        for (auto at = marker + static_cast<long>(s_marker.size());
             at != microcode.end() && *at >= ' ' && *at < 0x7F && version.size() < s_longestVersion;
             ++at) {
            version += static_cast<char>(*at);
        }
    }
    return version.empty() ? "0.0." + std::to_string(crc32Of(microcode) & 0xFFFF) : version;
}

} // namespace sim
