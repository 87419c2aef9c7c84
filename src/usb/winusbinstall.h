#pragma once

#include "wdifunctions.h"

namespace usb::wdi {

// What usb::install_driver() does on Windows, by way of the given functions, none of which may be
// null; arguments and result are those of usb::install_driver().
int install(const Functions &wdi, unsigned short vendorId, unsigned short productId,
            unsigned char interfaceNumber, bool composite, char *deviceDescription);

} // namespace usb::wdi
