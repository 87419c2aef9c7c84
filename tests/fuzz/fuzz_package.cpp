// A whole package, as bytes: opened, its key read, its contents checked, and every image written to
// a running device of each product and to a bare controller. What a device received by the end of
// an update that reports no error is compared with the package, read a second time by libzip alone.

#include "acceptingusb.h"
#include "edid.h"
#include "expectedproduct.h"
#include "fuzzing.h"
#include "updaterun.h"

#include <zip.h>
#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>

namespace {

constexpr quint16 s_vendor = 0xE5C1;
constexpr std::size_t s_blockSize = 4096;

enum Request : quint8 {
    FpgaStart = 0xC1,
    FpgaWrite = 0xC2,
    Fx3Start = 0xC5,
    Fx3Write = 0xC6,
    EdidWrite = 0xD2,
    MemoryAccess = 0xA0,
};

// Bytes of which only their number and a hash (FNV-1a) are kept. Not a CRC: over data that ends in
// its own CRC, as the header block and the framed bitstream do, a CRC is the same for all data.
struct Stream
{
    quint64 size = 0;
    quint64 hash = 0xCBF29CE484222325;

    void add(const void *data, std::size_t length)
    {
        const auto *bytes = static_cast<const unsigned char *>(data);
        for (std::size_t i = 0; i < length; ++i) {
            hash = (hash ^ bytes[i]) * 0x100000001B3;
        }
        size += length;
    }
    bool operator==(const Stream &other) const { return size == other.size && hash == other.hash; }
};

// All that a device was given to keep.
struct Memories
{
    Stream fx3;
    Stream fpga; // as it goes over the wire, header block and CRC included
    std::vector<std::uint8_t> edid;

    bool operator==(const Memories &other) const
    {
        return fx3 == other.fx3 && fpga == other.fpga && edid == other.edid;
    }
};

// A device that keeps account of what it is given.
struct Grabber : libusb_device
{
    Grabber(quint16 product, Memories &given) : libusb_device(s_vendor, product), memories(given) {}

    int controlTransfer(const Transfer &transfer) override
    {
        switch (transfer.request) {
        case Fx3Start:
            memories.fx3 = {};
            break;
        case FpgaStart:
            memories.fpga = {};
            break;
        case Fx3Write:
            require(transfer.length % 4 == 0, "microcode comes in words");
            requireBlock(transfer);
            memories.fx3.add(transfer.data, transfer.length);
            break;
        case FpgaWrite:
            requireBlock(transfer);
            memories.fpga.add(transfer.data, transfer.length);
            break;
        case EdidWrite:
            memories.edid.assign(transfer.data, transfer.data + transfer.length);
            break;
        default:
            break;
        }
        return libusb_device::controlTransfer(transfer);
    }

    static void requireBlock(const Transfer &transfer)
    {
        require(transfer.length > 0 && transfer.length <= s_blockSize, "a block has a size");
    }

    Memories &memories;
};

// The bare controller, which becomes a sandbox when its memory is started.
struct BareController : libusb_device
{
    explicit BareController(std::vector<libusb_device *> started)
        : libusb_device(0x04B4, 0x00F3), sandboxes(std::move(started))
    {
    }

    int controlTransfer(const Transfer &transfer) override
    {
        require(transfer.request == MemoryAccess, "a boot loader knows no other request");
        require(transfer.length <= s_blockSize, "no piece is longer than a block");
        if (transfer.length == 0) {
            plugged = false;
            for (libusb_device *sandbox : sandboxes) {
                sandbox->plugged = true;
            }
        }
        return libusb_device::controlTransfer(transfer);
    }

