// The sandbox image, in repair mode. The image is read a second time here, all at once and without
// regard to memory, and what was sent is compared with it.

#include "acceptingusb.h"
#include "fuzzing.h"
#include "packagebuilder.h"
#include "updaterun.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr quint16 s_vendor = 0xE5C1;
constexpr quint16 s_softRepairVelk3 = 0x3600;
constexpr quint16 s_sandboxVelk3 = 0x360F;
constexpr quint8 s_memoryAccess = 0xA0;
constexpr std::size_t s_pieceSize = 4096;
constexpr std::size_t s_longestSection = 0x200000;

struct MemoryRequest
{
    bool isRead;
    quint32 address;
    std::vector<std::uint8_t> data; // of a write
    std::size_t length;

    bool operator==(const MemoryRequest &other) const
    {
        return isRead == other.isRead && address == other.address && data == other.data &&
               length == other.length;
    }
};

// What is to be sent, and what is to be said in the end.
struct Expectation
{
    std::vector<MemoryRequest> requests;
    QString error;
};

class Image
{
public:
    Image(const std::uint8_t *data, std::size_t size) : at(data), left(size) {}

    bool number(quint32 &value)
    {
        const std::uint8_t *bytes = take(4);
        if (bytes) {
            value = bytes[0] | quint32(bytes[1]) << 8 | quint32(bytes[2]) << 16 |
                    quint32(bytes[3]) << 24;
        }
        return bytes != nullptr;
    }

    const std::uint8_t *take(quint64 count)
    {
        if (count > left) {
            return nullptr;
        }
        const std::uint8_t *taken = at;
        at += count;
        left -= std::size_t(count);
        return taken;
    }

private:
    const std::uint8_t *at;
    std::size_t left;
};

void expectSection(quint32 address, const std::uint8_t *data, std::size_t size,
                   std::vector<MemoryRequest> &requests)
{
    for (std::size_t at = 0; at < size; at += s_pieceSize) {
        const std::size_t length = std::min(s_pieceSize, size - at);
        const quint32 where = quint32(address + at);
        requests.push_back({false, where, {data + at, data + at + length}, length});
        requests.push_back({true, where, {}, length});
    }
}

Expectation expect(const std::uint8_t *data, std::size_t size)
{
    Image image(data, size);
    const std::uint8_t *signature = image.take(2);
    if (!signature || std::memcmp(signature, "CY", 2) != 0) {
        return {{}, QStringLiteral("Error: failed to verify microcode signature")};
    }
    const QString broken = QStringLiteral("FX3 checksum error");
    Expectation expected;
    quint32 sum = 0;
    if (!image.take(2)) {
        return {{}, broken};
    }
    for (;;) {
        quint32 words = 0;
        quint32 address = 0;
        if (!image.number(words) || !image.number(address)) {
            expected.error = broken;
            return expected;
        }
        if (words == 0) {
            quint32 checksum = 0;
            if (!image.number(checksum) || checksum != sum) {
                expected.error = broken;
            } else {
                expected.requests.push_back({false, address, {}, 0});
            }
            return expected;
        }
        const quint64 length = quint64(words) * 4;
        const std::uint8_t *section = length > s_longestSection ? nullptr : image.take(length);
        if (!section) {
            expected.error = broken;
            return expected;
        }
        Image numbers(section, std::size_t(length));
        for (quint32 word = 0; numbers.number(word);) {
            sum += word;
        }
        expectSection(address, section, std::size_t(length), expected.requests);
    }
}

// A boot loader. Once its memory is started at an address, the sandbox is on the bus in its place.
struct BootLoader : libusb_device
{
    explicit BootLoader(libusb_device &started)
        : libusb_device(s_vendor, s_softRepairVelk3), sandbox(started)
    {
    }

    int controlTransfer(const Transfer &transfer) override
    {
        require(transfer.request == s_memoryAccess, "a boot loader knows no other request");
        require(sandbox.plugged == false, "nothing follows the start");
        MemoryRequest request{transfer.isIn(), transfer.address(), {}, transfer.length};
        if (!request.isRead) {
            request.data.assign(transfer.data, transfer.data + transfer.length);
        }
        requests.push_back(std::move(request));
        if (transfer.length == 0) {
            plugged = false;
            sandbox.plugged = true;
        }
        return libusb_device::controlTransfer(transfer);
    }

    libusb_device &sandbox;
    std::vector<MemoryRequest> requests;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing({"Error: failed to verify microcode signature", "FX3 checksum error"});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    libusb_device sandbox(s_vendor, s_sandboxVelk3);
    sandbox.plugged = false;
    BootLoader bootLoader(sandbox);
    bus::setDevices({&bootLoader, &sandbox});

    const QByteArray content(reinterpret_cast<const char *>(data), int(size));
    const QByteArray package = zipArchive({{"product.info", "velk3"},
                                           {"velk3.bin", "1234"},
                                           {"velk3.img", "1234"},
                                           {"velk3-sandbox.img", content}});
    const UpdateOutcome outcome =
        runUpdate(describeDevice(s_vendor, s_softRepairVelk3, DeviceMode::SoftRepair), package);

    const Expectation expected = expect(data, size);
    require(bootLoader.requests == expected.requests, "the device gets the image, piece by piece");
    const QStringList errors =
        expected.error.isEmpty() ? QStringList() : QStringList(expected.error);
    require(outcome.errors == errors, "what is wrong with the image is said");
    require(outcome.lastProgress == 100, "a repair that reached the device ends at 100");
    return 0;
}
