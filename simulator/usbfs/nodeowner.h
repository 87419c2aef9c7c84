#pragma once

#include "controlpipe.h"
#include "transcript.h"

namespace sim {

// What a device node asks of the device behind it.
class NodeOwner
{
public:
    virtual ~NodeOwner() = default;

    virtual unsigned nextTransferNumber() = 0;
    virtual unsigned nextFileNumber() = 0;
    // A program has made an ioctl on the node: "SUBMITURB" and so on.
    virtual void called(const char *ioctl) = 0;
    virtual Completion control(const Setup &setup, const Bytes &out, bool claimed) = 0;
    // 0, or the errno with which a claim fails on purpose.
    virtual int claimFault() = 0;
    // A transfer has been answered or given up.
    virtual void finished(unsigned address, const TransferRecord &record) = 0;
    // A program has fetched the answer of a transfer that was to be delayed, or has given it up, so
    // long after the answer was due.
    virtual void late(unsigned ms) = 0;
    // The transfer just submitted takes the device off the bus, or code was started in it.
    virtual void afterTransfer(const Completion &completion) = 0;
    virtual void event(unsigned address, const char *name, const JsonObject &details) = 0;
    virtual void filesChanged() = 0;
};

} // namespace sim
