#pragma once

#include "products.h"

#include <string>

// What product.info means to the fuzz targets, which compare it with what the program makes of a
// package.

// Null when there is no such product.
const ProductFacts *findProduct(const std::string &key);

// The product key that this content of product.info stands for: it is read in pieces of 15 bytes up
// to the first line feed, and up to 64 KiB; a NUL hides the rest of its piece.
std::string productKey(const std::string &content);
