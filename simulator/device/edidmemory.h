#pragma once

#include "bytes.h"
#include "verdict.h"

namespace sim {

// The EDID that the device shows to its source. Written in one piece; the old one stays until the
// completion, so a write that is cut short breaks nothing.
class EdidMemory
{
public:
    void preset(Bytes edid);
    void start();
    Verdict write(const Bytes &edid);
    Verdict complete();
    void powerCycle() { writing = false; }

    bool isWriting() const { return writing; }
    const Bytes &image() const { return completed; }
    const Bytes &staged() const { return staging; }

private:
    Bytes completed;
    Bytes staging;
    bool writing = false;
};

} // namespace sim
