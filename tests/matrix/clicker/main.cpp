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
//   await DEVICE MODE             wait until the simulated device is plugged in, in this mode
//
//   apply-flags "BOX BOX"         check these boxes of the Settings page only, and press Apply
//
//   apply-modes MODE MODE MODE    the same with the user modes: "1280x720 on"
//
//   control COMMAND               tell the simulator to change something
//
// The dialog scans when it starts; that scan's rows are there before the first operation.

#include "clicker.h"
#include "usbprogram.h"

#include <QApplication>

int main(int argc, char **argv)
{
    return runUsbProgram<QApplication>(argc, argv, [] {
        Clicker clicker;
        return clicker.run(QApplication::arguments().mid(1));
    });
}
