#include "port.h"

#include "descriptors.h"
#include "devicestate.h"
#include "keptstate.h"
#include "properties.h"

#include <algorithm>
#include <cerrno>

namespace sim {
namespace {

constexpr unsigned s_lastAddress = 127;
// A device that starts code answers the request first, and is off the bus a moment later.
constexpr unsigned s_startTakesMs = 10;

int errnoOf(Fault::Action action)
{
    switch (action) {
    case Fault::Action::Busy:
        return EBUSY;
    case Fault::Action::NotFound:
        return ENOENT;
    default:
        return ENODEV;
    }
}

Bytes descriptorsOf(const CaptureDevice &device)
{
    Bytes bytes = deviceDescriptor(
        device.id(), {device.productString().has_value(), device.serial().has_value()});
    const Bytes configuration = configurationDescriptor(device.config().interfaces);
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

} // namespace

unsigned AddressPool::take(unsigned bus)
{
    unsigned &address = last.emplace(bus, 1).first->second;
    for (unsigned tried = 2; tried <= s_lastAddress; ++tried) {
        address = address >= s_lastAddress ? 2 : address + 1;
        if (taken[bus].insert(address).second) {
            return address;
        }
    }
    throw SceneError("no address left on bus " + std::to_string(bus));
}

void AddressPool::take(unsigned bus, unsigned address)
{
    if (!taken[bus].insert(address).second) {
        throw SceneError("address '" + std::to_string(address) + "' is taken");
    }
}

unsigned AddressPool::takeLast(unsigned bus)
{
    unsigned address = s_lastAddress;
    while (!taken[bus].insert(address).second) {
        --address;
    }
    return address;
}

void AddressPool::giveBack(unsigned bus, unsigned address)
{
    taken[bus].erase(address);
}

Port::Port(TestBed &testBed, Transcript &record, AddressPool &pool, const SceneDevice &scene,
           unsigned port)
    : bed(testBed), transcript(record), addresses(pool), device(scene.config), portNumber(port)
{
    for (const Fault &fault : scene.faults) {
        faults.add(fault);
    }
    device.onViolation = [this](const std::string &text) {
        event(address(), "violation", JsonObject().add("text", text));
        news("violation: " + text);
    };
}

void Port::plug(std::optional<unsigned> wanted)
{
    if (!pulled) {
        throw SceneError("'" + name() + "' is plugged in");
    }
    coming.cancel();
    plugIn(wanted);
    pulled = false;
}

void Port::plugIn(std::optional<unsigned> wanted)
{
    const ReturnRule &comeback = device.config().comeback;
    const unsigned bus = (returning ? comeback.bus : std::nullopt).value_or(device.config().bus);
    const unsigned speed =
        (returning ? comeback.speed : std::nullopt).value_or(device.config().speed);
    lastBus = bus;
    if (wanted) {
        addresses.take(bus, *wanted);
    } else {
        wanted = addresses.take(bus);
    }
    lastAddress = *wanted;
    const UsbId id = device.id();
    event(lastAddress, "plug",
          JsonObject()
              .add("id", toText(id))
              .add("bus", bus)
              .add("port", portNumber)
              .add("path", portPath())
              .add("speed", speed)
              .add("mode", toText(device.mode())));
    node = std::make_unique<UsbNode>(
        bed,
        SysfsEntry{bus, portPath(), lastAddress, descriptorsOf(device), speed,
                   device.config().interfaces},
        static_cast<NodeOwner &>(*this),
        NodeOptions{device.config().kernelDrivers, isDenied(), isMissing()});
    news("plugged in as " + toText(id) + ", address " + std::to_string(lastAddress));
}

std::string Port::portPath() const
{
    const std::string &hubs = device.config().hubs;
    return (hubs.empty() ? "" : hubs + ".") + std::to_string(portNumber);
}

void Port::unplug()
{
    if (pulled) {
        throw SceneError("'" + name() + "' is not plugged in");
    }
    pulled = true;
    coming.cancel();
    leaving.cancel();
    idle.cancel();
    returning = false;
    leave();
    device.powerCycle();
}

void Port::leave()
{
    if (!node) {
        return;
    }
    event(address(), "unplug", {});
    news("gone");
    addresses.giveBack(node->entry().bus, node->entry().address);
    node->unplug();
    retired.push_back(std::move(node));
    retire();
}

void Port::powerCycle(std::optional<unsigned> wanted)
{
    unplug();
    event(address(), "power-cycle", {});
    plug(wanted);
}

// Lets go of nodes that nobody has open any more.
void Port::retire()
{
    retired.remove_if([](const std::unique_ptr<UsbNode> &old) { return old->openFiles() == 0; });
}

Completion Port::control(const Setup &setup, const Bytes &out, bool claimed)
{
    return transfer(device, faults, setup, out, claimed, transcript.nowMs());
}

int Port::claimFault()
{
    const std::optional<Fault> fault = faults.strikeClaim();
    return fault ? errnoOf(fault->action) : 0;
}

void Port::finished(unsigned at, const TransferRecord &record)
{
    transcript.transfer(name(), at, record);
}

void Port::event(unsigned at, const char *eventName, const JsonObject &details)
{
    transcript.event(name(), at, eventName, details);
}

void Port::afterTransfer(const Completion &completion)
{
    const std::optional<CaptureDevice::Departure> departure = device.takeDeparture();
    if (completion.disconnect) {
        unplug();
        if (completion.replugMs) {
            coming.start(*completion.replugMs,
                         [this, wanted = completion.replugAddress] { plug(wanted); });
        }
    } else if (departure) {
        startCode(*departure, completion);
    }
}

// The request is answered, and then the code runs; if the answer is lost, it runs at once.
void Port::startCode(const CaptureDevice::Departure &departure, const Completion &answer)
{
    const unsigned answerMs = answer.delayMs;
    event(address(), "start",
          JsonObject().add("entry", departure.entry).add("accepted", departure.accepted));
    if (answer.outcome.status == Status::Ok) {
        leaving.start(answerMs + s_startTakesMs, [this] { leave(); });
    } else {
        leave();
    }
    if (!departure.accepted || device.config().comeback.never) {
        return;
    }
    returning = true;
    const unsigned afterMs = std::max(device.config().comeback.afterMs, s_startTakesMs + 1);
    coming.start(answerMs + afterMs, [this] { comeBack(); });
}

void Port::comeBack()
{
    leaving.cancel();
    leave();
    plugIn(device.config().comeback.address);
    returning = false;
    if (device.config().comeback.againMs) {
        coming.start(*device.config().comeback.againMs, [this] { comeBackAgain(); });
    }
}

// As a device does that has reset itself.
void Port::comeBackAgain()
{
    returning = true;
    leave();
    plugIn(std::nullopt);
    returning = false;
}

bool Port::isDenied() const
{
    const std::optional<Fault> openFault = faults.openFault();
    return device.config().accessDenied || (returning && device.config().comeback.denied) ||
           (openFault && openFault->action == Fault::Action::Denied);
}

bool Port::isMissing() const
{
    const std::optional<Fault> openFault = faults.openFault();
    return openFault && openFault->action == Fault::Action::NoDevice;
}

void Port::checkAccess()
{
    if (!node) {
        return;
    }
    node->setDenied(isDenied());
    node->setMissing(isMissing());
}

void Port::filesChanged()
{
    // Called by a node about its own files, so it must not be let go of here and now.
    const std::optional<unsigned> afterMs = device.config().powerCycleWhenIdleMs;
    idle.cancel();
    if (node && afterMs && node->openFiles() == 0 && device.wasUpdated()) {
        idle.start(*afterMs, [this] { powerCycle(); });
    }
}

void Port::set(WordReader &words)
{
    const std::string property = words.peek();
    const PropertyKind kind = propertyKind(property);
    if (isProperty(property) && kind == PropertyKind::Identity) {
        throw SceneError("'" + property + "' cannot be changed");
    }
    // Only what is set now may change, not what the scene said earlier and the program changed
    // since.
    DeviceConfig changed = device.config();
    changed.microcode.reset();
    changed.bitstream.reset();
    changed.edid.reset();
    changed.flags = device.flags();
    changed.userModes = device.userModes();
    parseProperty(words, changed, {{}, static_cast<uint32_t>(transcript.nowMs())});
    device.config() = changed;
    if (kind == PropertyKind::Memory) {
        device.presetMemories();
    }
    if (kind == PropertyKind::Setting) {
        device.presetSettings();
    }
    if (kind == PropertyKind::Ram) {
        device.presetRam();
    }
    checkAccess();
}

void Port::addFault(Fault fault)
{
    faults.add(std::move(fault));
    checkAccess();
}

void Port::clearFaults()
{
    faults.clear();
    checkAccess();
}

std::string Port::state() const
{
    Presence presence;
    presence.plugged = node != nullptr;
    presence.bus = lastBus;
    presence.port = portNumber;
    presence.address = address();
    presence.transfers = transfers;
    presence.openFiles = node ? node->openFiles() : 0;
    presence.calls = calls;
    presence.lateMs = lateMs;
    return stateJson(device, presence);
}

void Port::writeMemories(const std::string &directory) const
{
    writeMemoryFiles(device, state(), directory + "/" + device.config().name);
}

void Port::keep(const std::string &directory)
{
    keepState(device, directory);
}

bool Port::isIdle() const
{
    return (!node || node->openFiles() == 0) &&
           std::all_of(retired.begin(), retired.end(),
                       [](const auto &old) { return old->openFiles() == 0; });
}

void Port::news(const std::string &text) const
{
    if (onNews) {
        onNews(device.config().name + ": " + text);
    }
}

} // namespace sim
