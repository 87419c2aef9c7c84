#pragma once

#include <cstdint>
#include <vector>

class ZipFile;

// Reads an FX3 boot image (the format that the controller's boot ROM takes, Infineon AN76405) piece
// by piece from a package entry. All numbers are little-endian:
//
//   "CY", image control byte, image type byte
//   sections: u32 length in 32-bit words, u32 load address, the data
//   u32 0, u32 entry address
//   u32 checksum: the sum modulo 2^32 of all data words of all sections
//
// The image is not trusted: a length is checked before anything is read or allocated for it.
class BootImage
{
public:
    enum class Header {
        Good,
        Foreign, // does not begin with "CY": not a boot image
        Broken,  // ends within the header
    };

    enum class Record {
        Section, // sectionAddress() and sectionData() hold it
        Entry,   // the last record: entryAddress() holds it
        Broken,  // the image ends or cannot be read, or the section is too long
    };

    // The longest section that is taken, in bytes.
    static constexpr std::uint32_t LongestSection = 0x200000;

    explicit BootImage(ZipFile &source);

    // Reads the signature and the two bytes after it, which matter to the boot ROM only. Call it
    // first.
    Header readHeader();
    // Reads one record; call it until it says anything but Section.
    Record readRecord();
    // Reads the checksum that follows the entry record; returns whether the sections add up to it.
    bool verifyChecksum();

    std::uint32_t sectionAddress() const { return address; }
    const std::vector<std::uint8_t> &sectionData() const { return data; }
    std::uint32_t entryAddress() const { return address; }

private:
    bool readExactly(void *buffer, std::uint64_t length);
    bool readNumber(std::uint32_t &number);

    ZipFile &file;
    std::uint32_t address = 0; // of the record read last
    std::vector<std::uint8_t> data;
    std::uint32_t sum = 0;
};
