#include "edid.h"

#include <cstddef>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>

namespace {

constexpr int s_headerLines = 3;
constexpr std::size_t s_lineBytes = 16;
constexpr int s_blockLines = 8;
constexpr std::size_t s_blockBytes = s_lineBytes * s_blockLines;

// Appends the 16 bytes of one data line; false, with the reason logged, when it does not hold them.
bool parseLine(const std::string &line, int number, std::vector<std::uint8_t> &bytes)
{
    const std::size_t delimiter = line.find('|');
    if (delimiter == std::string::npos) {
        std::cerr << "Error: vertical delimiter (|) not found, line: " << number << std::endl;
        return false;
    }
    std::istringstream numbers(line.substr(delimiter + 1));
    numbers.imbue(std::locale::classic());
    numbers >> std::hex;
    std::size_t found = 0;
    for (unsigned value = 0; numbers >> value; ++found) {
        if (found == s_lineBytes) {
            std::cerr << "Error: line overflow, line " << number << std::endl;
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(value));
    }
    if (found < s_lineBytes) {
        std::cerr << "Error: line underflow, line: " << number << std::endl;
        return false;
    }
    return true;
}

bool checksumsHold(const std::vector<std::uint8_t> &bytes)
{
    std::uint8_t total = 0; // over all blocks: each adds zero
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        total = static_cast<std::uint8_t>(total + bytes[i]);
        if ((i + 1) % s_blockBytes != 0 || total == 0) {
            continue;
        }
        const auto expected = static_cast<std::uint8_t>(total - bytes[i]);
        std::cerr << "Checksum of the block " << i / s_blockBytes << " mismatch, expected: 0x"
                  << std::hex << unsigned(expected) << ", readed: 0x" << unsigned(bytes[i])
                  << std::dec << std::endl;
        return false;
    }
    return true;
}

EdidResult failed(EdidStatus status)
{
    return {{}, status};
}

} // namespace

EdidResult parse_edid(std::istream &in)
{
    std::string line;
    for (int i = 0; i < s_headerLines; ++i) {
        std::getline(in, line);
    }

    EdidResult result;
    int lines = 0;
    while (std::getline(in, line)) {
        lines += 1;
        if (!parseLine(line, lines, result.bytes)) {
            return failed(EdidFormatError);
        }
    }
    if (lines == 0 || lines % s_blockLines != 0) {
        std::cerr << "Unexpected lines count: " << lines << ", should be dividable by "
                  << s_blockLines << std::endl;
        return failed(EdidFormatError);
    }
    if (!checksumsHold(result.bytes)) {
        return failed(EdidChecksumError);
    }
    return result;
}
