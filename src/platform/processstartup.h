#pragma once

namespace platform {

// What a process needs before it does anything else. main() calls it first: before libusb is
// initialised, before the application object is made, while there is one thread.
//
// On Windows: DLLs, Qt's plug-ins among them, are loaded from the system's folder and the program's
// own and from nowhere else, whatever the environment says; the log goes to standard error where
// that was redirected, which a window program otherwise would not do. Elsewhere: nothing.
void prepare_process();

} // namespace platform
