#pragma once

#include "devicedescription.h"

#include <QString>

#include <optional>
#include <vector>

// What the system itself says of the recognised capture devices on its USB buses, whether a scan
// can use them or not, and so why it could not.
//
// It is read from files: no device is opened, claimed or woken up, nothing stays open, and nothing
// read here waits for a device (on Linux, an attribute that takes the device's lock is left alone).
// So it may be called on any thread, the GUI thread included.
namespace usbview {

// What keeps this program from working with a device.
enum class Obstacle {
    None,   // nothing that the system shows; a device that a scan leaves out does not answer
    Denied, // this user may not read and write its node
    NoNode, // it has no node to open, as in a container that is not given the device
    Held,   // another program or driver holds it, see SystemDevice::held
};

struct SystemDevice
{
    ProductId id{};
    quint8 busNumber = 0;
    quint16 deviceAddress = 0; // both as libusb numbers them
    QString portPath;          // "2-1.4": bus, port of its root hub, ports of the hubs on the way
    int speed = 0;             // of its link in Mbit/s: 12, 480, 5000, 10000, ...; 0: not known

    bool hasNode = false;
    bool mayOpen = false; // this user may read and write the node; false without a node

    // Someone has interface 0 and this program could not take it: another program has claimed it
    // (Linux calls that the driver "usbfs"), or a driver has taken the device as a whole
    // ("usbip-host", which lends it to another machine). An ordinary driver at the interface, such
    // as uvcvideo, is normal for a running device and does not count, since the program detaches
    // it. What this process itself has claimed counts as held.
    bool held = false;
    QString driver; // the one at interface 0, or the one that has the device; empty: none

    // The first that the program would meet: no node, no right to open it, held.
    Obstacle obstacle() const;
};

// Where the files are.
struct Places
{
    QString sysfs = QStringLiteral("/sys");
    QString devices = QStringLiteral("/dev");
};

// The devices whose ids are in s_filters, ordered by bus and address. A device that goes while it
// is read is left out. No value where the system does not show its USB devices: on other systems
// than Linux, or when the folder of the devices cannot be read.
std::optional<std::vector<SystemDevice>> recognisedDevices(const Places &places = {});

// The one at this bus and address; null if there is none.
const SystemDevice *find(const std::vector<SystemDevice> &devices, quint8 busNumber,
                         quint16 deviceAddress);

} // namespace usbview
