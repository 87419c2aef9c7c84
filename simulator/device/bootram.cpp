#include "bootram.h"

namespace sim {

void BootRam::write(uint32_t address, const Bytes &data)
{
    for (const uint8_t byte : data) {
        Page &target = pages[address / s_pageSize];
        target.bytes[address % s_pageSize] = byte;
        target.written.set(address % s_pageSize);
        ++address;
    }
}

Bytes BootRam::read(uint32_t address, uint16_t length) const
{
    Bytes data;
    data.reserve(length);
    for (; length > 0; --length, ++address) {
        const Page *source = page(address);
        const uint8_t byte = source ? source->bytes[address % s_pageSize] : 0;
        data.push_back(bad.count(address) ? static_cast<uint8_t>(~byte) : byte);
    }
    return data;
}

bool BootRam::isWritten(uint32_t address) const
{
    const Page *source = page(address);
    return source && source->written.test(address % s_pageSize);
}

bool BootRam::holds(const BootImage &image) const
{
    for (const BootImage::Section &section : image.sections) {
        uint32_t address = section.address;
        for (const uint8_t byte : section.data) {
            const Page *source = page(address);
            if (!source || !source->written.test(address % s_pageSize) ||
                source->bytes[address % s_pageSize] != byte || bad.count(address)) {
                return false;
            }
            ++address;
        }
    }
    return true;
}

const BootRam::Page *BootRam::page(uint32_t address) const
{
    const auto found = pages.find(address / s_pageSize);
    return found == pages.end() ? nullptr : &found->second;
}

} // namespace sim
