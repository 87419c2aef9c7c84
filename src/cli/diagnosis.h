#pragma once

#include "udevrules.h"
#include "usbview.h"

#include <QString>

#include <vector>

// What is wrong with a machine's capture devices, and what mends it. Pure: nothing here looks at
// the system.

// Something that is wrong, and what mends it: a command where there is one.
struct Finding
{
    QString text;
    QString command;
};

// What matters of the machine and its user, beside the devices.
struct Machine
{
    UdevRules rules;
    QString program;                                // how a shell calls this program
    bool hasGroup = false;                          // there is a group plugdev,
    bool isMember = false;                          // the user is entered as a member of it,
    bool isMemberNow = false;                       // and was so at the time of this login
    static constexpr const char *Group = "plugdev"; // the rules' group
};

// What matters of a device's node, beside what usbview says of it.
struct Node
{
    bool isGroups = false; // the group plugdev may read and write it: the rules have seen it
};

QString nodeOf(const usbview::SystemDevice &device); // "/dev/bus/usb/001/002"

// What keeps the device from being used, and what slows it down.
std::vector<Finding> findingsOf(const usbview::SystemDevice &device, const Node &node,
                                const Machine &machine);
// "udev rules: FILE", or what is wrong with them in few words.
QString rulesLine(const UdevRules &rules);
// What is wrong with the rules.
std::vector<Finding> findingsOf(const Machine &machine);
