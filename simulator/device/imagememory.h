#pragma once

#include "bytes.h"
#include "verdict.h"

namespace sim {

// A memory that takes an image between a start and a completion, and is busy for a number of status
// polls after the start and after each block. The base stores what comes, as the microcode memory
// does.
class ImageMemory
{
public:
    enum class State { Blank, Writing, Complete };

    explicit ImageMemory(State state) : currentState(state) {}
    virtual ~ImageMemory() = default;

    // Puts an image in place without the protocol.
    void preset(Bytes image);

    // Begins anew, also in the middle of a write or while busy.
    void start(unsigned busyPolls);
    // Takes a block of which the setup stage announced wireLength bytes; fewer may have come
    // through.
    Verdict write(const Bytes &block, uint16_t wireLength, unsigned busyPolls);
    Verdict complete();
    // One status poll: 0 while busy, then 1.
    uint8_t poll();
    void addBusy(unsigned polls) { busy += polls; }
    void endBusy() { busy = 0; }
    // A write that was under way is lost, and with it the old image.
    void powerCycle();

    State state() const { return currentState; }
    // The completed image; empty while there is none.
    const Bytes &image() const { return completed; }
    // Bytes of the image that have come so far in a write that is under way.
    const Bytes &staged() const { return staging; }

protected:
    virtual void begin() {}
    // Adds a block to the staged image. Sets busyAfter to false for what needs no time to store.
    virtual Verdict take(const Bytes &block, uint16_t wireLength, bool &busyAfter);
    // Whether the staged image is whole.
    virtual Verdict check() const { return Verdict::taken(); }
    Bytes staging;

private:
    State currentState;
    Bytes completed;
    unsigned busy = 0;
};

// A bitstream of the first generation comes in a frame: header block, data, checksum. What does not
// match is found out at the completion, which is refused.
class FramedBitstreamMemory : public ImageMemory
{
public:
    using ImageMemory::ImageMemory;

protected:
    void begin() override;
    Verdict take(const Bytes &block, uint16_t wireLength, bool &busyAfter) override;
    Verdict check() const override;

private:
    void takeHeader(const Bytes &block);
    void takeData(const Bytes &block);
    void takeChecksum(const Bytes &block);

    bool headerSeen = false;
    bool checksumSeen = false;
    uint32_t announcedSize = 0;
    std::string mismatch; // the first thing that was wrong
};

} // namespace sim
