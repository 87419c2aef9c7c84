#include "inputtimeline.h"

#include <algorithm>

namespace sim {
namespace {

constexpr size_t s_infoSize = 12;
constexpr size_t s_nameSize = 8;

void appendText(Bytes &record, const std::string &text, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        record.push_back(i < text.size() ? static_cast<uint8_t>(text[i]) : 0);
    }
}

} // namespace

Bytes toRecord(const InputSignal &signal)
{
    Bytes record;
    appendText(record, signal.info, s_infoSize);
    appendText(record, signal.name, s_nameSize);
    appendLe32(record, signal.frameRate);
    appendLe16(record, signal.width);
    appendLe16(record, signal.height);
    record.push_back(signal.interlaced ? 1 : 0);
    return record;
}

void InputTimeline::add(uint64_t atMs, InputSignal signal)
{
    const auto after = std::upper_bound(entries.begin(), entries.end(), atMs,
                                        [](uint64_t ms, const Entry &e) { return ms < e.atMs; });
    entries.insert(after, {atMs, std::move(signal)});
}

InputSignal InputTimeline::at(uint64_t ms) const
{
    const uint64_t moment = period ? ms % period : ms;
    InputSignal current;
    for (const Entry &entry : entries) {
        if (entry.atMs > moment) {
            break;
        }
        current = entry.signal;
    }
    return current;
}

} // namespace sim
