#pragma once

// What an empty list is to say, apart from the program's own texts.

inline constexpr char s_notFound[] =
    "No capture device found. Plug it in and press the round arrow.";
inline constexpr char s_denied[] =
    "A capture device is connected, but you have no right to use it.\n"
    "Install the package capso-config-udev, then unplug the device and plug it in again.";
inline constexpr char s_held[] = "A capture device is connected, but another program is using it.";
inline constexpr char s_silent[] =
    "A capture device is connected, but it does not answer. Unplug it and plug it in again.";
