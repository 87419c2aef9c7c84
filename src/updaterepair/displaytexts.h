#pragma once

#include <QString>

class DeviceDescription;
struct InputStatusInfo;

// The lines that the dialog builds from what a device reports. Nothing here touches a widget, so
// the lines can be tested by themselves. Texts of the device are inserted as they are: a serial
// number that happens to hold "%4" is not taken for a place holder.

// One row of the device list, e.g. "Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]"; a device that needs
// repair has its mode appended.
QString deviceRowText(const DeviceDescription &desc);

// The status line for a status record that was received, e.g. "HDMI 1920x1080p@60, RGB", or that
// there is no signal. The frame rate keeps two significant digits.
QString inputStatusText(const InputStatusInfo &status);

// A message as a message box shows it to the letter. Most messages come back unchanged; one that a
// box would take for rich text, since a package names its product "<b>x</b>", is written so that
// its mark-up is read and not obeyed.
QString literalMessage(const QString &text);
