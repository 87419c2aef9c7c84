#pragma once

#include "edid.h"
#include "productcatalogue.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <string>

class Zip;
class ZipFile;

// What a firmware package is, before any device is touched. Nothing here needs a thread, a bus or
// an event loop, and nothing throws. What is found is logged through qDebug. Packages are somebody
// else's files: every number in them may be a lie, and a small one may unpack to gigabytes, so that
// what is read of it is bounded.

struct Package
{
    std::string productKey = "legacy";    // as product.info states it, byte for byte
    const ProductInfo *product = nullptr; // its row of the catalogue; null without one
    QStringList missing;                  // required entries that are not there; FPGA, FX3, sandbox
    bool edidPresent = false;             // the product has an EDID, and it is there

    // Why no device can be updated with this package, for the user (translated); empty when one
    // can. What was found before the reason is filled in above.
    QString refusal;
};

// Reads what the package says of itself: the product key and the names of its entries. No image is
// opened. A closed archive is refused as well, with the reason why it could not be opened.
Package read_package(Zip &archive, const ProductCatalogue &catalogue = s_products);

// Whether the package of this product may be written to a device that shows these ids in this
// DeviceMode. Running devices have to show one of the product's ids. A device that shows a repair
// id may have been given the firmware of another product, so any package of its vendor fits; and so
// does every package a bare controller.
bool package_fits(const ProductInfo &product, ProductId device, quint32 mode);

// Why an update with a package that cannot be opened ends, for the user (translated).
QString closed_package(const QString &reason);

// Bytes that the entry unpacks to, or 0 when the archive does not say.
quint64 entry_size(Zip &archive, const std::string &fileName);

// Reads an entry as the text of an EDID. Nothing comes back of one that is longer than any EDID's
// or that cannot be read to its end.
std::optional<std::string> read_edid_text(ZipFile &entry);

// As parse_edid(). A text that could not be read has a format error.
EdidResult parse_edid_text(const std::optional<std::string> &text);
