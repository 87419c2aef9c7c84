#pragma once

#include "bytes.h"

#include <optional>

namespace sim {

// An FX3 boot image: "CY", two bytes, sections of (words, address, data), a section of 0 words
// whose address is the entry, and the sum of all data words.
struct BootImage
{
    struct Section
    {
        uint32_t address = 0;
        Bytes data;
    };
    std::vector<Section> sections;
    uint32_t entry = 0;
};

// Nothing when the bytes are no whole boot image with a matching checksum.
std::optional<BootImage> parseBootImage(const Bytes &bytes);

} // namespace sim
