#pragma once

// What examining one USB device came to. The scanner decides by it whether to report the device, to
// scan again or to tell the user that rights are missing.
enum ProbeResult {
    Found = 0,           // the device is described
    DriverInstalled = 1, // WinUSB was installed for it; the next scan can open it
    Failed = 2,          // it cannot be used now
    AccessDenied = 3,    // it cannot be used without administrator rights
};
