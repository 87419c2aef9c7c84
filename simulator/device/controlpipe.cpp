#include "controlpipe.h"

#include <algorithm>

namespace sim {
namespace {

// The status with which a fault replaces the device's answer, or Ok for faults that do not.
Status lostStatus(Fault::Action action)
{
    switch (action) {
    case Fault::Action::Stall:
        return Status::Stall;
    case Fault::Action::Silence:
        return Status::Silence;
    case Fault::Action::Disconnect:
        return Status::NoDevice;
    case Fault::Action::Protocol:
        return Status::Protocol;
    case Fault::Action::Overflow:
        return Status::Overflow;
    default:
        return Status::Ok;
    }
}

// A transfer and those who take part in it.
struct Exchange
{
    CaptureDevice &device;
    const Setup &setup;
    const Bytes &out;
    bool claimed;
    uint64_t nowMs;

    Outcome perform() const { return device.control(setup, out, claimed, nowMs); }

    Outcome performShort(size_t size) const
    {
        if (setup.direction() == Direction::Out) {
            const size_t kept = std::min(size, out.size());
            const Bytes cut(out.begin(), out.begin() + static_cast<Bytes::difference_type>(kept));
            return device.control(setup, cut, claimed, nowMs);
        }
        Outcome outcome = perform();
        outcome.data.resize(std::min(size, outcome.data.size()));
        outcome.actual = outcome.data.size();
        return outcome;
    }

    Outcome answerInstead(const Bytes &data) const
    {
        if (setup.direction() == Direction::Out) {
            return perform();
        }
        Bytes bytes(data.begin(),
                    data.begin() + static_cast<long>(std::min<size_t>(data.size(), setup.length)));
        if (setup.isVendor() && !bytes.empty()) {
            device.statusAnswered(setup.request, bytes[0]);
        }
        return Outcome::answer(std::move(bytes));
    }

    Outcome performWith(const Fault &fault) const
    {
        switch (fault.action) {
        case Fault::Action::Short:
            return performShort(fault.amount);
        case Fault::Action::Data:
            return answerInstead(fault.data);
        case Fault::Action::Zeros:
            device.addBusy(setup.request, fault.amount);
            return perform();
        default:
            return perform();
        }
    }
};

} // namespace

Completion transfer(CaptureDevice &device, FaultPlan &faults, const Setup &setup, const Bytes &out,
                    bool claimed, uint64_t nowMs)
{
    const Exchange exchange{device, setup, out, claimed, nowMs};
    const std::optional<Fault> fault = faults.strikeTransfer(setup);
    Completion completion;
    completion.delayMs = device.config().latencyMs;
    if (!fault) {
        completion.outcome = exchange.perform();
        return completion;
    }
    completion.faulted = true;
    const Status lost = lostStatus(fault->action);
    if (lost == Status::Ok || fault->performed) {
        completion.outcome = exchange.performWith(*fault);
    }
    if (lost != Status::Ok) {
        completion.outcome = Outcome();
        completion.outcome.status = lost;
    }
    if (fault->action == Fault::Action::Delay) {
        completion.delayMs += fault->amount;
    }
    completion.disconnect = fault->action == Fault::Action::Disconnect;
    completion.replugMs = fault->replugMs;
    completion.replugAddress = fault->replugAddress;
    return completion;
}

} // namespace sim
