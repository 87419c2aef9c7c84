#include "transcript.h"

#include <stdexcept>

namespace sim {
namespace {

constexpr size_t s_shownBytes = 64;
const char *const s_standardNames[] = {
    "GET_STATUS",    "CLEAR_FEATURE",  nullptr,          "SET_FEATURE",       nullptr,
    "SET_ADDRESS",   "GET_DESCRIPTOR", "SET_DESCRIPTOR", "GET_CONFIGURATION", "SET_CONFIGURATION",
    "GET_INTERFACE", "SET_INTERFACE",
};

const char *nameOf(const Setup &setup)
{
    if (setup.isVendor()) {
        return requestName(setup.request);
    }
    const bool known = setup.isStandard() && setup.request < std::size(s_standardNames);
    return known ? s_standardNames[setup.request] : nullptr;
}

std::string crcText(const Bytes &data)
{
    char text[16];
    std::snprintf(text, sizeof text, "%08x", crc32Of(data));
    return text;
}

} // namespace

Transcript::Transcript(const std::string &path, bool fullData)
    : file(std::fopen(path.c_str(), "we")), full(fullData)
{
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

uint64_t Transcript::nowMs() const
{
    const auto since = std::chrono::steady_clock::now() - started;
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

JsonObject Transcript::begin(const std::string &device, unsigned address) const
{
    const auto since = std::chrono::steady_clock::now() - started;
    const double ms = std::chrono::duration<double, std::milli>(since).count();
    char time[32];
    std::snprintf(time, sizeof time, "%.3f", ms);
    JsonObject line;
    line.addRaw("t", time).add("device", device).add("address", address);
    return line;
}

void Transcript::transfer(const std::string &device, unsigned address, const TransferRecord &record)
{
    const Setup &setup = record.setup;
    JsonObject line = begin(device, address);
    line.add("transfer", record.number)
        .add("requestType", setup.requestType)
        .add("request", setup.request);
    if (nameOf(setup)) {
        line.add("name", nameOf(setup));
    }
    line.add("value", setup.value)
        .add("index", setup.index)
        .add("length", setup.length)
        .add("actual", record.actual);
    if (full || record.data.size() <= s_shownBytes) {
        line.add("data", toHex(record.data));
    } else {
        line.add("crc32", crcText(record.data));
    }
    line.add("status", record.status);
    if (record.faulted) {
        line.add("fault", true);
    }
    write(line);
}

void Transcript::event(const std::string &device, unsigned address, const char *event,
                       const JsonObject &details)
{
    write(begin(device, address).add("event", event).append(details));
}

void Transcript::write(const JsonObject &line)
{
    std::fputs((line.text() + "\n").c_str(), file.get());
    std::fflush(file.get());
}

} // namespace sim
