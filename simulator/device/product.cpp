#include "product.h"

#include <cstdio>

namespace sim {
namespace {

constexpr uint16_t s_maker = 0xE5C1;

constexpr Product s_products[] = {
    {"velk3", {s_maker, 0x3601}, "VELK3 Grabber", 0, true, true},
    {"sorn3", {s_maker, 0x3621}, "SORN3 Grabber", 0, true, false},
    {"velk3_4k", {s_maker, 0x3631}, "VELK3 4K Grabber", 1, true, true},
    {"other", {0, 0}, "Other Device", 1, false, false},
};

} // namespace

std::string toText(const UsbId &id)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", id.vendor, id.product);
    return text;
}

const char *toText(Mode mode)
{
    switch (mode) {
    case Mode::Normal:
        return "normal";
    case Mode::Soft:
        return "soft";
    case Mode::SoftF:
        return "soft-f";
    case Mode::Hard:
        return "hard";
    case Mode::Sandbox:
        return "sandbox";
    case Mode::Dead:
        return "dead";
    }
    return "";
}

bool isBootLoader(Mode mode)
{
    return mode == Mode::Soft || mode == Mode::SoftF || mode == Mode::Hard;
}

const Product *findProduct(const std::string &name)
{
    for (const Product &product : s_products) {
        if (name == product.name) {
            return &product;
        }
    }
    return nullptr;
}

UsbId identityIn(Mode mode, const UsbId &runningId)
{
    // Product ids come in groups of sixteen. The boot loaders know the maker's vendor id only,
    // whatever vendor the product's firmware names.
    const auto group = static_cast<uint16_t>(runningId.product & 0xFFF0);
    switch (mode) {
    case Mode::Soft:
        return {s_maker, group};
    case Mode::SoftF:
    case Mode::Sandbox:
        return {s_maker, static_cast<uint16_t>(group | 0xF)};
    case Mode::Hard:
        return {0x04B4, 0x00F3};
    case Mode::Normal:
    case Mode::Dead:
        break;
    }
    return runningId;
}

} // namespace sim
