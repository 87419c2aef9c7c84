#include "fault.h"

namespace sim {
namespace {

constexpr uint8_t s_getDescriptor = 6;
constexpr uint8_t s_stringType = 3;

bool matchesRequest(const Fault &fault, const Setup &setup)
{
    return setup.isVendor() && setup.request == fault.code &&
           (!fault.direction || *fault.direction == setup.direction()) &&
           (!fault.index || *fault.index == setup.index);
}

bool matches(const Fault &fault, const Setup &setup)
{
    switch (fault.where) {
    case Fault::Where::Transfer:
        return true;
    case Fault::Where::Request:
        return matchesRequest(fault, setup);
    case Fault::Where::Start:
        return setup.requestType == VendorOut && setup.request == MemoryAccess && setup.length == 0;
    case Fault::Where::String:
        return setup.requestType == 0x80 && setup.request == s_getDescriptor &&
               setup.value == (s_stringType << 8 | fault.code);
    case Fault::Where::Claim:
    case Fault::Where::Open:
        break;
    }
    return false;
}

} // namespace

std::optional<Fault> FaultPlan::strikeTransfer(const Setup &setup)
{
    std::optional<Fault> struck;
    for (Entry &entry : entries) {
        if (!matches(entry.fault, setup)) {
            continue;
        }
        ++entry.count;
        if (!struck && (entry.fault.nth == 0 || entry.fault.nth == entry.count)) {
            struck = entry.fault;
        }
    }
    return struck;
}

std::optional<Fault> FaultPlan::strikeClaim()
{
    std::optional<Fault> struck;
    for (Entry &entry : entries) {
        if (entry.fault.where != Fault::Where::Claim) {
            continue;
        }
        ++entry.count;
        if (!struck && (entry.fault.nth == 0 || entry.fault.nth == entry.count)) {
            struck = entry.fault;
        }
    }
    return struck;
}

std::optional<Fault> FaultPlan::openFault() const
{
    for (const Entry &entry : entries) {
        if (entry.fault.where == Fault::Where::Open) {
            return entry.fault;
        }
    }
    return std::nullopt;
}

} // namespace sim
