#include "filters.h"

#include "probes.h"

const Filters s_filters{{
    {{0xE5C1, 0x3601}, false, probeVelk3},
    {{0xE5C1, 0x3600}, false, probeSoft},
    {{0xE5C1, 0x360F}, false, probeSoft},
    {{0xE5C1, 0x3621}, false, probeSorn3},
    {{0xE5C1, 0x3620}, false, probeSoft},
    {{0xE5C1, 0x362F}, false, probeSoft},
    {{0xE5C1, 0x3631}, false, probeVelk3},
    {{0xE5C1, 0x3630}, false, probeSoft},
    {{0xE5C1, 0x363F}, false, probeSoft},
    {{0xE5C1, 0x3641}, false, probeVelk3},
    {{0xE5C1, 0x3640}, false, probeSoft},
    {{0xE5C1, 0x364F}, false, probeSoft},
    {{0x5555, 0x3601}, false, probeVelk3}, // the first product under another vendor id
    {{0x04B4, 0x00F3}, false, probeHard},  // the boot loader in the FX3's ROM
}};
