#include "scene.h"

#include "faultwords.h"
#include "properties.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

namespace sim {
namespace {

constexpr unsigned s_lastPort = 255;

// A device statement as written: one configuration that stands for one or more devices.
struct DeviceBlock
{
    DeviceConfig config;
    unsigned count = 1;
    unsigned line = 0;
    std::vector<std::pair<std::string, Fault>> faults; // with the name that they were given for
};

bool isName(const std::string &name)
{
    return !name.empty() && name != "." && name != ".." &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' ||
                      c == '.';
           });
}

class SceneReader
{
public:
    SceneReader(std::string name, std::string directory)
        : fileName(std::move(name)), context{std::move(directory), 0}
    {
    }

    Scene read(const std::string &text)
    {
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line)) {
            ++lineNumber;
            onLine([&] { readLine(line); });
        }
        for (DeviceBlock &block : blocks) {
            lineNumber = block.line;
            onLine([&] { expand(block); });
        }
        return std::move(scene);
    }

private:
    // Adds file and line to what goes wrong inside.
    template<typename Step> void onLine(Step step) const
    {
        try {
            step();
        } catch (const SceneError &error) {
            throw SceneError(fileName + ":" + std::to_string(lineNumber) + ": " + error.what());
        }
    }

    void readLine(const std::string &line)
    {
        std::vector<Word> split = splitWords(line);
        if (split.empty()) {
            return;
        }
        WordReader words(std::move(split));
        const std::string first = words.peek();
        if (isProperty(first) || first == "count") {
            readDeviceWord(words);
        } else {
            readSceneWord(words);
        }
    }

    void readSceneWord(WordReader &words)
    {
        const std::string word = words.next("word");
        if (word == "title") {
            scene.title = words.quotedText("title");
        } else if (word == "strict" || word == "lenient") {
            scene.strict = word == "strict";
        } else if (word == "transcript") {
            readTranscript(words);
        } else if (word == "allow-denial") {
            scene.allowDenial = true;
        } else if (word == "device") {
            beginDevice(words);
        } else if (word == "fault") {
            readFault(words);
        } else {
            failUnknown(word);
        }
        words.expectEnd();
    }

    void readTranscript(WordReader &words)
    {
        const std::string word = words.next("'full' or 'brief'");
        if (word != "full" && word != "brief") {
            failUnknown(word);
        }
        scene.fullTranscript = word == "full";
    }

    void beginDevice(WordReader &words)
    {
        const std::string name = words.next("name");
        if (!isName(name)) {
            throw SceneError("'" + name + "' is no name for a device");
        }
        DeviceBlock block;
        block.config.name = name;
        block.line = lineNumber;
        blocks.push_back(std::move(block));
    }

    void readDeviceWord(WordReader &words)
    {
        if (blocks.empty()) {
            throw SceneError("'" + words.peek() + "' stands before the first device");
        }
        if (words.accept("count")) {
            blocks.back().count = words.number("count", 1, 120);
            words.expectEnd();
            return;
        }
        parseProperty(words, blocks.back().config, context);
    }

    void readFault(WordReader &words)
    {
        const std::string name = words.next("device");
        const auto block = std::find_if(blocks.begin(), blocks.end(),
                                        [&](const DeviceBlock &b) { return namesDevice(b, name); });
        if (block == blocks.end()) {
            throw SceneError("no device '" + name + "' above");
        }
        block->faults.emplace_back(name, parseFault(words));
    }

    static std::string memberName(const DeviceBlock &block, unsigned number)
    {
        return block.count == 1 ? block.config.name : block.config.name + std::to_string(number);
    }

    static bool namesDevice(const DeviceBlock &block, const std::string &name)
    {
        for (unsigned i = 1; i <= block.count; ++i) {
            if (name == memberName(block, i)) {
                return true;
            }
        }
        return name == block.config.name;
    }

    void expand(const DeviceBlock &block)
    {
        for (unsigned i = 0; i < block.count; ++i) {
            SceneDevice device{block.config, {}};
            device.config.name = memberName(block, i + 1);
            complete(device.config, i);
            for (const auto &[name, fault] : block.faults) {
                if (name == block.config.name || name == device.config.name) {
                    device.faults.push_back(fault);
                }
            }
            scene.devices.push_back(std::move(device));
        }
    }

    // Fills in what depends on the product and on the other devices, and refuses what cannot be.
    void complete(DeviceConfig &config, unsigned number)
    {
        if (!config.product) {
            throw SceneError("device '" + config.name + "' has no product");
        }
        if (config.runningId == UsbId()) {
            config.runningId = config.product->runningId;
        }
        if (config.runningId == UsbId()) {
            throw SceneError("device '" + config.name + "' has no id");
        }
        for (const auto &[interface, driver] : config.kernelDrivers) {
            if (interface >= config.interfaces) {
                throw SceneError("driver '" + driver + "' has no interface " +
                                 std::to_string(interface));
            }
        }
        if (!names.insert(config.name).second) {
            throw SceneError("a second device '" + config.name + "'");
        }
        if (config.serial.kind == StringSetting::Default) {
            config.serial = {StringSetting::Text, automaticSerial()};
        }
        if (config.address) {
            *config.address += number;
        }
        if (config.port) {
            *config.port += number;
        }
        if (config.port && (*config.port > s_lastPort ||
                            !ports.insert({config.bus, config.hubs, *config.port}).second)) {
            throw SceneError("port '" + std::to_string(*config.port) + "' is taken");
        }
        if (config.address &&
            (*config.address > 127 || !addresses.insert({config.bus, *config.address}).second)) {
            throw SceneError("address '" + std::to_string(*config.address) + "' is taken");
        }
    }

    std::string automaticSerial() const
    {
        char text[16];
        std::snprintf(text, sizeof text, "SIM%05u", static_cast<unsigned>(names.size()));
        return text;
    }

    std::string fileName;
    PropertyContext context;
    unsigned lineNumber = 0;
    std::vector<DeviceBlock> blocks;
    Scene scene;
    std::set<std::string> names;
    std::set<std::tuple<unsigned, std::string, unsigned>> ports;
    std::set<std::pair<unsigned, unsigned>> addresses;
};

} // namespace

bool Scene::deniesAccess() const
{
    const auto isDenial = [](const Fault &fault) { return fault.action == Fault::Action::Denied; };
    return allowDenial ||
           std::any_of(devices.begin(), devices.end(), [&](const SceneDevice &device) {
               return device.config.accessDenied || device.config.comeback.denied ||
                      std::any_of(device.faults.begin(), device.faults.end(), isDenial);
           });
}

Scene parseScene(const std::string &text, const std::string &fileName, const std::string &directory)
{
    return SceneReader(fileName, directory).read(text);
}

} // namespace sim
