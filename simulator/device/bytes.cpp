#include "bytes.h"

#include <zlib.h>

namespace sim {

uint32_t crc32Of(const uint8_t *data, size_t size)
{
    return static_cast<uint32_t>(crc32_z(crc32_z(0, nullptr, 0), data, size));
}

uint32_t crc32Of(const Bytes &data)
{
    // An empty vector has no data pointer, and zlib takes a null pointer as "start afresh".
    return data.empty() ? 0 : crc32Of(data.data(), data.size());
}

void appendLe16(Bytes &bytes, uint16_t value)
{
    bytes.push_back(static_cast<uint8_t>(value & 0xFF));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
}

void appendLe32(Bytes &bytes, uint32_t value)
{
    appendLe16(bytes, static_cast<uint16_t>(value & 0xFFFF));
    appendLe16(bytes, static_cast<uint16_t>(value >> 16));
}

uint16_t readLe16(const uint8_t *data)
{
    return static_cast<uint16_t>(data[0] | data[1] << 8);
}

uint32_t readLe32(const uint8_t *data)
{
    return readLe16(data) | static_cast<uint32_t>(readLe16(data + 2)) << 16;
}

std::string toHex(const Bytes &bytes)
{
    static const char s_digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += s_digits[byte >> 4];
        text += s_digits[byte & 15];
    }
    return text;
}

} // namespace sim
