#pragma once

#include "proberesult.h"

// Decides whether a device that libusb_open() answered with openResult needs the WinUSB driver, and
// installs it if so. composite marks a device with several interfaces, of which number 0 is meant.
//
// Found means that there was nothing to install, which is also the answer for NOT_SUPPORTED without
// force: the caller then reports the open error itself. Any other failure to open is taken for a
// missing driver. Blocks the calling (worker) thread while Windows installs.
ProbeResult driver_install(int openResult, unsigned short vendorId, unsigned short productId,
                           bool composite, bool force);
