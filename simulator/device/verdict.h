#pragma once

#include <string>
#include <utility>

namespace sim {

// What a device thinks of a request. Both refusals stall it; only a violation is the program's
// fault.
struct Verdict
{
    enum Kind { Taken, Refused, Violation };
    Kind kind = Taken;
    std::string text; // why it was not taken

    static Verdict taken() { return {}; }
    static Verdict refused(std::string why) { return {Refused, std::move(why)}; }
    static Verdict violation(std::string why) { return {Violation, std::move(why)}; }
};

} // namespace sim
