#pragma once

#include "capturedevice.h"
#include "fault.h"

namespace sim {

// What becomes of a control transfer once faults and latency have had their say.
struct Completion
{
    Outcome outcome;
    unsigned delayMs = 0;
    bool faulted = false;
    // The device is unplugged instead of answering.
    bool disconnect = false;
    std::optional<unsigned> replugMs;
    std::optional<unsigned> replugAddress;
};

// Carries a control transfer to the device, unless a fault of the plan gets in its way.
Completion transfer(CaptureDevice &device, FaultPlan &faults, const Setup &setup, const Bytes &out,
                    bool claimed, uint64_t nowMs);

} // namespace sim
