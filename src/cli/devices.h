#pragma once

#include "devicedescription.h"
#include "usbview.h"

#include <QJsonObject>
#include <QString>

#include <optional>
#include <vector>

// A recognised device, as the scan describes it, or only as the system shows it.
struct ListedDevice
{
    // Of a device that the scan could not use, only ids, bus and address are filled in.
    DeviceDescription description;
    bool usable = false;
    // The serial number is the device's own and no other listed one's.
    bool serialTells = false;
    // What the system says of it; no value where the system shows nothing.
    std::optional<usbview::SystemDevice> system = std::nullopt;

    // "1-2.3": where the device is plugged in. Where the system does not tell, bus and port of the
    // last hub.
    QString portPath() const;
};

struct Devices
{
    std::vector<ListedDevice> all;   // first those that the scan described, in its order
    std::vector<QString> scanErrors; // what the scan itself said, where the system shows nothing
};

struct Session;

// Scans the buses, and asks the system for the devices that the scan left out. Takes as long as the
// devices take to answer; who wants the program to end meanwhile is told so.
Devices findDevices(Session &session);

// A device that the scan has not described.
ListedDevice asTheSystemShows(const usbview::SystemDevice &system);

// The device's serial number, or its port path where the serial number does not tell it from
// others: by what a person knows it among several.
QString nameOf(const ListedDevice &device);
// "VELK3 Grabber (SIM00001, 1.0.0) [e5c1:3601] at 1-1", for candidates.
QString describe(const ListedDevice &device);
// Why the scan could not use the device.
QString reasonOf(const ListedDevice &device);
// "normal", "soft repair", "hard repair".
QString modeName(const ListedDevice &device);
QString idText(const ListedDevice &device); // "e5c1:3601"

// What JSON says of a device, in every command.
QJsonObject toJson(const ListedDevice &device);
