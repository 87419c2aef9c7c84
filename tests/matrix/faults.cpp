#include "faults.h"

// clang-format off
const FaultFacts &factsOf(Fault fault)
{
    static const FaultFacts s_facts[] = {
        {"stall",        "stall",      -9, "LIBUSB_ERROR_PIPE",      " stall"},
        {"silence",      "silence",    -7, "LIBUSB_ERROR_TIMEOUT",   " cancelled"},
        {"disconnect",   "disconnect", -4, "LIBUSB_ERROR_NO_DEVICE", " no-device"},
        {"i/o error",    "protocol",   -1, "LIBUSB_ERROR_IO",        " protocol"},
        {"overflow",     "overflow",   -8, "LIBUSB_ERROR_OVERFLOW",  " overflow"},
        {"short answer", "",            0, "",                       ""},
        {"wrong answer", "",            0, "",                       ""},
        {"stall after the deed",      "stall performed",      -9, "LIBUSB_ERROR_PIPE",      " stall"},
        {"silence after the deed",    "silence performed",    -7, "LIBUSB_ERROR_TIMEOUT",   " cancelled"},
        {"disconnect after the deed", "disconnect performed", -4, "LIBUSB_ERROR_NO_DEVICE", " no-device"},
        {"i/o error after the deed",  "protocol performed",   -1, "LIBUSB_ERROR_IO",        " protocol"},
        {"overflow after the deed",   "overflow performed",   -8, "LIBUSB_ERROR_OVERFLOW",  " overflow"},
    };
    return s_facts[int(fault)];
}
// clang-format on
