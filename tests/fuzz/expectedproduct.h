#pragma once

#include <string>

// What product.info and the catalogue mean, written down a second time on purpose: the fuzz targets
// compare it with what the program makes of a package.

struct ExpectedProduct
{
    const char *key;
    const char *fpga;
    const char *fx3;
    const char *sandbox;
    const char *edid; // null: the product has none
    bool framedFpga;  // the bitstream goes out with a header block and a CRC
};

// Null when there is no such product.
const ExpectedProduct *findProduct(const std::string &key);

// The product key that this content of product.info stands for: it is read in pieces of 15 bytes up
// to the first line feed; a NUL hides the rest of its piece.
std::string productKey(const std::string &content);
