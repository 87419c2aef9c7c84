#pragma once

#include <QString>

class DeviceDescription;
struct InputStatusInfo;

// The texts that both programs show, the dialog and the command line's, and the lines that they
// build from what a device reports. Texts of the device are inserted as they are: a serial number
// that happens to hold "%4" is not taken for a place holder. All of them belong to the dialog's
// translation context, so that a translator finds them in one place.

// One row of the device list, e.g. "Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]"; a device that needs
// repair has its mode appended.
QString deviceRowText(const DeviceDescription &desc);

// The status line for a status record that was received, e.g. "HDMI 1920x1080p@60, RGB", or that
// there is no signal. The frame rate keeps two significant digits.
QString inputStatusText(const InputStatusInfo &status);

// In place of the status line, when the device does not tell its input signal.
QString requestNotSupportedText();

// What is said while a device is being written, and when that has succeeded or failed.
QString doNotInterruptText();
QString sessionHoldText(); // to who wants to shut down meanwhile
QString updateCompletedText();
QString updateErrorText();
QString callSupportText();
