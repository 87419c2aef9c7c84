#include "edidmemory.h"

namespace sim {

void EdidMemory::preset(Bytes edid)
{
    completed = std::move(edid);
    writing = false;
}

void EdidMemory::start()
{
    staging = completed;
    writing = true;
}

Verdict EdidMemory::write(const Bytes &edid)
{
    if (!writing) {
        return Verdict::violation("EDID without a start");
    }
    staging = edid;
    return Verdict::taken();
}

Verdict EdidMemory::complete()
{
    if (!writing) {
        return Verdict::violation("EDID completion without a start");
    }
    completed = staging;
    writing = false;
    return Verdict::taken();
}

} // namespace sim
