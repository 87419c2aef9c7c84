#include "products.h"

// clang-format off
const ProductFacts velk3{
    "velk3", "velk3.img", "velk3.bin", "velk3-sandbox.img", "edid_velk3_uvc.edid", true,
    "velk3", "e5c1:3601", "e5c1:3600", "e5c1:360f"};
const ProductFacts sorn3{
    "sorn3", "sorn3.img", "sorn3.bin", "sorn3-sandbox.img", nullptr, true,
    "sorn3", "e5c1:3621", "e5c1:3620", "e5c1:362f"};
const ProductFacts velk3_4k{
    "velk3_4k", "velk3_4k.img", "velk3_4k.bin", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid", false,
    "velk3_4k", "e5c1:3631", "e5c1:3630", "e5c1:363f"};
const ProductFacts legacyVelk3{
    nullptr, "QuorlinDriverlessGrabber.img", "velk3.bin", "usb-sandbox.img", "edid_velk3_uvc.edid", true,
    "velk3", "e5c1:3601", "e5c1:3600", "e5c1:360f"};
// clang-format on

Images makeImages(const ProductFacts &product, int fx3Size, int fpgaSize)
{
    Images images;
    images.fx3 = patternBytes(fx3Size, 21);
    if (fx3Size >= 64) {
        images.fx3.replace(0, 16, QByteArray("VERSION=7.8.9\n\0", 16));
    }
    images.fpga = patternBytes(fpgaSize, 22);
    if (product.edidName) {
        images.edid = edidBlocks(2);
    }
    return images;
}

std::vector<PackageEntry> packageEntries(const ProductFacts &product, const Images &images)
{
    std::vector<PackageEntry> entries;
    if (product.key) {
        entries.push_back({"product.info", QByteArray(product.key) + '\n'});
    }
    entries.push_back({product.fpgaName, images.fpga});
    entries.push_back({product.fx3Name, images.fx3});
    entries.push_back({product.sandboxName, images.sandbox()});
    if (!images.edid.isEmpty()) {
        entries.push_back({product.edidName, edidText(images.edid)});
    }
    return entries;
}

QByteArray makePackage(const ProductFacts &product, const Images &images)
{
    return zipArchive(packageEntries(product, images));
}

QByteArray sceneOf(const ProductFacts &product, const QByteArray &words)
{
    return QByteArray("device g\nserial \"S1\"\nproduct ") + product.simulated + '\n' + words +
           '\n';
}
