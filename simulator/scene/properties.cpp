#include "properties.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <tuple>

namespace sim {
namespace {

constexpr unsigned s_mostHubs = 5; // on the way to a device, as USB allows
constexpr uint32_t s_lastHubPort = 31;
constexpr uint32_t s_mostInterfaces = 8;
constexpr uint32_t s_longestTime = 24 * 3600 * 1000;

using Context = PropertyContext;

uint32_t milliseconds(WordReader &words)
{
    return words.number("time", 0, s_longestTime);
}

UsbId usbId(WordReader &words)
{
    const std::string word = words.next("id");
    const size_t colon = word.find(':');
    if (colon != 4 || word.size() != 9) {
        throw SceneError("id '" + word + "' is not of the form VVVV:PPPP");
    }
    const auto part = [&word](size_t from) {
        return static_cast<uint16_t>(
            parseNumber("0x" + word.substr(from, 4), "half of an id", 0, 0xFFFF));
    };
    return {part(0), part(5)};
}

Bytes fileContent(WordReader &words, const Context &context)
{
    const std::string name = words.next("file name");
    const std::string path =
        name[0] == '/' || context.directory.empty() ? name : context.directory + "/" + name;
    std::ifstream file(path, std::ios::binary);
    Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        throw SceneError("cannot read file '" + path + "'");
    }
    return bytes;
}

StringSetting stringSetting(WordReader &words, const std::string &defaultWord)
{
    if (words.accept("none")) {
        return {StringSetting::None, {}};
    }
    if (!defaultWord.empty() && words.accept(defaultWord)) {
        return {StringSetting::Default, {}};
    }
    return {StringSetting::Text, words.quotedText("text")};
}

void readProduct(WordReader &words, DeviceConfig &config, const Context &)
{
    const std::string name = words.next("product");
    config.product = findProduct(name);
    if (!config.product) {
        throw SceneError("unknown product '" + name + "'");
    }
}

void readId(WordReader &words, DeviceConfig &config, const Context &)
{
    config.runningId = usbId(words);
}

void readMode(WordReader &words, DeviceConfig &config, const Context &)
{
    const std::string name = words.next("mode");
    for (const Mode mode : {Mode::Normal, Mode::Soft, Mode::SoftF, Mode::Hard, Mode::Sandbox}) {
        if (name == toText(mode)) {
            config.mode = mode;
            return;
        }
    }
    throw SceneError("unknown mode '" + name + "'");
}

void readBus(WordReader &words, DeviceConfig &config, const Context &)
{
    config.bus = words.number("bus", 1, 255);
}

// "2.1": port 2 of the root hub has a hub, and its port 1 another one, which has the device.
void readHubs(WordReader &words, DeviceConfig &config, const Context &)
{
    const std::string path = words.next("ports");
    std::istringstream parts(path + ".");
    std::string part;
    config.hubs.clear();
    for (unsigned depth = 1; std::getline(parts, part, '.'); ++depth) {
        if (depth > s_mostHubs) {
            throw SceneError("more than 5 hubs in '" + path + "'");
        }
        parseNumber(part, "port", 1, s_lastHubPort);
        config.hubs += (config.hubs.empty() ? "" : ".") + part;
    }
}

void readPort(WordReader &words, DeviceConfig &config, const Context &)
{
    config.port = words.number("port", 1, 255);
}

void readAddress(WordReader &words, DeviceConfig &config, const Context &)
{
    config.address = words.number("address", 2, 127); // 1 is the root hub
}

unsigned speed(WordReader &words)
{
    const std::string word = words.next("speed");
    for (const unsigned known : {12u, 480u, 5000u, 10000u}) {
        if (word == std::to_string(known)) {
            return known;
        }
    }
    throw SceneError("speed '" + word + "' is not 12, 480, 5000 or 10000");
}

void readSpeed(WordReader &words, DeviceConfig &config, const Context &)
{
    config.speed = speed(words);
}

void readProductString(WordReader &words, DeviceConfig &config, const Context &)
{
    config.productString = stringSetting(words, {});
}

void readSerial(WordReader &words, DeviceConfig &config, const Context &)
{
    config.serial = stringSetting(words, "auto");
}

void readVersion(WordReader &words, DeviceConfig &config, const Context &)
{
    config.version = stringSetting(words, {});
}

void readInterfaces(WordReader &words, DeviceConfig &config, const Context &)
{
    config.interfaces = words.number("interfaces", 1, s_mostInterfaces);
}

void readKernelDriver(WordReader &words, DeviceConfig &config, const Context &)
{
    const std::string driver = words.next("driver");
    const bool names = words.accept("interface");
    const unsigned interface = names ? words.number("interface", 0, s_mostInterfaces - 1) : 0;
    config.kernelDrivers.erase(interface);
    if (driver != "none") {
        config.kernelDrivers[interface] = driver;
    }
}

void readAccess(WordReader &words, DeviceConfig &config, const Context &)
{
    const std::string word = words.next("access");
    if (word != "granted" && word != "denied") {
        failUnknown(word);
    }
    config.accessDenied = word == "denied";
}

void readBusyPolls(WordReader &words, DeviceConfig &config, const Context &)
{
    config.busyPolls = words.number("polls", 0, 1000000);
}

void readLatency(WordReader &words, DeviceConfig &config, const Context &)
{
    config.latencyMs = milliseconds(words);
}

void readFlags(WordReader &words, DeviceConfig &config, const Context &)
{
    config.flags = static_cast<uint8_t>(words.number("flags", 0, 255));
}

// "1920x1080", the rest of the word behind the height in rest.
std::pair<uint16_t, uint16_t> readSize(const std::string &word, std::string &rest)
{
    unsigned width = 0;
    unsigned height = 0;
    int used = 0;
    const int found = std::sscanf(word.c_str(), "%5ux%5u%n", &width, &height, &used);
    if (found != 2 || width > 0xFFFF || height > 0xFFFF) {
        throw SceneError("'" + word + "' is not of the form WIDTHxHEIGHT");
    }
    rest = word.substr(static_cast<size_t>(used));
    return {static_cast<uint16_t>(width), static_cast<uint16_t>(height)};
}

void readUserMode(WordReader &words, DeviceConfig &config, const Context &)
{
    const uint32_t number = words.number("user mode", 0, UserModeCount - 1);
    const std::string word = words.next("size");
    std::string rest;
    const auto [width, height] = readSize(word, rest);
    if (!rest.empty()) {
        throw SceneError("'" + word + "' is not of the form WIDTHxHEIGHT");
    }
    const std::string state = words.next("'on' or 'off'");
    if (state != "on" && state != "off") {
        failUnknown(state);
    }
    config.userModes.at(number) = {width, height, static_cast<uint8_t>(state == "off")};
}

InputSignal readSignal(WordReader &words)
{
    if (words.accept("none")) {
        return {};
    }
    InputSignal signal;
    const std::string word = words.next("signal");
    std::string scan;
    std::tie(signal.width, signal.height) = readSize(word, scan);
    if (scan != "p" && scan != "i") {
        throw SceneError("'" + word + "' is not of the form WIDTHxHEIGHTp or WIDTHxHEIGHTi");
    }
    signal.interlaced = scan == "i";
    signal.frameRate = words.number("frame rate", 0, 0xFFFFFFFF);
    signal.name = words.quotedText("name");
    signal.info = words.quotedText("info");
    return signal;
}

void readInput(WordReader &words, DeviceConfig &config, const Context &context)
{
    if (words.accept("repeat")) {
        config.input.repeatEvery(milliseconds(words));
    } else if (words.accept("at")) {
        const uint32_t atMs = milliseconds(words) + context.nowMs;
        config.input.add(atMs, readSignal(words));
    } else {
        InputTimeline constant;
        constant.add(0, readSignal(words));
        config.input = constant;
    }
}

void readMicrocode(WordReader &words, DeviceConfig &config, const Context &context)
{
    config.microcode = fileContent(words, context);
}

void readBitstream(WordReader &words, DeviceConfig &config, const Context &context)
{
    config.bitstream = fileContent(words, context);
}

void readEdid(WordReader &words, DeviceConfig &config, const Context &context)
{
    config.edid = fileContent(words, context);
}

void readSandboxImage(WordReader &words, DeviceConfig &config, const Context &context)
{
    const std::string name = words.peek();
    config.sandboxImage = parseBootImage(fileContent(words, context));
    if (!config.sandboxImage) {
        throw SceneError("file '" + name + "' is no FX3 boot image");
    }
}

void readReturn(WordReader &words, DeviceConfig &config, const Context &)
{
    ReturnRule rule;
    if (words.accept("never")) {
        rule.never = true;
        config.comeback = rule;
        return;
    }
    while (!words.atEnd()) {
        if (words.accept("after")) {
            rule.afterMs = milliseconds(words);
        } else if (words.accept("as")) {
            rule.id = usbId(words);
        } else if (words.accept("address")) {
            rule.address = words.number("address", 2, 127);
        } else if (words.accept("bus")) {
            rule.bus = words.number("bus", 1, 255);
        } else if (words.accept("speed")) {
            rule.speed = speed(words);
        } else if (words.accept("again")) {
            rule.againMs = milliseconds(words);
        } else if (words.accept("denied")) {
            rule.denied = true;
        } else {
            failUnknown(words.peek());
        }
    }
    config.comeback = rule;
}

void readBadRam(WordReader &words, DeviceConfig &config, const Context &)
{
    config.badRam.push_back(words.number("address", 0, 0xFFFFFFFF));
}

void readPowerCycleWhenIdle(WordReader &words, DeviceConfig &config, const Context &)
{
    config.powerCycleWhenIdleMs = milliseconds(words);
}

struct Property
{
    const char *word;
    PropertyKind kind;
    void (*read)(WordReader &, DeviceConfig &, const Context &);
};

constexpr Property s_properties[] = {
    {"product", PropertyKind::Identity, readProduct},
    {"id", PropertyKind::Identity, readId},
    {"mode", PropertyKind::Identity, readMode},
    {"bus", PropertyKind::Identity, readBus},
    {"behind-hub", PropertyKind::Identity, readHubs},
    {"port", PropertyKind::Identity, readPort},
    {"address", PropertyKind::Identity, readAddress},
    {"speed", PropertyKind::Plain, readSpeed},
    {"product-string", PropertyKind::Plain, readProductString},
    {"serial", PropertyKind::Plain, readSerial},
    {"version", PropertyKind::Plain, readVersion},
    {"interfaces", PropertyKind::Identity, readInterfaces},
    {"kernel-driver", PropertyKind::Plain, readKernelDriver},
    {"access", PropertyKind::Access, readAccess},
    {"busy-polls", PropertyKind::Plain, readBusyPolls},
    {"latency", PropertyKind::Plain, readLatency},
    {"flags", PropertyKind::Setting, readFlags},
    {"user-mode", PropertyKind::Setting, readUserMode},
    {"input", PropertyKind::Plain, readInput},
    {"microcode", PropertyKind::Memory, readMicrocode},
    {"fpga", PropertyKind::Memory, readBitstream},
    {"edid", PropertyKind::Memory, readEdid},
    {"sandbox-image", PropertyKind::Plain, readSandboxImage},
    {"return", PropertyKind::Plain, readReturn},
    {"bad-ram", PropertyKind::Ram, readBadRam},
    {"power-cycle-when-idle", PropertyKind::Plain, readPowerCycleWhenIdle},
};

const Property *findProperty(const std::string &word)
{
    const auto found = std::find_if(std::begin(s_properties), std::end(s_properties),
                                    [&word](const Property &p) { return word == p.word; });
    return found == std::end(s_properties) ? nullptr : found;
}

} // namespace

bool isProperty(const std::string &word)
{
    return findProperty(word) != nullptr;
}

PropertyKind propertyKind(const std::string &word)
{
    const Property *property = findProperty(word);
    return property ? property->kind : PropertyKind::Identity;
}

void parseProperty(WordReader &words, DeviceConfig &config, const PropertyContext &context)
{
    const std::string word = words.next("property");
    const Property *property = findProperty(word);
    if (!property) {
        failUnknown(word);
    }
    property->read(words, config, context);
    words.expectEnd();
}

} // namespace sim
