#include "faults.h"

// clang-format off
const FaultFacts &factsOf(Fault fault)
{
    static const FaultFacts s_facts[] = {
        {"stall",        "stall",      -9, "LIBUSB_ERROR_PIPE",      "Pipe error",                                      " stall"},
        {"silence",      "silence",    -7, "LIBUSB_ERROR_TIMEOUT",   "Operation timed out",                             " cancelled"},
        {"disconnect",   "disconnect", -4, "LIBUSB_ERROR_NO_DEVICE", "No such device (it may have been disconnected)", " no-device"},
        {"i/o error",    "protocol",   -1, "LIBUSB_ERROR_IO",        "Input/Output Error",                              " protocol"},
        {"overflow",     "overflow",   -8, "LIBUSB_ERROR_OVERFLOW",  "Overflow",                                        " overflow"},
        {"short answer", "",            0, "",                       "",                                                ""},
        {"wrong answer", "",            0, "",                       "",                                                ""},
    };
    return s_facts[int(fault)];
}
// clang-format on
