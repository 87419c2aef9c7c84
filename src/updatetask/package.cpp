#include "package.h"

#include "updatetexts.h"
#include "ziparchive.h"

#include <QDebug>

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace {

// The bounds count the bytes that are read, not those that are kept: a NUL byte hides the rest of
// its piece, so that gigabytes of them would leave a text as short as it was.

// Far beyond any product key.
constexpr int s_longestInfo = 64 * 1024;

// Far beyond the text of any EDID: on Linux and Windows libusb takes 4096 bytes at most in one
// request, whose text has some 15 KiB.
constexpr std::size_t s_longestEdidText = std::size_t{16} * 1024 * 1024;

// Replaces the key by the first line of product.info, byte for byte, when the package has one.
// Returns why that cannot be read, or nothing.
QString readProductKey(Zip &archive, std::string &productKey)
{
    if (!archive.stat(PRODUCT_NAME_FILE)) {
        return {};
    }
    ZipFile file = archive.fopen(PRODUCT_NAME_FILE);
    if (!file) {
        const QString reason = QString::fromStdString(archive.errorStr());
        qDebug().noquote() << "Product info file found but can't be opened: " << reason;
        return UpdateTexts::tr("Product info file found but can't be opened: %1").arg(reason);
    }

    constexpr int pieceSize = 15;
    std::string key;
    int bytesRead = 0;
    for (bool last = false; !last && bytesRead < s_longestInfo;) {
        char piece[pieceSize + 1] = {};
        const int length = file.read(piece, pieceSize);
        if (length < 0) {
            const QString reason = QString::fromStdString(file.errorStr());
            qDebug().noquote() << "Can't read Product info file: " << reason;
            return UpdateTexts::tr("Can't read Product info file: %1").arg(reason);
        }
        bytesRead += length;
        char *lineFeed = std::find(piece, piece + length, '\n');
        last = lineFeed != piece + length || length < pieceSize;
        *lineFeed = 0;
        key += piece; // up to its first NUL
    }
    productKey = key;
    return {};
}

// Finds out which of the product's entries are there, and returns why the package is refused if
// those are not enough.
QString checkContents(Zip &archive, Package &package)
{
    const ProductInfo &product = *package.product;
    const std::string *required[] = {&product.fpgaName, &product.fx3Name, &product.sandboxName};
    const auto holds = [&archive](const std::string &name) {
        return !name.empty() && archive.stat(name);
    };
    bool requiredFound = false;
    for (const std::string *name : required) {
        if (holds(*name)) {
            requiredFound = true;
        } else {
            qDebug() << "required file not found: " << name->c_str();
            package.missing += QString::fromStdString(*name);
        }
    }
    if (holds(product.edidName)) {
        qDebug() << "optional file found: " << product.edidName.c_str();
        package.edidPresent = true;
    }
    // A package of nothing but the EDID is meant to change the EDID alone.
    const bool onlyEdid = package.edidPresent && !requiredFound;
    if (package.missing.isEmpty() || onlyEdid) {
        return {};
    }
    return UpdateTexts::tr("Invalid firmware package. File(s) not found: %1")
        .arg(package.missing.join(", "));
}

} // namespace

Package read_package(Zip &archive, const ProductCatalogue &catalogue)
{
    Package package;
    if (!archive) {
        const QString reason = QString::fromStdString(archive.errorStr());
        qDebug().noquote() << "Can't open firmware file:" << reason;
        package.refusal = closed_package(reason);
        return package;
    }
    package.refusal = readProductKey(archive, package.productKey);
    if (!package.refusal.isEmpty()) {
        return package;
    }
    qDebug() << "Deal with product: " << package.productKey.c_str();
    const auto row = catalogue.find(package.productKey);
    if (row == catalogue.end()) {
        const QString key = QString::fromStdString(package.productKey);
        package.refusal = UpdateTexts::tr("Unsupported product: '%1'").arg(key);
        return package;
    }
    package.product = &row->second;
    package.refusal = checkContents(archive, package);
    return package;
}

QString closed_package(const QString &reason)
{
    return UpdateTexts::tr("Cannot open firmware package: %1").arg(reason);
}

bool package_fits(const ProductInfo &product, ProductId device, quint32 mode)
{
    // The bare controller's boot loader shows its own ids, which say nothing of the product around
    // it: here the choice of the package is the user's.
    if (mode == DeviceMode::HardRepair) {
        return true;
    }
    // Product ids that end in 0 or F are the maker's repair and sandbox ids.
    const int lowDigit = device.productId & 0xF;
    const bool repairId = lowDigit == 0x0 || lowDigit == 0xF;
    const auto &ids = product.compatibleIds;
    return std::any_of(ids.begin(), ids.end(), [&](const ProductId &id) {
        return id.vendorId == device.vendorId && (repairId || id.productId == device.productId);
    });
}

quint64 entry_size(Zip &archive, const std::string &fileName)
{
    const ZipStat stat = archive.stat(fileName);
    return stat.isSizeValid() ? stat.size() : 0;
}

std::optional<std::string> read_edid_text(ZipFile &entry)
{
    std::string text;
    char piece[4096] = {};
    for (std::size_t bytesRead = 0; bytesRead <= s_longestEdidText;) {
        const int length = entry.read(piece, sizeof(piece) - 1);
        if (length == 0) {
            return text;
        }
        if (length < 0) {
            return {}; // what is left of a damaged text may well look like a whole one
        }
        piece[length] = 0;
        text += piece; // up to its first NUL
        bytesRead += std::size_t(length);
    }
    return {};
}

EdidResult parse_edid_text(const std::optional<std::string> &text)
{
    if (!text) {
        return {{}, EdidFormatError};
    }
    std::istringstream lines(*text);
    return parse_edid(lines);
}
