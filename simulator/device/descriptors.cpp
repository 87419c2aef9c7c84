#include "descriptors.h"

namespace sim {
namespace {

constexpr uint8_t s_deviceType = 1;
constexpr uint8_t s_configurationType = 2;
constexpr uint8_t s_stringType = 3;
constexpr uint8_t s_interfaceType = 4;
constexpr uint8_t s_vendorSpecific = 0xFF;
constexpr unsigned s_descriptorSize = 9; // of a configuration, and of an interface
constexpr size_t s_longestString = 126;  // UTF-16 units in 255 bytes less the two of the header

// Decodes one code point of UTF-8 and moves on; a malformed byte stands for itself.
uint32_t nextCodePoint(const std::string &text, size_t &at)
{
    const auto lead = static_cast<uint8_t>(text[at++]);
    const unsigned more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    if (more == 0 || at + more > text.size()) {
        return lead;
    }
    uint32_t point = lead & (0x3Fu >> more);
    for (unsigned i = 0; i < more; ++i) {
        point = point << 6 | (static_cast<uint8_t>(text[at++]) & 0x3Fu);
    }
    return point;
}

void appendUtf16(Bytes &bytes, uint32_t point)
{
    if (point < 0x10000) {
        appendLe16(bytes, static_cast<uint16_t>(point));
        return;
    }
    appendLe16(bytes, static_cast<uint16_t>(0xD800 + ((point - 0x10000) >> 10 & 0x3FF)));
    appendLe16(bytes, static_cast<uint16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

} // namespace

Bytes deviceDescriptor(const UsbId &id, const DescribedStrings &strings)
{
    Bytes bytes = {18, s_deviceType};
    appendLe16(bytes, 0x0300); // USB 3.0
    bytes.insert(bytes.end(),
                 {0, 0, 0, 9}); // class by interface; packets of 2^9 bytes on endpoint 0
    appendLe16(bytes, id.vendor);
    appendLe16(bytes, id.product);
    appendLe16(bytes, 0x0100); // bcdDevice
    bytes.push_back(ManufacturerString);
    bytes.push_back(strings.product ? ProductString : 0);
    bytes.push_back(strings.serial ? SerialString : 0);
    bytes.push_back(1); // configurations
    return bytes;
}

Bytes configurationDescriptor(unsigned interfaces)
{
    const auto count = static_cast<uint8_t>(interfaces);
    Bytes bytes = {9, s_configurationType};
    appendLe16(bytes, static_cast<uint16_t>(s_descriptorSize * (1 + interfaces)));
    bytes.insert(bytes.end(), {count, 1, 0, 0x80, 50});
    for (uint8_t number = 0; number < count; ++number) {
        bytes.insert(bytes.end(), {9, s_interfaceType, number, 0, 0, s_vendorSpecific, 0, 0, 0});
    }
    return bytes;
}

Bytes languageDescriptor()
{
    return {4, s_stringType, 0x09, 0x04};
}

Bytes stringDescriptor(const std::string &text)
{
    Bytes bytes = {0, s_stringType}; // its size follows
    for (size_t at = 0; at < text.size();) {
        appendUtf16(bytes, nextCodePoint(text, at));
    }
    if (bytes.size() > 2 + s_longestString * 2) {
        bytes.resize(2 + s_longestString * 2);
    }
    bytes[0] = static_cast<uint8_t>(bytes.size());
    return bytes;
}

} // namespace sim
