// The EDID text: through parse_edid(), and in a package that holds nothing else.

#include "acceptingusb.h"
#include "edid.h"
#include "fuzzing.h"
#include "packagebuilder.h"
#include "updaterun.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>

namespace {

constexpr quint16 s_vendor = 0xE5C1;
constexpr quint16 s_runningVelk3 = 0x3601;
constexpr quint8 s_edidWrite = 0xD2;
constexpr std::size_t s_blockSize = 128;
constexpr std::size_t s_pieceSize = 4095; // in which the entry is read; a NUL hides a piece's rest

using Bytes = std::vector<std::uint8_t>;

// A device that keeps its EDID.
struct Display : libusb_device
{
    Display() : libusb_device(s_vendor, s_runningVelk3) {}

    int controlTransfer(const Transfer &transfer) override
    {
        if (transfer.request == s_edidWrite) {
            edid.emplace(transfer.data, transfer.data + transfer.length);
        }
        return libusb_device::controlTransfer(transfer);
    }

    std::optional<Bytes> edid;
};

// std::cerr, collected.
class Diagnostics
{
public:
    Diagnostics() : previous(std::cerr.rdbuf(text.rdbuf())) {}
    ~Diagnostics() { std::cerr.rdbuf(previous); }

    QString all() const { return QString::fromStdString(text.str()); }

private:
    std::ostringstream text;
    std::streambuf *previous;
};

EdidResult parseAlone(const std::string &text)
{
    std::istringstream in(text);
    const Diagnostics diagnostics;
    const EdidResult result = parse_edid(in);
    if (result.status == EdidGood) {
        require(diagnostics.all().isEmpty(), "nothing is said of a good text");
    } else {
        require(diagnostics.all().count('\n') == 1, "one line is said of a bad text");
        requireKnownText(diagnostics.all().chopped(1));
    }
    return result;
}

// Whole blocks, each of which sums to zero.
bool isEdid(const Bytes &bytes)
{
    unsigned sum = 0; // over all blocks: each adds zero
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += bytes[i];
        if ((i + 1) % s_blockSize == 0 && sum % 256 != 0) {
            return false;
        }
    }
    return !bytes.empty() && bytes.size() % s_blockSize == 0;
}

// The bytes of a text of the plainest kind: after the bar, numbers of one to eight hexadecimal
// digits between blanks, 16 to a line. Nothing for a text in which there is anything else.
std::optional<Bytes> readPlainly(const std::string &text)
{
    Bytes bytes;
    std::istringstream in(text);
    std::string line;
    for (int number = 0; std::getline(in, line); ++number) {
        if (number < 3) {
            continue;
        }
        const std::size_t bar = line.find('|');
        if (bar == std::string::npos) {
            return {};
        }
        const std::size_t before = bytes.size();
        char *word = std::strtok(&line[bar + 1], " ");
        for (; word; word = std::strtok(nullptr, " ")) {
            const std::size_t length = std::strlen(word);
            if (length > 8 || std::strspn(word, "0123456789abcdefABCDEF") != length) {
                return {};
            }
            bytes.push_back(std::uint8_t(std::strtoul(word, nullptr, 16)));
        }
        if (bytes.size() - before != 16) {
            return {};
        }
    }
    return bytes;
}

std::string asReadFromPackage(const std::string &text)
{
    std::string read;
    for (std::size_t at = 0; at < text.size(); at += s_pieceSize) {
        read += text.substr(at, s_pieceSize).c_str();
    }
    return read;
}

void updateWith(const std::string &text)
{
    Display device;
    bus::setDevices({&device});
    const UpdateOutcome outcome =
        runUpdate(describeDevice(s_vendor, s_runningVelk3, DeviceMode::Normal),
                  zipArchive({{"edid_velk3_uvc.edid", QByteArray::fromStdString(text)}}));

    std::istringstream in(asReadFromPackage(text));
    const EdidResult expected = parse_edid(in);
    require(outcome.succeeded() == (expected.status == EdidGood), "a good text, and no other");
    require(outcome.succeeded() == device.edid.has_value(), "only a good text reaches the device");
    if (device.edid) {
        // wLength has 16 bits.
        const Bytes sent(expected.bytes.begin(),
                         expected.bytes.begin() + long(expected.bytes.size() & 0xFFFF));
        require(*device.edid == sent, "the device holds the bytes of the text");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing({
        "Error: vertical delimiter (|) not found, line: %1",
        "Error: line overflow, line %1",
        "Error: line underflow, line: %1",
        "Unexpected lines count: %1, should be dividable by 8",
        "Checksum of the block %1",
        "EDID data has incorrect format",
        "EDID data has incorrect checksum",
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const EdidResult result = parseAlone(text);
    if (result.status == EdidGood) {
        require(isEdid(result.bytes), "a good text gives whole blocks that sum to zero");
    } else {
        require(result.bytes.empty(), "a bad text gives no bytes");
    }
    const std::optional<Bytes> plain = readPlainly(text);
    if (plain) {
        require(isEdid(*plain) == (result.status == EdidGood), "a plain text is good or bad");
        require(!isEdid(*plain) || *plain == result.bytes, "the bytes are those of the text");
    }
    updateWith(text);
    return 0;
}
