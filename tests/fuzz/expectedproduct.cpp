#include "expectedproduct.h"

namespace {

constexpr ExpectedProduct s_expected[] = {
    {"legacy", "velk3.bin", "QuorlinDriverlessGrabber.img", "usb-sandbox.img",
     "edid_velk3_uvc.edid", true},
    {"velk3", "velk3.bin", "velk3.img", "velk3-sandbox.img", "edid_velk3_uvc.edid", true},
    {"sorn3", "sorn3.bin", "sorn3.img", "sorn3-sandbox.img", nullptr, true},
    {"velk3_4k", "velk3_4k.bin", "velk3_4k.img", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid",
     false},
};

} // namespace

const ExpectedProduct *findProduct(const std::string &key)
{
    for (const ExpectedProduct &product : s_expected) {
        if (key == product.key) {
            return &product;
        }
    }
    return nullptr;
}

std::string productKey(const std::string &content)
{
    constexpr std::size_t pieceSize = 15;
    const std::string line = content.substr(0, content.find('\n'));
    std::string key;
    for (std::size_t at = 0; at < line.size(); at += pieceSize) {
        const std::string piece = line.substr(at, pieceSize);
        key += piece.substr(0, piece.find('\0'));
    }
    return key;
}
