#include "peakmemory.h"

#include <windows.h>

#include <psapi.h>

long peakMemory()
{
    PROCESS_MEMORY_COUNTERS usage{};
    GetProcessMemoryInfo(GetCurrentProcess(), &usage, sizeof(usage));
    return static_cast<long>(usage.PeakWorkingSetSize / (1024 * 1024));
}
