#include "updateworker.h"

#include <QDebug>

#include <algorithm>

// Every check that fails here has touched no device yet.

bool UpdateTask::Worker::readProduct(Zip &zip)
{
    if (!readProductKey(zip)) {
        return false;
    }
    qDebug() << "Deal with product: " << product.c_str();
    const auto row = s_products.find(product);
    if (row == s_products.end()) {
        emit error(tr("Unsupported product: '%1'").arg(QString::fromStdString(product)));
        return false;
    }
    productInfo = &row->second;
    sandboxIds = productInfo->sandboxIds;
    return true;
}

// Replaces the key by the first line of product.info, byte for byte, when the package has one.
bool UpdateTask::Worker::readProductKey(Zip &zip)
{
    if (!zip.stat(PRODUCT_NAME_FILE)) {
        return true;
    }
    ZipFile file = zip.fopen(PRODUCT_NAME_FILE);
    if (!file) {
        const QString reason = QString::fromStdString(zip.errorStr());
        qDebug().noquote() << "Product info file found but can't be opened: " << reason;
        emit error(tr("Product info file found but can't be opened: %1").arg(reason));
        return false;
    }

    constexpr int pieceSize = 15;
    // Far beyond any product's. A small package can unpack to gigabytes, and nobody needs to see
    // them.
    constexpr std::size_t longestKey = std::size_t{64} * 1024;
    std::string key;
    for (bool last = false; !last && key.size() < longestKey;) {
        char piece[pieceSize + 1] = {};
        const int length = file.read(piece, pieceSize);
        if (length < 0) {
            const QString reason = QString::fromStdString(file.errorStr());
            qDebug().noquote() << "Can't read Product info file: " << reason;
            emit error(tr("Can't read Product info file: %1").arg(reason));
            return false;
        }
        char *lineFeed = std::find(piece, piece + length, '\n');
        last = lineFeed != piece + length || length < pieceSize;
        *lineFeed = 0;
        key += piece; // up to its first NUL
    }
    product = key;
    return true;
}

bool UpdateTask::Worker::checkContents(Zip &zip)
{
    struct Entry
    {
        const std::string &name;
        bool required;
    };
    const Entry entries[] = {
        {productInfo->fpgaName, true},
        {productInfo->fx3Name, true},
        {productInfo->sandboxName, true},
        {productInfo->edidName, false},
    };

    bool requiredFound = false;
    bool optionalFound = false;
    QStringList missing;
    for (const Entry &entry : entries) {
        const bool found = !entry.name.empty() && zip.stat(entry.name);
        if (found && entry.required) {
            requiredFound = true;
        } else if (found) {
            qDebug() << "optional file found: " << entry.name.c_str();
            optionalFound = true;
            edidPresent = true; // the EDID is the only optional entry
        } else if (entry.required) {
            qDebug() << "required file not found: " << entry.name.c_str();
            packageIncomplete = true;
            missing += QString::fromStdString(entry.name);
        }
    }
    // A package of nothing but the EDID is meant to change the EDID alone.
    const bool optionalOnly = optionalFound && !requiredFound;
    if (packageIncomplete && !optionalOnly) {
        emit error(tr("Invalid firmware package. File(s) not found: %1").arg(missing.join(", ")));
        return false;
    }
    return true;
}

bool UpdateTask::Worker::checkCompatibility(const DeviceDescription &description)
{
    // The bare controller's boot loader shows its own ids, which say nothing of the product around
    // it: here the choice of the package is the user's.
    if (description.mode == DeviceMode::HardRepair) {
        return true;
    }
    // Product ids that end in 0 or F are the maker's repair and sandbox ids. A device that shows
    // one may have been given the wrong firmware, so any package of its vendor may be tried on it.
    const int lowDigit = description.productId & 0xF;
    const bool repairId = lowDigit == 0x0 || lowDigit == 0xF;
    const auto &ids = productInfo->compatibleIds;
    const bool fits = std::any_of(ids.begin(), ids.end(), [&](const ProductId &id) {
        return id.vendorId == description.vendorId &&
               (repairId || id.productId == description.productId);
    });
    if (!fits) {
        emit error(tr("Selected device and firmware incompatible"));
    }
    return fits;
}
