#pragma once

#include <QString>

// The file with this program's udev rules as udev would read it: the first of the folders that has
// one. Empty when none has.
QString installedUdevRules();
