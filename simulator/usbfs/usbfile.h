#pragma once

#include "clientmemory.h"
#include "nodeowner.h"
#include "timer.h"

#include <chrono>
#include <functional>
#include <list>
#include <optional>
#include <set>

namespace sim {

// A device node that a program holds open: its claims and its transfers.
class UsbFile
{
public:
    // address: of the device. onReadyChanged is called when canReap() may have changed.
    UsbFile(NodeOwner &owner, unsigned address, std::function<void()> onReadyChanged);
    // What is still under way is abandoned.
    ~UsbFile();
    UsbFile(const UsbFile &) = delete;
    UsbFile &operator=(const UsbFile &) = delete;

    // The three ioctls of a transfer. 0, or an errno.
    int submit(const ClientMemory &urb);
    int discard(uint64_t urbAddress);
    int reap(const ClientMemory &pointer);
    bool canReap() const;

    // The device is gone: what is under way ends.
    void disconnect();

    unsigned number() const { return fileNumber; }
    bool claimed(unsigned interface) const { return claims.count(interface) > 0; }
    void setClaimed(unsigned interface, bool claim);

private:
    struct Urb
    {
        ClientMemory urb;
        ClientMemory buffer; // setup stage, then data
        TransferRecord record;
        Outcome outcome;
        bool ready = false;
        int status = 0;                                           // negative errno once ready
        std::optional<std::chrono::steady_clock::time_point> due; // when it was to be delayed
        Timer delay;
    };
    void answer(Urb &urb, const Completion &completion);
    void finish(Urb &urb, int status, const char *statusText);
    void writeBack(const Urb &urb) const;
    void noteLateness(const Urb &urb);

    NodeOwner &owner;
    unsigned address;
    std::function<void()> onReadyChanged;
    unsigned fileNumber;
    std::set<unsigned> claims; // interfaces
    std::list<Urb> urbs;       // in the order of submission
};

} // namespace sim
