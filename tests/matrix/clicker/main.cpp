// capso-clicker OPERATION...: the program's dialog, in the hands of a test. It runs the operations
// that its command line names and prints every signal, and after each operation what is seen, as
// lines of JSON (see eventlog.h).
//
//   scan                          press Rescan and wait for the list
//
//   update SERIAL PACKAGE         select a device, enter the file's name, press Update, and wait
//
//   select SERIAL                 click a row
//
//   tab NUMBER                    open a page and wait for its content
//
//   poll                          wait for the next answer to a status poll
//
//   apply-flags 1010              set the boxes of the Settings page and press Apply
//
//   apply-modes MODE MODE MODE    the same with the user modes: "1280x720 on"
//
//   control COMMAND               tell the simulator to change something
//
// The dialog scans when it starts; that scan's rows are there before the first operation.

#include "clicker.h"

#include "devicedescription.h"
#include "qtcompat.h"
#include "usbaccess.h"

#include <QApplication>

#include <libusb.h>

namespace {

int runClicker(int argc, char **argv)
{
    const QApplication application(argc, argv);
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");
    Clicker clicker;
    return clicker.run(QApplication::arguments().mid(1));
}

} // namespace

int main(int argc, char **argv)
{
    const bool ready = libusb_init(nullptr) >= 0;
    usb::set_context_ready(ready);
    const int result = runClicker(argc, argv);
    if (ready) {
        libusb_exit(nullptr);
    }
    return result;
}
