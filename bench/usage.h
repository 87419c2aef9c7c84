#pragma once

#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <string>

// What this process has used so far.

inline double wallSeconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Processor time of all threads, user and system.
inline double processorSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return double(time.tv_sec) + double(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A line of /proc/self/status, in KiB: "VmRSS:" is the resident size.
inline long statusKib(const std::string &name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name, 0) == 0) {
            return std::stol(line.substr(name.size()));
        }
    }
    return 0;
}

// Highest resident size, in KiB. ru_maxrss would include the parent's before exec().
inline long peakKib()
{
    return statusKib("VmHWM:");
}
