#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;

// CRC-32 as zlib computes it (reflected polynomial 0xEDB88320); 0 for no data.
uint32_t crc32Of(const uint8_t *data, size_t size);
uint32_t crc32Of(const Bytes &data);

// Little-endian numbers, the byte order of everything that the devices send and take.
void appendLe16(Bytes &bytes, uint16_t value);
void appendLe32(Bytes &bytes, uint32_t value);
uint16_t readLe16(const uint8_t *data);
uint32_t readLe32(const uint8_t *data);

// Lower-case hexadecimal without separators.
std::string toHex(const Bytes &bytes);

} // namespace sim
