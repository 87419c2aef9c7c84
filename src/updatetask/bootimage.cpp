#include "bootimage.h"

#include "littleendian.h"
#include "ziparchive.h"

#include <cstddef>
#include <cstring>

namespace {

using Word = LittleEndian<quint32>;
constexpr std::uint32_t s_wordSize = sizeof(Word);

} // namespace

BootImage::BootImage(ZipFile &source) : file(source)
{
}

BootImage::Header BootImage::readHeader()
{
    char signature[2];
    if (!readExactly(signature, sizeof(signature)) || signature[0] != 'C' || signature[1] != 'Y') {
        return Header::Foreign;
    }
    char controlAndType[2];
    return readExactly(controlAndType, sizeof(controlAndType)) ? Header::Good : Header::Broken;
}

BootImage::Record BootImage::readRecord()
{
    std::uint32_t words = 0;
    if (!readNumber(words) || !readNumber(address)) {
        return Record::Broken;
    }
    if (words == 0) {
        return Record::Entry;
    }
    // Compared in words: the length in bytes may not fit into 32 bits.
    if (words > LongestSection / s_wordSize) {
        return Record::Broken;
    }
    data.resize(std::size_t(words) * s_wordSize);
    if (!readExactly(data.data(), data.size())) {
        return Record::Broken;
    }
    for (std::size_t at = 0; at < data.size(); at += s_wordSize) {
        Word word;
        std::memcpy(&word, &data[at], sizeof(word));
        sum += word;
    }
    return Record::Section;
}

bool BootImage::verifyChecksum()
{
    std::uint32_t expected = 0;
    return readNumber(expected) && expected == sum;
}

bool BootImage::readExactly(void *buffer, std::uint64_t length)
{
    auto *at = static_cast<std::uint8_t *>(buffer);
    while (length > 0) {
        const std::int32_t got = file.read(at, length);
        if (got <= 0) {
            return false;
        }
        at += got;
        length -= std::uint64_t(got);
    }
    return true;
}

bool BootImage::readNumber(std::uint32_t &number)
{
    Word word;
    if (!readExactly(&word, sizeof(word))) {
        return false;
    }
    number = word;
    return true;
}
