#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

enum EdidStatus {
    EdidGood = 0,
    EdidFormatError = 1,
    EdidChecksumError = 2,
};

struct EdidResult
{
    // Whole EDID blocks of 128 bytes each; empty unless the status is good.
    std::vector<std::uint8_t> bytes;
    int status = EdidGood; // an EdidStatus
};

// Reads an EDID in its text form: three lines of heading, then lines of 16 hexadecimal bytes, each
// after a "|", eight lines to a block of 128 bytes:
//
//   0x10 | 00 ff ff ff ff ff ff 00 0a 1b 2c 3d 4e 5f 60 71
//
// Numbers are read as formatted extraction from a stream in base 16 reads them, so a line's numbers
// end at the first thing that is none; of each number the low 8 bits count. Each block must sum to
// zero modulo 256 (VESA E-EDID, block checksum). What is wrong with the text is said in one line on
// std::cerr.
EdidResult parse_edid(std::istream &in);
