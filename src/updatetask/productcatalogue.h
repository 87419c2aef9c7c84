#pragma once

#include "devicedescription.h"

#include <map>
#include <set>
#include <string>

// The entry of a package that names its product in its first line.
constexpr const char *PRODUCT_NAME_FILE = "product.info";

// Entry names of the oldest packages, which were built before product.info existed.
namespace legacy {
constexpr const char *FPGA_NAME = "velk3.bin";
constexpr const char *FX3_NAME = "QuorlinDriverlessGrabber.img";
constexpr const char *SANDBOX_NAME = "usb-sandbox.img";
constexpr const char *EDID_NAME = "edid_velk3_uvc.edid";
constexpr const char *VERSION_NAME = "version.txt"; // packages carry it, nothing reads it
} // namespace legacy

// What a package of one product holds and which devices it fits. Entry names are exact: case
// counts, and they stand at the archive's top level.
struct ProductInfo
{
    std::string fpgaName;    // FPGA bitstream
    std::string fx3Name;     // FX3 microcode
    std::string sandboxName; // FX3 boot image that repair mode loads into RAM
    std::string edidName;    // EDID text file; empty when the product has none
    // How the bitstream is written: 0 framed (flashFpgaV1), 1 raw (flashFpgaV2).
    quint32 fpgaVersion;
    std::set<ProductId> compatibleIds; // of running devices that the package may be written to
    std::set<ProductId> sandboxIds;    // under which a device comes back once the sandbox runs
};

// By product key.
using ProductCatalogue = std::map<std::string, ProductInfo>;
extern const ProductCatalogue s_products;
