#include "keptstate.h"

#include "properties.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sim {
namespace {

constexpr const char *s_fileName = "state.scene";

void restore(DeviceConfig &config, const std::string &folder)
{
    std::ifstream file(folder + "/" + s_fileName);
    std::string line;
    while (std::getline(file, line)) {
        WordReader words(splitWords(line));
        parseProperty(words, config, {folder, 0});
    }
}

void writeFile(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.flush();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result + "\"";
}

// Writes a memory's content to a file and returns the line that names it; nothing for a memory that
// holds none.
std::string keepMemory(const char *word, bool holds, const Bytes &content,
                       const std::string &folder)
{
    const std::string name = std::string(word) + ".bin";
    if (!holds) {
        return {};
    }
    writeFile(folder + "/" + name, std::string(content.begin(), content.end()));
    return std::string(word) + " " + name + "\n";
}

bool isComplete(const ImageMemory &memory)
{
    return memory.state() == ImageMemory::State::Complete;
}

std::string settingsOf(const CaptureDevice &device)
{
    std::ostringstream lines;
    lines << "mode " << toText(device.mode()) << "\n";
    const auto version = device.version();
    lines << "version " << (version ? quoted(*version) : "none") << "\n";
    lines << "flags " << unsigned(device.flags()) << "\n";
    for (size_t i = 0; i < device.userModes().size(); ++i) {
        const UserModeRecord &mode = device.userModes()[i];
        lines << "user-mode " << i << " " << mode.width << "x" << mode.height
              << (mode.disabled != 0 ? " off" : " on") << "\n";
    }
    return lines.str();
}

} // namespace

void restoreState(Scene &scene, const std::string &directory)
{
    for (SceneDevice &device : scene.devices) {
        restore(device.config, directory + "/" + device.config.name);
    }
}

void keepState(CaptureDevice &device, const std::string &directory)
{
    if (!device.config().product->captures) {
        return;
    }
    device.powerCycle();
    const std::string folder = directory + "/" + device.config().name;
    std::filesystem::create_directories(folder);
    std::string lines = settingsOf(device);
    lines +=
        keepMemory("microcode", isComplete(device.microcode()), device.microcode().image(), folder);
    lines += keepMemory("fpga", isComplete(device.bitstream()), device.bitstream().image(), folder);
    lines += keepMemory("edid", !device.edid().image().empty(), device.edid().image(), folder);
    writeFile(folder + "/" + s_fileName, lines);
}

} // namespace sim
