// The content of product.info, in a package that has the entries of every product: whatever the key
// is, the only question is which product it names.

#include "acceptingusb.h"
#include "expectedproduct.h"
#include "fuzzing.h"
#include "products.h"
#include "updaterun.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr quint16 s_vendor = 0xE5C1;
constexpr quint16 s_runningVelk3 = 0x3601;

QByteArray packageWith(const QByteArray &productInfo)
{
    std::vector<PackageEntry> entries{{"product.info", productInfo}};
    for (const ProductFacts *product : allPackages()) {
        for (const char *name : {product->fpgaName, product->fx3Name, product->sandboxName}) {
            if (std::none_of(entries.begin(), entries.end(),
                             [name](const PackageEntry &entry) { return entry.name == name; })) {
                entries.push_back({name, "1234"});
            }
        }
    }
    return zipArchive(entries);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing({"Unsupported product: '%1'", "Selected device and firmware incompatible"});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray content(reinterpret_cast<const char *>(data), int(size));
    libusb_device device(s_vendor, s_runningVelk3);
    bus::setDevices({&device});
    const UpdateOutcome outcome = runUpdate(
        describeDevice(s_vendor, s_runningVelk3, DeviceMode::Normal), packageWith(content));

    const std::string key = productKey(content.toStdString());
    QStringList expected;
    if (!findProduct(key)) {
        expected += "Unsupported product: '" + QString::fromStdString(key) + "'";
    } else if (key != "velk3" && key != "legacy") {
        expected += QStringLiteral("Selected device and firmware incompatible");
    }
    require(outcome.errors == expected, "the key is the first line");
    return 0;
}
