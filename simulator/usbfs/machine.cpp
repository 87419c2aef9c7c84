#include "machine.h"

#include "faultwords.h"
#include "simulationlock.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <unistd.h>

namespace sim {
namespace {

// The hubs that a scene's devices are behind, by bus and path, those on the way to others first.
std::set<std::pair<unsigned, std::string>> hubsOf(const Scene &scene)
{
    std::set<std::pair<unsigned, std::string>> hubs;
    for (const SceneDevice &device : scene.devices) {
        const std::string &path = device.config.hubs;
        for (size_t end = 0; !path.empty() && end != std::string::npos;) {
            end = path.find('.', end + 1);
            hubs.insert({device.config.bus, path.substr(0, end)});
        }
    }
    return hubs;
}

// Numbers for the ports that the scene leaves open.
class PortNumbers
{
public:
    explicit PortNumbers(const Scene &scene)
    {
        for (const auto &[bus, path] : hubsOf(scene)) {
            const size_t dot = path.rfind('.');
            const bool onRootHub = dot == std::string::npos;
            taken.insert({bus, onRootHub ? "" : path.substr(0, dot),
                          static_cast<unsigned>(std::stoul(path.substr(onRootHub ? 0 : dot + 1)))});
        }
        for (const SceneDevice &device : scene.devices) {
            if (device.config.port) {
                taken.insert({device.config.bus, device.config.hubs, *device.config.port});
            }
        }
    }

    unsigned of(const DeviceConfig &config)
    {
        if (config.port) {
            return *config.port;
        }
        unsigned port = 1;
        while (!taken.insert({config.bus, config.hubs, port}).second) {
            ++port;
        }
        return port;
    }

private:
    std::set<std::tuple<unsigned, std::string, unsigned>> taken;
};

std::optional<unsigned> addressWord(WordReader &words)
{
    if (!words.accept("address")) {
        return std::nullopt;
    }
    return words.number("address", 2, 127);
}

} // namespace

Machine::Machine(TestBed &bed, Transcript &transcript, const Scene &scene,
                 std::string outputDirectory)
    : directory(std::move(outputDirectory)), canDeny(scene.deniesAccess() || geteuid() != 0)
{
    for (const auto &[bus, path] : hubsOf(scene)) {
        bed.addHub(bus, path, addresses.takeLast(bus));
    }
    PortNumbers numbers(scene);
    for (const SceneDevice &device : scene.devices) {
        ports.push_back(
            std::make_unique<Port>(bed, transcript, addresses, device, numbers.of(device.config)));
        firstAddresses.push_back(device.config.address);
    }
}

Machine::~Machine()
{
    // Nodes must not go while umockdev's thread is inside one.
    const SimulationLock lock;
    ports.clear();
}

void Machine::plugAll()
{
    // Those with an address of their own come first, so that no other is given it.
    for (size_t i = 0; i < ports.size(); ++i) {
        if (firstAddresses[i]) {
            ports[i]->plug(firstAddresses[i]);
        }
    }
    for (size_t i = 0; i < ports.size(); ++i) {
        if (!firstAddresses[i]) {
            ports[i]->plug();
        }
    }
}

void Machine::dump() const
{
    for (const auto &port : ports) {
        port->writeMemories(directory + "/memory");
    }
}

void Machine::keep(const std::string &stateDirectory)
{
    for (const auto &port : ports) {
        port->keep(stateDirectory);
    }
}

bool Machine::isIdle() const
{
    return std::all_of(ports.begin(), ports.end(), [](const auto &port) { return port->isIdle(); });
}

bool Machine::sawViolation() const
{
    return std::any_of(ports.begin(), ports.end(),
                       [](const auto &port) { return port->sawViolation(); });
}

void Machine::setNewsSink(const std::function<void(const std::string &)> &sink)
{
    for (const auto &port : ports) {
        port->onNews = sink;
    }
}

std::string Machine::command(const std::string &line)
{
    try {
        WordReader words(splitWords(line));
        const std::string result = execute(words);
        return result.empty() ? "ok" : "ok " + result;
    } catch (const std::exception &error) {
        return std::string("error: ") + error.what();
    }
}

std::string Machine::execute(WordReader &words)
{
    const std::string verb = words.next("command");
    if (verb == "list") {
        return words.expectEnd(), list();
    }
    if (verb == "dump") {
        return words.expectEnd(), dump(), std::string();
    }
    if (verb == "clear-faults") {
        return clearFaults(words), std::string();
    }
    if (verb == "quit") {
        return words.expectEnd(), onQuit(), std::string();
    }
    static const std::set<std::string> s_deviceVerbs = {"state",  "power-cycle", "unplug",
                                                        "replug", "set",         "fault"};
    if (!s_deviceVerbs.count(verb)) {
        failUnknown(verb);
    }
    return executeOn(find(words.next("device")), verb, words);
}

std::string Machine::executeOn(Port &port, const std::string &verb, WordReader &words)
{
    if (verb == "set") {
        return set(port, words), std::string();
    }
    if (verb == "fault") {
        return addFault(port, words), std::string();
    }
    const bool plugs = verb == "power-cycle" || verb == "replug";
    const std::optional<unsigned> address = plugs ? addressWord(words) : std::nullopt;
    words.expectEnd();
    if (verb == "state") {
        return port.state();
    }
    if (verb == "unplug") {
        port.unplug();
    } else if (verb == "replug") {
        port.plug(address);
    } else {
        port.powerCycle(address);
    }
    return {};
}

void Machine::set(Port &port, WordReader &words) const
{
    if (words.peek() == "access") {
        expectDenialAllowed();
    }
    port.set(words);
}

void Machine::addFault(Port &port, WordReader &words) const
{
    Fault fault = parseFault(words);
    if (fault.action == Fault::Action::Denied) {
        expectDenialAllowed();
    }
    port.addFault(std::move(fault));
}

// Root passes every permission check unless it gave up that right before the program was started.
void Machine::expectDenialAllowed() const
{
    if (!canDeny) {
        throw SceneError("the scene lacks 'allow-denial', which root needs");
    }
}

std::string Machine::list() const
{
    std::string names;
    for (const auto &port : ports) {
        names += (names.empty() ? "" : " ") + port->name();
    }
    return names;
}

void Machine::clearFaults(WordReader &words)
{
    if (!words.atEnd()) {
        find(words.next("device")).clearFaults();
        words.expectEnd();
        return;
    }
    for (const auto &port : ports) {
        port->clearFaults();
    }
}

Port &Machine::find(const std::string &name) const
{
    const auto found = std::find_if(ports.begin(), ports.end(),
                                    [&name](const auto &port) { return port->name() == name; });
    if (found == ports.end()) {
        throw SceneError("no device '" + name + "'");
    }
    return **found;
}

} // namespace sim
