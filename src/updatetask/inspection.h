#pragma once

#include "package.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// What a package and its images are, as far as that can be told without a device. Pure like
// package.h: no thread, no bus, nothing throws, and what is read of an entry is bounded.

// One entry of the package.
struct InspectedEntry
{
    enum class Role {
        Bitstream,
        Microcode,
        Sandbox,
        Edid,
        ProductKey,
        Other, // not read in an update, and so not looked at here
    };
    struct Section
    {
        std::uint32_t address;
        std::uint32_t length; // bytes
    };

    QString name;
    Role role = Role::Other;
    std::optional<quint64> size; // bytes, and
    std::optional<quint32> crc;  // CRC-32, as the archive states them

    // A boot image: the sandbox always, microcode when it looks like one. A hostile image has any
    // number of sections; the first of them stand here.
    std::vector<Section> sections;
    std::size_t sectionCount = 0;
    std::optional<quint32> entryAddress; // there when the image was read to its end and adds up
    int edidBlocks = 0;                  // of 128 bytes

    // What is wrong with it: the text with which an update ends, where an update would notice.
    QString failure;
    // What is odd about microcode although an update would write it: it begins like a boot image
    // and is no whole one.
    QString remark;
};

struct Inspection
{
    Package package;
    std::vector<InspectedEntry> entries; // in the archive's order

    // Nothing is wrong with the package or any image.
    bool isGood() const;
};

// The most sections of an image that are written down.
constexpr std::size_t MostListedSections = 64;

// The longest image that is looked at, in bytes; far more than any device has memory for.
constexpr quint64 LongestInspectedImage = quint64{64} * 1024 * 1024;

Inspection inspect_package(Zip &archive);

// Why no repair can begin with the package of this product: its sandbox cannot be opened. Empty
// when it can.
QString closed_sandbox(Zip &archive, const ProductInfo &product);
