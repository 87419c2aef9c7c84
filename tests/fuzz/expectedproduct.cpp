#include "expectedproduct.h"

const ProductFacts *findProduct(const std::string &key)
{
    for (const ProductFacts *product : allProducts()) {
        if (key == product->key) {
            return product;
        }
    }
    return key == "legacy" ? &legacyVelk3 : nullptr;
}

std::string productKey(const std::string &content)
{
    constexpr std::size_t pieceSize = 15;
    constexpr std::size_t mostRead = 65550; // the first whole number of pieces from 64 KiB on
    const std::string line = content.substr(0, content.find('\n')).substr(0, mostRead);
    std::string key;
    for (std::size_t at = 0; at < line.size(); at += pieceSize) {
        const std::string piece = line.substr(at, pieceSize);
        key += piece.substr(0, piece.find('\0'));
    }
    return key;
}
