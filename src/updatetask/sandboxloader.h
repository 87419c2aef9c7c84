#pragma once

#include "updatereport.h"

#include <string>

struct libusb_device_handle;
class Zip;

// Loads the sandbox, a small firmware in the package's entry `fileName`, through the boot loader
// into the controller's RAM, each piece read back before the next is written, and starts it. The
// device then leaves the bus and comes back under another identity. `device` is open, with its
// interface claimed, and stays the caller's.
//
// Fills the progress from 2 to 15 percent. Returns whether the sandbox runs; if not, the reason has
// been reported, unless the entry cannot be opened at all, of which nothing is said.
bool load_sandbox(libusb_device_handle *device, const UpdateReport &report,
                  const std::string &fileName, Zip &zip);
