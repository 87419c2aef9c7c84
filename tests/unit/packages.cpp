#include "packages.h"

#include <map>

namespace {

struct EntryNames
{
    const char *fpga;
    const char *fx3;
    const char *sandbox;
    const char *edid;
};

const EntryNames &namesOf(const QByteArray &product)
{
    static const std::map<QByteArray, EntryNames> names{
        {"legacy",
         {"velk3.bin", "QuorlinDriverlessGrabber.img", "usb-sandbox.img", "edid_velk3_uvc.edid"}},
        {"velk3", {"velk3.bin", "velk3.img", "velk3-sandbox.img", "edid_velk3_uvc.edid"}},
        {"sorn3", {"sorn3.bin", "sorn3.img", "sorn3-sandbox.img", nullptr}},
        {"velk3_4k",
         {"velk3_4k.bin", "velk3_4k.img", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid"}},
    };
    return names.at(product);
}

} // namespace

std::vector<PackageEntry> packageEntries(const QByteArray &product, const Images &images)
{
    const EntryNames &names = namesOf(product);
    std::vector<PackageEntry> entries;
    if (product != "legacy") {
        entries.push_back({"product.info", product + "\n"});
    }
    // Deflated, as packages are made.
    const auto add = [&](const char *name, const std::optional<QByteArray> &image) {
        if (image) {
            entries.push_back({name, *image, true});
        }
    };
    add(names.fpga, images.fpga);
    add(names.fx3, images.fx3);
    add(names.sandbox, images.sandbox);
    add(names.edid, images.edid);
    return entries;
}

Images smallImages(const QByteArray &product)
{
    Images images;
    images.fpga = QByteArray("bitstrm!");
    images.fx3 = QByteArray("microcod");
    images.sandbox = bootImage({{0x40003000, "sandbox!"}}, 0x40003000);
    if (namesOf(product).edid != nullptr) {
        images.edid = edidText(edidBlocks(1));
    }
    return images;
}
