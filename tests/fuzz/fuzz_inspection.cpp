// What is told of a package without a device: of the input as a package, and of packages in which
// it stands for one image after another, so that the seeds of every other target are of use here.
//
// What an update says of the package is told before it, and what is called good is taken.

#include "acceptingusb.h"
#include "fuzzing.h"
#include "inspection.h"
#include "memoryfile.h"
#include "packagebuilder.h"
#include "updaterun.h"
#include "ziparchive.h"

#include <algorithm>
#include <cstdint>

namespace {

Inspection inspected(const QByteArray &package)
{
    const MemoryFile file(package.constData(), std::size_t(package.size()));
    Zip archive(file.path().toStdString());
    return inspect_package(archive);
}

QStringList textsOf(const Inspection &inspection)
{
    QStringList texts;
    if (!inspection.package.refusal.isEmpty()) {
        texts += inspection.package.refusal;
    }
    for (const InspectedEntry &entry : inspection.entries) {
        if (!entry.failure.isEmpty()) {
            texts += entry.failure;
        }
        require(entry.sections.size() <= MostListedSections, "the sections are bounded");
    }
    return texts;
}

void check(const QByteArray &package)
{
    const Inspection inspection = inspected(package);
    const QStringList told = textsOf(inspection);
    for (const QString &text : told) {
        requireKnownText(text);
    }
    require(inspection.isGood() == told.isEmpty(), "a package is good when nothing is told of it");
    if (!inspection.package.product) {
        return;
    }
    const ProductId id = *inspection.package.product->compatibleIds.rbegin();
    libusb_device device(id.vendorId, id.productId);
    bus::setDevices({&device});
    const UpdateOutcome outcome =
        runUpdate(describeDevice(id.vendorId, id.productId, DeviceMode::Normal), package);
    require(!inspection.isGood() || outcome.succeeded(), "what is called good is taken");
    for (const QString &text : outcome.errors) {
        require(told.contains(text), "what an update says of the package is told before it");
    }
}

// A good package, but for one entry.
QByteArray packageWith(const char *name, const QByteArray &content)
{
    std::vector<PackageEntry> entries{
        {"product.info", "velk3\n"},
        {"velk3.bin", patternBytes(64)},
        {"velk3.img", patternBytes(64)},
        {"velk3-sandbox.img", bootImage({{0x40003000, patternBytes(16)}}, 0x40003000)},
        {"edid_velk3_uvc.edid", edidText(edidBlocks(1))},
    };
    const auto entry = std::find_if(entries.begin(), entries.end(),
                                    [name](const PackageEntry &e) { return e.name == name; });
    entry->data = content;
    return zipArchive(entries);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing(withPackageTexts({
        "the microcode is empty, or not as long as is stated",
        "the bitstream is empty, or not as long as is stated",
        "the sandbox cannot be opened: %1",
        "the EDID has %1 bytes, and one request takes 4096: Can't send EDID data to the device "
        "(err: -2)",
        "the EDID has %1 bytes, of which a device would be sent 128",
    }));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), int(size));
    check(input);
    for (const char *name :
         {"product.info", "velk3.bin", "velk3.img", "velk3-sandbox.img", "edid_velk3_uvc.edid"}) {
        check(packageWith(name, input));
    }
    return 0;
}
