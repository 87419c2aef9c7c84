#pragma once

#include "bytes.h"
#include "uevents.h"

#include <memory>
#include <set>
#include <string>

using UMockdevTestbed = struct _UMockdevTestbed;
using UMockdevIoctlBase = struct _UMockdevIoctlBase;

namespace sim {

// What sysfs says of a plugged device.
struct SysfsEntry
{
    unsigned bus = 1;
    std::string portPath = "1"; // "2.1.4": the ports of the hubs on the way, then its own
    unsigned address = 2;
    Bytes descriptors;     // device and configuration
    unsigned speed = 5000; // of the link, in Mbit/s
    unsigned interfaces = 1;
};

// /dev/bus/usb/001/002
std::string devicePath(unsigned bus, unsigned address);

// The file system in which the programs under test live: /dev and /sys in a directory, with
// umockdev's preload leading them there.
class TestBed
{
public:
    TestBed();
    ~TestBed();
    TestBed(const TestBed &) = delete;
    TestBed &operator=(const TestBed &) = delete;

    // Where the root of the test bed is.
    const std::string &root() const { return rootDirectory; }

    // Leads ioctls on a device path to a handler. Throws std::runtime_error.
    void attach(const std::string &path, UMockdevIoctlBase *handler);
    void detach(const std::string &path);

    // Shows a hub that is always there: at this path, such as "2" or "2.1", of the bus. Those on
    // the way to it come first.
    void addHub(unsigned bus, const std::string &portPath, unsigned address);
    // Shows the device in sysfs and says so to the programs; removes it again.
    void add(const SysfsEntry &entry);
    void remove(const SysfsEntry &entry);

    // Shows which driver is bound to an interface of a device that is there; empty: none.
    void showDriver(const SysfsEntry &entry, unsigned interface, const std::string &driver) const;

private:
    void needRootHub(unsigned bus);
    void addFromString(const std::string &description);
    void notify(const char *action, const SysfsEntry &entry);

    struct Unref
    {
        void operator()(UMockdevTestbed *bed) const;
    };
    std::unique_ptr<UMockdevTestbed, Unref> bed;
    std::string rootDirectory;
    std::set<unsigned> hubs; // buses that have their root hub
    unsigned sequence = 0;   // of uevents
};

} // namespace sim
