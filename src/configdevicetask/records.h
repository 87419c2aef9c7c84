#pragma once

#include "littleendian.h"

// The data stages of the configuration requests, byte for byte. Numbers are little-endian.

// The signal at the device's input (request INPUT_STATUS, read only). Texts are ASCII and padded
// with NUL, which the device may have forgotten: never read past the end of the record.
struct InputStatusInfo
{
    char infoText[12];
    char nameText[8];
    LittleEndian<quint32> frameRate; // thousandths of a frame per second; 0: no signal
    LittleEndian<quint16> width;     // pixels; 0: no signal
    LittleEndian<quint16> height;    // lines; 0: no signal
    quint8 interlaced;               // 0: progressive
};
static_assert(sizeof(InputStatusInfo) == 29, "INPUT_STATUS is 29 bytes");

// One of the three resolutions that the user can add (request USER_MODE; its number travels in
// wIndex).
struct UserMode
{
    LittleEndian<quint16> width;  // pixels
    LittleEndian<quint16> height; // lines
    quint8 disabled;              // 0: in use, 1: switched off
};
static_assert(sizeof(UserMode) == 5, "USER_MODE is 5 bytes");

// Bits of the device flags byte (requests GET_DEVICE_FLAGS and SET_DEVICE_FLAGS). Bit 3 is skipped;
// it and bits 5 to 7 are written as 0.
enum DeviceFlag : quint8 {
    UseInputResolution = 0x01,
    KeepAspectRatio = 0x02,
    PerformanceMode = 0x04,
    AudioSelector = 0x10,
};
