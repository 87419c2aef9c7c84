#include "fx3image.h"

namespace sim {
namespace {

constexpr size_t s_preambleSize = 4; // "CY", control byte, type byte
constexpr size_t s_recordSize = 8;   // words, address

uint32_t sumOfWords(const Bytes &data)
{
    uint32_t sum = 0;
    for (size_t i = 0; i + 4 <= data.size(); i += 4) {
        sum += readLe32(&data[i]);
    }
    return sum;
}

} // namespace

std::optional<BootImage> parseBootImage(const Bytes &bytes)
{
    if (bytes.size() < s_preambleSize || bytes[0] != 'C' || bytes[1] != 'Y') {
        return std::nullopt;
    }
    BootImage image;
    uint32_t sum = 0;
    size_t at = s_preambleSize;
    while (bytes.size() - at >= s_recordSize) {
        const uint64_t size = uint64_t{readLe32(&bytes[at])} * 4;
        const uint32_t address = readLe32(&bytes[at + 4]);
        at += s_recordSize;
        if (size == 0) {
            image.entry = address;
            if (bytes.size() - at < 4 || readLe32(&bytes[at]) != sum) {
                return std::nullopt;
            }
            return image;
        }
        if (size > bytes.size() - at) {
            return std::nullopt;
        }
        const auto begin = bytes.begin() + static_cast<Bytes::difference_type>(at);
        image.sections.push_back({address, Bytes(begin, begin + static_cast<long>(size))});
        sum += sumOfWords(image.sections.back().data);
        at += size;
    }
    return std::nullopt;
}

} // namespace sim
