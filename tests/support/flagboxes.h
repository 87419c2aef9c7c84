#pragma once

#include <QString>

#include <vector>

// The check boxes of the Settings page, from top to bottom, and the bits of the flags byte that
// they stand for. Tests call a box by its object name without "CheckBox".
struct FlagBox
{
    const char *name;
    int bit;
};

const std::vector<FlagBox> &allFlagBoxes();

// The boxes that are checked for this flags byte: "reenumerate performanceMode" for 0x05.
QString boxesOf(int flags);
