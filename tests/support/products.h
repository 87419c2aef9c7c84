#pragma once

#include "packagebuilder.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

// What the tests know of the products, written down once for all of them and apart from the
// program: a wrong name or id there must not be able to agree with itself.

// How a bitstream travels.
enum class FpgaVersion {
    Framed, // between a header and a CRC
    Raw,
};

struct ProductFacts
{
    const char *key;  // nullptr: the package has no product.info
    const char *name; // what the devices call themselves
    const char *fx3Name;
    const char *fpgaName;
    const char *sandboxName;
    const char *edidName; // nullptr: the product has no EDID
    FpgaVersion fpgaVersion;
    const char *simulated; // the simulator's name for it
    const char *runningId;
    const char *softId;
    const char *sandboxId;
};

// NOLINTBEGIN(readability-identifier-naming): called as the products are
extern const ProductFacts velk3;
extern const ProductFacts sorn3;
extern const ProductFacts velk3_4k;
extern const ProductFacts legacyVelk3; // the first product, by a package of the oldest kind
// NOLINTEND(readability-identifier-naming)

// The products, without the legacy package; and with it, as the last.
const std::vector<const ProductFacts *> &allProducts();
const std::vector<const ProductFacts *> &allPackages();
// The one of allPackages() with this key, which is "legacy" for the package that has none. The test
// ends when there is none.
const ProductFacts &productOf(const QByteArray &key);
// That key.
QByteArray keyOf(const ProductFacts &product);

// An id under which a device is recognised.
struct Identity
{
    quint16 vendorId;
    quint16 productId;
    int mode;                    // 0 running, 1 soft repair, 2 hard repair
    const char *scene;           // the words that make the simulator show it
    const ProductFacts *product; // nullptr: the bare controller, which may be any of them
};

// In the order in which the program looks for them.
const std::vector<Identity> &allIdentities();

// The images that a package of a test carries, and that the device must hold after it.
struct Images
{
    QByteArray fx3;
    QByteArray fpga;
    QByteArray edid;
    std::vector<BootSection> sections = {{0x40008000, patternBytes(64, 5)}};
    quint32 entry = 0x40008000;

    QByteArray sandbox() const { return bootImage(sections, entry); }
};

// Pattern images of these sizes, and 256 bytes of EDID when the product has one. Microcode of 64
// bytes or more makes the device report version 7.8.9.
Images makeImages(const ProductFacts &product, int fx3Size, int fpgaSize);

// What the entries of a package hold, where a test wants to choose it entry by entry. One that is
// not set is left out.
struct PackageContent
{
    std::optional<QByteArray> fpga{};
    std::optional<QByteArray> fx3{};
    std::optional<QByteArray> sandbox{};
    std::optional<QByteArray> edid{}; // the text file
    bool deflated = true;             // as makers deliver them
};

// A few bytes in every entry that the product has.
PackageContent smallContent(const ProductFacts &product);
PackageContent contentOf(const Images &images); // stored

// The package's entries in the order that makers use.
std::vector<PackageEntry> packageEntries(const ProductFacts &product,
                                         const PackageContent &content);
std::vector<PackageEntry> packageEntries(const ProductFacts &product, const Images &images);
QByteArray makePackage(const ProductFacts &product, const Images &images);
// A package with this EDID and nothing else.
QByteArray makeEdidPackage(const ProductFacts &product, const QByteArray &edid);

// A scene of one device named "g" with the serial number S1, and further words for it.
QByteArray sceneOf(const ProductFacts &product, const QByteArray &words = {});
