#include "imagememory.h"

#include <cstring>

namespace sim {
namespace {

constexpr uint16_t s_headerSize = 12;
constexpr uint16_t s_checksumSize = 4;

} // namespace

void ImageMemory::preset(Bytes image)
{
    completed = std::move(image);
    staging.clear();
    currentState = State::Complete;
    busy = 0;
}

void ImageMemory::start(unsigned busyPolls)
{
    completed.clear();
    staging.clear();
    currentState = State::Writing;
    busy = busyPolls;
    begin();
}

Verdict ImageMemory::write(const Bytes &block, uint16_t wireLength, unsigned busyPolls)
{
    if (currentState != State::Writing) {
        return Verdict::violation("block without a start");
    }
    if (busy > 0) {
        return Verdict::violation("block while busy");
    }
    bool busyAfter = true;
    Verdict verdict = take(block, wireLength, busyAfter);
    if (verdict.kind == Verdict::Taken && busyAfter) {
        busy = busyPolls;
    }
    return verdict;
}

Verdict ImageMemory::complete()
{
    if (currentState != State::Writing) {
        return Verdict::violation("completion without a start");
    }
    if (busy > 0) {
        return Verdict::violation("completion while busy");
    }
    Verdict verdict = check();
    if (verdict.kind == Verdict::Taken) {
        completed = std::move(staging);
        staging.clear();
        currentState = State::Complete;
    }
    return verdict;
}

uint8_t ImageMemory::poll()
{
    if (busy == 0) {
        return 1;
    }
    --busy;
    return 0;
}

void ImageMemory::powerCycle()
{
    busy = 0;
    if (currentState != State::Writing) {
        return;
    }
    staging.clear();
    currentState = State::Blank;
}

Verdict ImageMemory::take(const Bytes &block, uint16_t, bool &)
{
    staging.insert(staging.end(), block.begin(), block.end());
    return Verdict::taken();
}

void FramedBitstreamMemory::begin()
{
    headerSeen = false;
    checksumSeen = false;
    announcedSize = 0;
    mismatch.clear();
}

Verdict FramedBitstreamMemory::take(const Bytes &block, uint16_t wireLength, bool &busyAfter)
{
    if (!headerSeen) {
        if (wireLength != s_headerSize) {
            return Verdict::violation("bitstream does not begin with a header block of 12 bytes");
        }
        takeHeader(block);
        busyAfter = false;
    } else if (staging.size() < announcedSize) {
        takeData(block);
    } else {
        takeChecksum(block);
    }
    return Verdict::taken();
}

void FramedBitstreamMemory::takeHeader(const Bytes &block)
{
    headerSeen = true;
    if (block.size() != s_headerSize || std::memcmp(block.data(), "FPGA", 4) != 0) {
        mismatch = "header without its magic";
    } else if (readLe32(&block[8]) != crc32Of(block.data(), 8)) {
        mismatch = "header checksum does not match";
    } else {
        announcedSize = readLe32(&block[4]);
    }
}

void FramedBitstreamMemory::takeData(const Bytes &block)
{
    staging.insert(staging.end(), block.begin(), block.end());
    if (staging.size() > announcedSize && mismatch.empty()) {
        mismatch = "more data than the header announced";
    }
}

void FramedBitstreamMemory::takeChecksum(const Bytes &block)
{
    const bool first = !checksumSeen;
    checksumSeen = true;
    if (!mismatch.empty()) {
        return;
    }
    if (!first || block.size() != s_checksumSize) {
        mismatch = "more data than the header announced";
    } else if (readLe32(block.data()) != crc32Of(staging)) {
        mismatch = "image checksum does not match";
    }
}

Verdict FramedBitstreamMemory::check() const
{
    if (!mismatch.empty()) {
        return Verdict::refused(mismatch);
    }
    if (!headerSeen) {
        return Verdict::refused("no header came");
    }
    if (!checksumSeen) {
        return Verdict::refused("the image is not whole");
    }
    return Verdict::taken();
}

} // namespace sim
