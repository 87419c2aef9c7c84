#include "inspection.h"

#include "bootimage.h"
#include "updatetexts.h"
#include "ziparchive.h"

#include <libusb.h>

#include <algorithm>
#include <set>

namespace {

using Role = InspectedEntry::Role;

// Of an entry that can be read to its end: its bytes. Otherwise the entry's own error, or that it
// is too long.
struct Length
{
    quint64 bytes = 0;
    bool readable = true;
    QString reason = {};
};

Length readToEnd(ZipFile &file)
{
    char piece[4096];
    Length length;
    while (length.bytes <= LongestInspectedImage) {
        const int got = file.read(piece, sizeof(piece));
        if (got < 0) {
            return {length.bytes, false, QString::fromStdString(file.errorStr())};
        }
        if (got == 0) {
            return length;
        }
        length.bytes += quint64(got);
    }
    return {length.bytes, false, UpdateTexts::tr("it is too long")};
}

void inspectBitstream(ZipFile &file, InspectedEntry &entry)
{
    const Length length = readToEnd(file);
    if (!length.readable) {
        entry.failure = UpdateTexts::tr(UpdateTexts::UnreadableBitstream).arg(length.reason);
    } else if (length.bytes == 0 || entry.size.value_or(length.bytes) != length.bytes) {
        entry.failure = UpdateTexts::tr("the bitstream is empty, or not as long as is stated");
    }
}

// The sections as far as the image is good; what an update would say otherwise.
QString readBootImage(ZipFile &file, InspectedEntry &entry)
{
    BootImage image(file);
    const BootImage::Header header = image.readHeader();
    if (header == BootImage::Header::Foreign) {
        return UpdateTexts::foreignBootImage();
    }
    auto record =
        header == BootImage::Header::Good ? image.readRecord() : BootImage::Record::Broken;
    quint64 total = 0;
    while (record == BootImage::Record::Section && total <= LongestInspectedImage) {
        const auto length = std::uint32_t(image.sectionData().size());
        entry.sectionCount += 1;
        if (entry.sections.size() < MostListedSections) {
            entry.sections.push_back({image.sectionAddress(), length});
        }
        total += length;
        record = image.readRecord();
    }
    const std::uint32_t address = image.entryAddress();
    if (record != BootImage::Record::Entry || !image.verifyChecksum()) {
        return UpdateTexts::brokenBootImage();
    }
    entry.entryAddress = address;
    return {};
}

// A running device checks its microcode itself and takes whatever it is given, so an image that is
// no boot image, or not a whole one, is no reason to refuse the package.
void inspectMicrocode(Zip &archive, ZipFile &file, InspectedEntry &entry)
{
    const Length length = readToEnd(file);
    if (!length.readable || length.bytes % 4 != 0) {
        entry.failure = UpdateTexts::tr(UpdateTexts::UnreadableMicrocode);
    } else if (length.bytes == 0 || entry.size.value_or(length.bytes) != length.bytes) {
        entry.failure = UpdateTexts::tr("the microcode is empty, or not as long as is stated");
    } else {
        ZipFile again = archive.fopen(entry.name.toStdString());
        const QString broken = readBootImage(again, entry);
        if (broken != UpdateTexts::foreignBootImage()) {
            entry.remark = broken;
        }
    }
}

// What becomes of an EDID that is too long for the one request that it goes to a device in; empty:
// it is not. The request's length has 16 bits, so that only the rest of 65536 bytes is tried, and
// nothing tells the user.
QString longEdidFailure(std::size_t bytes)
{
    constexpr std::size_t longestRequest = 4096; // libusb's limit on Linux and Windows
    if (bytes <= longestRequest) {
        return {};
    }
    const auto tried = quint16(bytes);
    return tried > longestRequest
               ? UpdateTexts::tr("the EDID has %1 bytes, and one request takes %2: %3")
                     .arg(QString::number(bytes), QString::number(longestRequest),
                          UpdateTexts::tr(UpdateTexts::UnsentEdid).arg(LIBUSB_ERROR_INVALID_PARAM))
               : UpdateTexts::tr("the EDID has %1 bytes, of which a device would be sent %2")
                     .arg(bytes)
                     .arg(tried);
}

void inspectEdid(ZipFile &file, InspectedEntry &entry)
{
    constexpr int blockSize = 128;
    const EdidResult edid = parse_edid_text(read_edid_text(file));
    entry.failure = UpdateTexts::edidFailure(edid);
    if (entry.failure.isEmpty()) {
        entry.failure = longEdidFailure(edid.bytes.size());
    }
    entry.edidBlocks = int(edid.bytes.size()) / blockSize;
}

QString cannotOpen(Role role, const QString &reason)
{
    switch (role) {
    case Role::Bitstream:
        return UpdateTexts::tr(UpdateTexts::ClosedBitstream);
    case Role::Microcode:
        return UpdateTexts::tr(UpdateTexts::ClosedMicrocode);
    case Role::Edid:
        return UpdateTexts::closedEdid();
    default:
        // A repair ends here without a word, so there are no words to repeat.
        return UpdateTexts::tr("the sandbox cannot be opened: %1").arg(reason);
    }
}

void inspectImage(Zip &archive, InspectedEntry &entry)
{
    if (entry.role == Role::Other || entry.role == Role::ProductKey) {
        return;
    }
    ZipFile file = archive.fopen(entry.name.toStdString());
    if (!file) {
        entry.failure = cannotOpen(entry.role, QString::fromStdString(archive.errorStr()));
        return;
    }
    switch (entry.role) {
    case Role::Bitstream:
        inspectBitstream(file, entry);
        break;
    case Role::Microcode:
        inspectMicrocode(archive, file, entry);
        break;
    case Role::Sandbox:
        entry.failure = readBootImage(file, entry);
        break;
    default:
        inspectEdid(file, entry);
        break;
    }
}

Role roleOf(const std::string &name, const ProductInfo *product)
{
    if (name == PRODUCT_NAME_FILE) {
        return Role::ProductKey;
    }
    if (!product || name.empty()) {
        return Role::Other;
    }
    if (name == product->fpgaName) {
        return Role::Bitstream;
    }
    if (name == product->fx3Name) {
        return Role::Microcode;
    }
    if (name == product->sandboxName) {
        return Role::Sandbox;
    }
    return name == product->edidName ? Role::Edid : Role::Other;
}

InspectedEntry describe(const ZipStat &stat, const ProductInfo *product)
{
    InspectedEntry entry;
    const std::string name = stat.isNameValid() ? stat.name() : std::string();
    entry.name = QString::fromStdString(name);
    entry.role = roleOf(name, product);
    if (stat.isSizeValid()) {
        entry.size = stat.size();
    }
    if (stat.isCrcValid()) {
        entry.crc = stat.crc();
    }
    return entry;
}

} // namespace

QString closed_sandbox(Zip &archive, const ProductInfo &product)
{
    return archive.fopen(product.sandboxName)
               ? QString()
               : cannotOpen(Role::Sandbox, QString::fromStdString(archive.errorStr()));
}

bool Inspection::isGood() const
{
    return package.refusal.isEmpty() &&
           std::all_of(entries.begin(), entries.end(),
                       [](const InspectedEntry &entry) { return entry.failure.isEmpty(); });
}

Inspection inspect_package(Zip &archive)
{
    Inspection result;
    result.package = read_package(archive);
    std::set<Role> seen;
    for (const ZipStat &stat : archive.stats()) {
        result.entries.push_back(describe(stat, result.package.product));
        // Of several entries with one name, an update takes the first, as opening by name does.
        if (seen.insert(result.entries.back().role).second) {
            inspectImage(archive, result.entries.back());
        }
    }
    if (result.entries.empty() && result.package.refusal.isEmpty()) {
        result.package.refusal = QString::fromStdString(archive.errorStr());
    }
    return result;
}
