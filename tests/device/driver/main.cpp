// capso-driver OPERATION...: the program without its dialog. It runs the operations that its
// command line names and prints every signal of the front objects as a line of JSON (see
// eventlog.h).
//
//   scan                                   find the devices; the next operations choose from them
//   scan-until-found                       scan again and again until there is one
//   update DEVICE PACKAGE                  run a whole update
//   get-flags DEVICE                       read a record through its typed request object
//   get-mode DEVICE NUMBER
//   get-status DEVICE
//   set-flags DEVICE HEX                   write one
//   set-mode DEVICE NUMBER HEX
//   control COMMAND                        tell the simulator to change something
//
// DEVICE is a serial number or #0, #1, ... in the order of the last scan.

#include "driver.h"
#include "usbprogram.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    return runUsbProgram<QCoreApplication>(argc, argv, [] {
        Driver driver;
        return driver.run(QCoreApplication::arguments().mid(1));
    });
}
