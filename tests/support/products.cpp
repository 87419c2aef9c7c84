#include "products.h"

// clang-format off
const ProductFacts velk3{
    "velk3", "VELK3 Grabber",
    "velk3.img", "velk3.bin", "velk3-sandbox.img", "edid_velk3_uvc.edid", FpgaVersion::Framed,
    "velk3", "e5c1:3601", "e5c1:3600", "e5c1:360f"};
const ProductFacts sorn3{
    "sorn3", "SORN3 Grabber",
    "sorn3.img", "sorn3.bin", "sorn3-sandbox.img", nullptr, FpgaVersion::Framed,
    "sorn3", "e5c1:3621", "e5c1:3620", "e5c1:362f"};
const ProductFacts velk3_4k{
    "velk3_4k", "VELK3 4K Grabber",
    "velk3_4k.img", "velk3_4k.bin", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid", FpgaVersion::Raw,
    "velk3_4k", "e5c1:3631", "e5c1:3630", "e5c1:363f"};
const ProductFacts legacyVelk3{
    nullptr, "VELK3 Grabber",
    "QuorlinDriverlessGrabber.img", "velk3.bin", "usb-sandbox.img", "edid_velk3_uvc.edid", FpgaVersion::Framed,
    "velk3", "e5c1:3601", "e5c1:3600", "e5c1:360f"};

const std::vector<const ProductFacts *> &allProducts()
{
    static const std::vector<const ProductFacts *> s_all{&velk3, &sorn3, &velk3_4k};
    return s_all;
}

const std::vector<const ProductFacts *> &allPackages()
{
    static const std::vector<const ProductFacts *> s_all = [] {
        std::vector<const ProductFacts *> all = allProducts();
        all.push_back(&legacyVelk3);
        return all;
    }();
    return s_all;
}

const ProductFacts &productOf(const QByteArray &key)
{
    for (const ProductFacts *product : allPackages()) {
        if (keyOf(*product) == key) {
            return *product;
        }
    }
    qFatal("no product %s", key.constData());
}

QByteArray keyOf(const ProductFacts &product)
{
    return product.key ? product.key : "legacy";
}

const std::vector<Identity> &allIdentities()
{
    static const std::vector<Identity> s_all{
        {0xE5C1, 0x3601, 0, "product velk3", &velk3},
        {0xE5C1, 0x3600, 1, "product velk3\nmode soft", &velk3},
        {0xE5C1, 0x360F, 1, "product velk3\nmode soft-f", &velk3},
        {0xE5C1, 0x3621, 0, "product sorn3", &sorn3},
        {0xE5C1, 0x3620, 1, "product sorn3\nmode soft", &sorn3},
        {0xE5C1, 0x362F, 1, "product sorn3\nmode sandbox", &sorn3},
        {0xE5C1, 0x3631, 0, "product velk3_4k", &velk3_4k},
        {0xE5C1, 0x3630, 1, "product velk3_4k\nmode soft", &velk3_4k},
        {0xE5C1, 0x363F, 1, "product velk3_4k\nmode soft-f", &velk3_4k},
        {0xE5C1, 0x3641, 0, "product velk3_4k\nid e5c1:3641", &velk3_4k},
        {0xE5C1, 0x3640, 1, "product velk3_4k\nid e5c1:3641\nmode soft", &velk3_4k},
        {0xE5C1, 0x364F, 1, "product velk3_4k\nid e5c1:3641\nmode soft-f", &velk3_4k},
        {0x5555, 0x3601, 0, "product velk3\nid 5555:3601", &velk3},
        {0x04B4, 0x00F3, 2, "product sorn3\nmode hard", nullptr},
    };
    return s_all;
}
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

PackageContent smallContent(const ProductFacts &product)
{
    PackageContent content;
    content.fpga = "bitstrm!";
    content.fx3 = "microcod";
    content.sandbox = bootImage({{0x40003000, "sandbox!"}}, 0x40003000);
    if (product.edidName) {
        content.edid = edidText(edidBlocks(1));
    }
    return content;
}

PackageContent contentOf(const Images &images)
{
    PackageContent content{images.fpga, images.fx3, images.sandbox(), {}, false};
    if (!images.edid.isEmpty()) {
        content.edid = edidText(images.edid);
    }
    return content;
}

std::vector<PackageEntry> packageEntries(const ProductFacts &product, const PackageContent &content)
{
    std::vector<PackageEntry> entries;
    if (product.key) {
        entries.push_back({"product.info", QByteArray(product.key) + '\n'});
    }
    const auto add = [&](const char *name, const std::optional<QByteArray> &data) {
        if (data) {
            entries.push_back({name, *data, content.deflated});
        }
    };
    add(product.fpgaName, content.fpga);
    add(product.fx3Name, content.fx3);
    add(product.sandboxName, content.sandbox);
    add(product.edidName, content.edid);
    return entries;
}

std::vector<PackageEntry> packageEntries(const ProductFacts &product, const Images &images)
{
    return packageEntries(product, contentOf(images));
}

QByteArray makePackage(const ProductFacts &product, const Images &images)
{
    return zipArchive(packageEntries(product, images));
}

QByteArray makeEdidPackage(const ProductFacts &product, const QByteArray &edid)
{
    return zipArchive(
        {{"product.info", QByteArray(product.key) + '\n'}, {product.edidName, edidText(edid)}});
}

QByteArray sceneOf(const ProductFacts &product, const QByteArray &words)
{
    return QByteArray("device g\nserial \"S1\"\nproduct ") + product.simulated + '\n' + words +
           '\n';
}
