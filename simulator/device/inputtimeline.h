#pragma once

#include "bytes.h"

#include <string>
#include <vector>

namespace sim {

// What the device's input receives; all zero means that there is no signal.
struct InputSignal
{
    uint16_t width = 0;
    uint16_t height = 0;
    bool interlaced = false;
    uint32_t frameRate = 0; // thousandths of a frame per second
    std::string name;       // at most 8 bytes on the wire
    std::string info;       // at most 12 bytes on the wire
};

// The 29-byte record with which the device answers.
Bytes toRecord(const InputSignal &signal);

// Signals over time.
class InputTimeline
{
public:
    // From atMs on. Entries may be added in any order; of two at one time the later one counts.
    void add(uint64_t atMs, InputSignal signal);
    void clear() { entries.clear(); }
    bool empty() const { return entries.empty(); }
    // Begins again every periodMs; 0 = never.
    void repeatEvery(uint64_t periodMs) { period = periodMs; }

    InputSignal at(uint64_t ms) const;

private:
    struct Entry
    {
        uint64_t atMs;
        InputSignal signal;
    };
    std::vector<Entry> entries; // ascending
    uint64_t period = 0;
};

} // namespace sim