    std::vector<libusb_device *> sandboxes; // of every product: the package decides
};

// ---- the package, read by libzip alone

struct Closer
{
    void operator()(zip_t *zip) const { zip_discard(zip); }
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};
using Archive = std::unique_ptr<zip_t, Closer>;

struct Entry
{
    std::string content; // as far as it can be read
    bool whole = false;
    quint64 statedSize = 0;
};

Archive openArchive(const std::uint8_t *data, std::size_t size)
{
    zip_source_t *source = zip_source_buffer_create(data, size, 0, nullptr);
    zip_t *zip = zip_open_from_source(source, ZIP_RDONLY, nullptr);
    if (!zip) {
        zip_source_free(source);
    }
    return Archive(zip);
}

// Nothing when it cannot be opened.
std::optional<Entry> readEntry(zip_t *zip, const char *name, std::size_t pieceSize = s_blockSize)
{
    const std::unique_ptr<zip_file_t, Closer> file(zip_fopen(zip, name, 0));
    if (!file) {
        return {};
    }
    Entry entry;
    zip_stat_t stat;
    if (zip_stat(zip, name, 0, &stat) == 0 && (stat.valid & ZIP_STAT_SIZE)) {
        entry.statedSize = stat.size;
    }
    std::string piece(pieceSize, 0);
    for (;;) {
        const zip_int64_t length = zip_fread(file.get(), &piece[0], pieceSize);
        if (length <= 0) {
            entry.whole = length == 0;
            return entry;
        }
        entry.content.append(piece, 0, std::size_t(length));
    }
}

const ProductFacts *productOf(zip_t *zip)
{
    const std::optional<Entry> info = readEntry(zip, "product.info", 15);
    return findProduct(info ? productKey(info->content) : "legacy");
}

std::string littleEndian(unsigned long number)
{
    return {char(number & 0xFF), char(number >> 8 & 0xFF), char(number >> 16 & 0xFF),
            char(number >> 24 & 0xFF)};
}

std::string crcOf(const std::string &bytes)
{
    const auto *data = reinterpret_cast<const Bytef *>(bytes.data());
    return littleEndian(crc32(0, data, uInt(bytes.size())));
}

Stream expectedFpga(const ProductFacts &product, const Entry &image)
{
    std::string sent = image.content;
    if (product.fpgaVersion == FpgaVersion::Framed) {
        const std::string header = "FPGA" + littleEndian(image.statedSize);
        sent = header + crcOf(header) + image.content + crcOf(image.content);
    }
    Stream stream;
    stream.add(sent.data(), sent.size());
    return stream;
}

std::vector<std::uint8_t> expectedEdid(const Entry &entry)
{
    constexpr std::size_t pieceSize = 4095; // a NUL hides the rest of its piece
    std::string text;
    for (std::size_t at = 0; at < entry.content.size(); at += pieceSize) {
        text += entry.content.substr(at, pieceSize).c_str();
    }
    std::istringstream in(text);
    const EdidResult edid = parse_edid(in);
    require(edid.status == EdidGood, "a bad EDID is not called a success");
    return {edid.bytes.begin(), edid.bytes.begin() + long(edid.bytes.size() & 0xFFFF)};
}

bool holds(zip_t *zip, const char *name)
{
    return zip_name_locate(zip, name, 0) >= 0;
}

// What a device holds after a successful update with this package.
Memories expectedMemories(zip_t *zip, const ProductFacts &product)
{
    const int images = holds(zip, product.fpgaName) + holds(zip, product.fx3Name) +
                       holds(zip, product.sandboxName);
    const bool onlyEdid = images == 0 && product.edidName && holds(zip, product.edidName);
    require(images == 3 || onlyEdid, "half a package is not called a success");
    Memories memories;
    if (!onlyEdid) {
        const std::optional<Entry> fx3 = readEntry(zip, product.fx3Name);
        const std::optional<Entry> fpga = readEntry(zip, product.fpgaName);
        require(fx3 && fpga, "images that cannot be opened are not called a success");
        require(fx3->whole && fpga->whole, "damaged images are not called a success");
        memories.fx3.add(fx3->content.data(), fx3->content.size());
        memories.fpga = expectedFpga(product, *fpga);
    }
    const std::optional<Entry> edid =
        product.edidName ? readEntry(zip, product.edidName, 4095) : std::optional<Entry>();
    if (edid) {
        require(edid->whole, "a damaged EDID is not called a success");
        memories.edid = expectedEdid(*edid);
    }
    return memories;
}

void requireTruth(const std::uint8_t *data, std::size_t size, const Memories &memories)
{
    const Archive zip = openArchive(data, size);
    require(zip != nullptr, "a file that is no archive is not called a success");
    const ProductFacts *product = productOf(zip.get());
    require(product != nullptr, "an unknown product is not called a success");
    require(memories == expectedMemories(zip.get(), *product), "the device holds the package");
}

// ---- the devices

// "e5c1:3601", less its vendor.
quint16 productIdOf(const char *id)
{
    return QByteArray(id).mid(5).toUShort(nullptr, 16);
}

void updateRunning(quint16 product, const std::uint8_t *data, std::size_t size)
{
    Memories memories;
    Grabber device(product, memories);
    bus::setDevices({&device});
    const UpdateOutcome outcome =
        runUpdate(describeDevice(s_vendor, product, DeviceMode::Normal), data, size);
    if (outcome.succeeded()) {
        requireTruth(data, size, memories);
    }
}

void repairBare(const std::uint8_t *data, std::size_t size)
{
    Memories memories;
    std::vector<std::unique_ptr<Grabber>> grabbers;
    std::vector<libusb_device *> sandboxes;
    for (const ProductFacts *product : allProducts()) {
        grabbers.push_back(std::make_unique<Grabber>(productIdOf(product->sandboxId), memories));
        sandboxes.push_back(grabbers.back().get());
        sandboxes.back()->plugged = false;
    }
    BareController controller(sandboxes);
    std::vector<libusb_device *> devices = sandboxes;
    devices.insert(devices.begin(), &controller);
    bus::setDevices(devices);
    const UpdateOutcome outcome =
        runUpdate(describeDevice(0x04B4, 0x00F3, DeviceMode::HardRepair), data, size);
    // A package whose sandbox cannot be opened is the one that repair says nothing about.
    if (outcome.succeeded() && !controller.plugged) {
        requireTruth(data, size, memories);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing(withPackageTexts({"Selected device and firmware incompatible"}));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    for (const ProductFacts *product : allProducts()) {
        updateRunning(productIdOf(product->runningId), data, size);
    }
    repairBare(data, size);
    return 0;
}
