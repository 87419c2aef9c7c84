#pragma once

#include "bytes.h"
#include "protocol.h"

#include <optional>
#include <vector>

namespace sim {

// Something that goes wrong on purpose.
struct Fault
{
    enum class Where { Transfer, Request, Start, String, Claim, Open };
    enum class Action {
        Stall,
        Silence,
        Disconnect,
        Protocol,
        Overflow,
        Short,
        Data,
        Zeros,
        Delay,
        Busy,
        NotFound,
        NoDevice,
        Denied,
    };

    Where where = Where::Transfer;
    uint8_t code = 0;                   // Request: bRequest; String: index of the descriptor
    std::optional<Direction> direction; // Request
    std::optional<uint16_t> index;      // Request: wIndex
    unsigned nth = 1;                   // 0 = every time
    Action action = Action::Stall;
    unsigned amount = 0; // Short: bytes; Zeros: polls; Delay: milliseconds
    Bytes data;          // Data
    bool performed = false;
    std::optional<unsigned> replugMs;      // Disconnect
    std::optional<unsigned> replugAddress; // Disconnect
};

// The faults of one device, each with a count of what it has matched.
class FaultPlan
{
public:
    void add(Fault fault) { entries.push_back({std::move(fault), 0}); }
    void clear() { entries.clear(); }

    // The fault that strikes this transfer, this claim; every call counts as one more.
    std::optional<Fault> strikeTransfer(const Setup &setup);
    std::optional<Fault> strikeClaim();
    // The fault on opening that is in force, if any.
    std::optional<Fault> openFault() const;

private:
    struct Entry
    {
        Fault fault;
        unsigned count;
    };
    std::vector<Entry> entries;
};

} // namespace sim
