#pragma once

#include <vector>

// What the program's exit status says. The numbers are part of its interface (see the man page).
enum class ExitStatus {
    Done = 0,       // also: nothing to list, nothing left to update
    Failed = 1,     // a device or a package failed
    Usage = 2,      // the command line makes no sense
    NoDevice = 3,   // no such device, or not exactly one
    NoAccess = 4,   // no right to open the device, or another program holds it
    SomeFailed = 5, // of several devices or packages, some were done and some failed
};

// What several of them come to together; Done for none.
ExitStatus combined(const std::vector<ExitStatus> &statuses);
