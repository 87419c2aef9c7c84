#pragma once

#include "updatereport.h"

#include <string>

struct libusb_device_handle;
class Zip;

// Sends the EDID in the package's entry `fileName` to a running device, in one transfer. Fills the
// progress from `progressFrom` to `progressTo` percent. `device` is open, with its interface
// claimed. Returns the result of the last request, or -1 after the reason was reported.
int write_edid(libusb_device_handle *device, const UpdateReport &report, int progressFrom,
               int progressTo, const std::string &fileName, Zip &zip);
