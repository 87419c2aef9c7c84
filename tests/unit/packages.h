#pragma once

#include "packagebuilder.h"

#include <optional>

// The images of a package; an image that is not set is left out of it.
struct Images
{
    std::optional<QByteArray> fpga{};
    std::optional<QByteArray> fx3{};
    std::optional<QByteArray> sandbox{};
    std::optional<QByteArray> edid{}; // the text file
};

// The entries of a package for this product ("legacy" has no product.info).
std::vector<PackageEntry> packageEntries(const QByteArray &product, const Images &images);
// Small images of every kind that the product has.
Images smallImages(const QByteArray &product);
