#include "productcatalogue.h"

// clang-format off
const ProductCatalogue s_products{
    {"legacy",
     {legacy::FPGA_NAME, legacy::FX3_NAME, legacy::SANDBOX_NAME, legacy::EDID_NAME, 0,
      {{0x5555, 0x3601}, {0xE5C1, 0x3601}},
      {{0xE5C1, 0x360F}}}},
    {"velk3",
     {"velk3.bin", "velk3.img", "velk3-sandbox.img", "edid_velk3_uvc.edid", 0,
      {{0x5555, 0x3601}, {0xE5C1, 0x3601}},
      {{0xE5C1, 0x360F}}}},
    {"sorn3",
     {"sorn3.bin", "sorn3.img", "sorn3-sandbox.img", "", 0,
      {{0xE5C1, 0x3621}},
      {{0xE5C1, 0x362F}}}},
    {"velk3_4k",
     {"velk3_4k.bin", "velk3_4k.img", "velk3_4k-sandbox.img", "edid_velk3_4k_uvc.edid", 1,
      {{0xE5C1, 0x3631}, {0xE5C1, 0x3641}},
      {{0xE5C1, 0x363F}, {0xE5C1, 0x364F}}}},
};
// clang-format on
