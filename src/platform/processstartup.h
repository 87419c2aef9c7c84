#pragma once

namespace platform {

// What a process needs before it does anything else. main() calls it first: before libusb is
// initialised, before the application object is made, while there is one thread.
//
// On Windows: DLLs, Qt's plug-ins among them, are loaded from the system's folder and the program's
// own and from nowhere else, whatever the environment says; the log goes to standard error where
// that was redirected, which a window program otherwise would not do. Elsewhere: nothing.
void prepare_process();

// Takes the toolkit's own options away from a program that has none, before its application object
// is made. On Windows: all arguments but the program's name, for with one of them the toolkit would
// load plug-ins from any folder. Elsewhere: nothing, since the toolkit's options are useful there.
void drop_toolkit_options(int &argc, char **argv);

} // namespace platform
