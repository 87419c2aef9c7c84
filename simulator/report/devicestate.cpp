#include "devicestate.h"

#include "json.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace sim {
namespace {

JsonObject &addText(JsonObject &object, const char *key, const std::optional<std::string> &text)
{
    return object.addRaw(key, text ? jsonString(*text) : "null");
}

std::string memoryJson(const char *state, const Bytes &content)
{
    char crc[16];
    std::snprintf(crc, sizeof crc, "%08x", crc32Of(content));
    return JsonObject().add("state", state).add("size", content.size()).add("crc32", crc).text();
}

std::string imageJson(const ImageMemory &memory)
{
    switch (memory.state()) {
    case ImageMemory::State::Blank:
        return memoryJson("blank", {});
    case ImageMemory::State::Writing:
        return memoryJson("writing", memory.staged());
    case ImageMemory::State::Complete:
        break;
    }
    return memoryJson("complete", memory.image());
}

std::string edidJson(const EdidMemory &edid)
{
    if (edid.isWriting()) {
        return memoryJson("writing", edid.staged());
    }
    return memoryJson(edid.image().empty() ? "blank" : "complete", edid.image());
}

std::string userModesJson(const CaptureDevice &device)
{
    std::string list;
    for (const UserModeRecord &mode : device.userModes()) {
        const JsonObject object = JsonObject()
                                      .add("width", mode.width)
                                      .add("height", mode.height)
                                      .add("disabled", mode.disabled);
        list += (list.empty() ? "" : ",") + object.text();
    }
    return "[" + list + "]";
}

std::string violationsJson(const CaptureDevice &device)
{
    std::string list;
    for (const std::string &text : device.violations()) {
        list += (list.empty() ? "" : ",") + jsonString(text);
    }
    return "[" + list + "]";
}

std::string callsJson(const std::map<std::string, unsigned> &calls)
{
    JsonObject object;
    for (const auto &[name, count] : calls) {
        object.add(name.c_str(), count);
    }
    return object.text();
}

void writeFile(const std::string &path, const void *data, size_t size)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char *>(data), static_cast<std::streamsize>(size));
    file.flush();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace

std::string stateJson(const CaptureDevice &device, const Presence &presence)
{
    const DeviceConfig &config = device.config();
    JsonObject object;
    object.add("name", config.name)
        .add("product", config.product->name)
        .add("mode", toText(device.mode()))
        .add("plugged", presence.plugged)
        .add("id", toText(device.id()))
        .add("bus", presence.bus)
        .add("port", presence.port)
        .add("address", presence.address);
    addText(object, "version", device.version());
    addText(object, "serial", device.serial());
    object.add("flags", device.flags())
        .addRaw("userModes", userModesJson(device))
        .addRaw("microcode", imageJson(device.microcode()))
        .addRaw("fpga", imageJson(device.bitstream()))
        .addRaw("edid", edidJson(device.edid()))
        .add("transfers", presence.transfers)
        .add("openFiles", presence.openFiles)
        .addRaw("calls", callsJson(presence.calls))
        .add("lateMs", presence.lateMs)
        .addRaw("violations", violationsJson(device));
    return object.text();
}

void writeMemoryFiles(const CaptureDevice &device, const std::string &state,
                      const std::string &directory)
{
    std::filesystem::create_directories(directory);
    const auto write = [&directory](const char *name, const Bytes &bytes) {
        writeFile(directory + "/" + name, bytes.data(), bytes.size());
    };
    write("fx3.bin", device.microcode().image());
    write("fpga.bin", device.bitstream().image());
    write("edid.bin", device.edid().image());
    const std::string line = state + "\n";
    writeFile(directory + "/state.json", line.data(), line.size());
}

} // namespace sim
