#pragma once

#include "bytes.h"
#include "fx3image.h"

#include <array>
#include <bitset>
#include <map>
#include <set>

namespace sim {

// RAM of the controller, 32-bit addresses that wrap, kept in pages so that any address may be used.
class BootRam
{
public:
    void write(uint32_t address, const Bytes &data);
    // Zeros where nothing was written; bytes at bad addresses come back inverted.
    Bytes read(uint32_t address, uint16_t length) const;
    void clear() { pages.clear(); }

    // This byte reads back inverted from now on.
    void setBad(uint32_t address) { bad.insert(address); }

    bool isWritten(uint32_t address) const;
    // Whether all sections of the image stand in RAM, as the controller would execute them.
    bool holds(const BootImage &image) const;

private:
    static constexpr uint32_t s_pageSize = 4096;
    struct Page
    {
        std::array<uint8_t, s_pageSize> bytes{};
        std::bitset<s_pageSize> written;
    };
    const Page *page(uint32_t address) const;

    std::map<uint32_t, Page> pages; // by address / page size
    std::set<uint32_t> bad;
};

} // namespace sim
