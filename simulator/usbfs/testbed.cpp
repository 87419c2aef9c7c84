#include "testbed.h"

#include "descriptors.h"

#include <umockdev.h>

#include <cstdio>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr const char *s_controller = "/devices/pci0000:00/0000:00:14.0";
constexpr unsigned s_addressesPerBus = 128; // minor numbers of usb devices
constexpr unsigned s_usbMajor = 189;
constexpr unsigned s_hubSpeed = 10000; // the fastest that a scene can ask for
constexpr UsbId s_rootHubId = {0x1D6B, 0x0003};
constexpr UsbId s_hubId = {0x05E3, 0x0626};

std::string format(const char *text, unsigned first, unsigned second)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, text, first, second);
    return buffer;
}

// umockdev 0.19 announces a device that it has just removed, and complains on standard error, which
// is the simulated program's too, that there is no such device.
void removeQuietly(UMockdevTestbed *bed, const std::string &path)
{
    const int standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (standardError >= 0 && nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
    }
    umockdev_testbed_remove_device(bed, path.c_str());
    if (standardError >= 0) {
        dup2(standardError, STDERR_FILENO);
    }
    close(nowhere);
    close(standardError);
}

std::string hubPath(unsigned bus)
{
    return std::string(s_controller) + format("/usb%u", bus, 0);
}

// As sysfs names it: "1-2.1.4".
std::string deviceName(const SysfsEntry &entry)
{
    return std::to_string(entry.bus) + "-" + entry.portPath;
}

// Below the folders of the hubs on the way, "usb1/1-2/1-2.1/1-2.1.4".
std::string sysPath(const SysfsEntry &entry)
{
    const std::string name = deviceName(entry);
    std::string path = hubPath(entry.bus);
    for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1)) {
        path += "/" + name.substr(0, dot);
    }
    return path + "/" + name;
}

// As sysfs names it: device, configuration 1, interface.
std::string interfacePath(const SysfsEntry &entry, unsigned interface)
{
    return sysPath(entry) + "/" + deviceName(entry) + format(":%u.%u", 1, interface);
}

std::string nodeName(const SysfsEntry &entry)
{
    return format("bus/usb/%03u/%03u", entry.bus, entry.address);
}

unsigned minorOf(const SysfsEntry &entry)
{
    return (entry.bus - 1) * s_addressesPerBus + entry.address - 1;
}

// A field of 16 bits of the device descriptor, in the four digits that sysfs gives it.
std::string hexadecimal(const Bytes &descriptor, size_t offset)
{
    return format("%02x%02x", descriptor.at(offset + 1), descriptor.at(offset));
}

// One device in the text form that umockdev reads.
std::string describe(const std::string &path, const SysfsEntry &entry)
{
    return "P: " + path + "\n" +                         //
           "E: SUBSYSTEM=usb\n" +                        //
           "E: DEVTYPE=usb_device\n" +                   //
           "E: DEVNAME=/dev/" + nodeName(entry) + "\n" + //
           format("A: busnum=%u\\n\nA: devnum=%u\\n\n", entry.bus, entry.address) +
           format("A: dev=%u:%u\\n\n", s_usbMajor, minorOf(entry)) +        //
           "A: idVendor=" + hexadecimal(entry.descriptors, 8) + "\\n\n" +   //
           "A: idProduct=" + hexadecimal(entry.descriptors, 10) + "\\n\n" + //
           format("A: speed=%u\\n\n", entry.speed, 0) +                     //
           "A: bConfigurationValue=1\\n\n" +                                //
           format("A: bNumInterfaces=%2u\\n\n", entry.interfaces, 0) +      //
           "H: descriptors=" + toHex(entry.descriptors) + "\n";
}

std::string describeInterface(const SysfsEntry &entry, unsigned interface)
{
    return "P: " + interfacePath(entry, interface) + "\n" + //
           "E: SUBSYSTEM=usb\n" +                           //
           "E: DEVTYPE=usb_interface\n" +                   //
           format("A: bInterfaceNumber=%02x\\n\n", interface, 0);
}

Bytes hubDescriptors(const UsbId &id)
{
    Bytes bytes = deviceDescriptor(id, {false, false});
    bytes[4] = 9; // class: hub
    const Bytes configuration = configurationDescriptor();
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

[[noreturn]] void fail(GError *error)
{
    const std::string text = error ? error->message : "umockdev failed";
    g_clear_error(&error);
    throw std::runtime_error(text);
}

} // namespace

std::string devicePath(unsigned bus, unsigned address)
{
    return format("/dev/bus/usb/%03u/%03u", bus, address);
}

void TestBed::Unref::operator()(UMockdevTestbed *testbed) const
{
    g_object_unref(testbed);
}

TestBed::TestBed() : bed(umockdev_testbed_new())
{
    gchar *directory = umockdev_testbed_get_root_dir(bed.get());
    rootDirectory = directory;
    g_free(directory);
}

TestBed::~TestBed() = default;

void TestBed::attach(const std::string &path, UMockdevIoctlBase *handler)
{
    GError *error = nullptr;
    if (!umockdev_testbed_attach_ioctl(bed.get(), path.c_str(), handler, &error)) {
        fail(error);
    }
}

void TestBed::detach(const std::string &path)
{
    GError *error = nullptr;
    if (!umockdev_testbed_detach_ioctl(bed.get(), path.c_str(), &error)) {
        fail(error);
    }
}

void TestBed::add(const SysfsEntry &entry)
{
    needRootHub(entry.bus);
    addFromString(describe(sysPath(entry), entry));
    for (unsigned interface = 0; interface < entry.interfaces; ++interface) {
        addFromString(describeInterface(entry, interface));
    }
    notify("add", entry);
}

void TestBed::remove(const SysfsEntry &entry)
{
    for (unsigned interface = 0; interface < entry.interfaces; ++interface) {
        removeQuietly(bed.get(), "/sys" + interfacePath(entry, interface));
    }
    removeQuietly(bed.get(), "/sys" + sysPath(entry));
    // umockdev leaves the link by number, and would stumble over it when the address is used again.
    unlink((rootDirectory + format("/sys/dev/char/%u:%u", s_usbMajor, minorOf(entry))).c_str());
    notify("remove", entry);
}

void TestBed::showDriver(const SysfsEntry &entry, unsigned interface,
                         const std::string &driver) const
{
    const std::string folder = rootDirectory + "/sys" + interfacePath(entry, interface);
    const std::string link = folder + "/driver";
    if (driver.empty()) {
        unlink(link.c_str());
        return;
    }
    // Renamed into its place, so that whoever reads it meets the old driver or the new one.
    const std::string made = link + ".new";
    const std::string target = "../../../../../../bus/usb/drivers/" + driver;
    if (symlink(target.c_str(), made.c_str()) != 0 || rename(made.c_str(), link.c_str()) != 0) {
        throw std::runtime_error("cannot link " + link);
    }
}

void TestBed::addHub(unsigned bus, const std::string &portPath, unsigned address)
{
    needRootHub(bus);
    const SysfsEntry hub{bus, portPath, address, hubDescriptors(s_hubId), s_hubSpeed};
    addFromString(describe(sysPath(hub), hub));
    addFromString(describeInterface(hub, 0));
    showDriver(hub, 0, "hub");
}

void TestBed::needRootHub(unsigned bus)
{
    if (hubs.insert(bus).second) {
        addFromString(
            describe(hubPath(bus), {bus, "0", 1, hubDescriptors(s_rootHubId), s_hubSpeed}));
    }
}

void TestBed::addFromString(const std::string &description)
{
    GError *error = nullptr;
    if (!umockdev_testbed_add_from_string(bed.get(), description.c_str(), &error)) {
        fail(error);
    }
}

void TestBed::notify(const char *action, const SysfsEntry &entry)
{
    sendUevent(rootDirectory, {{"ACTION", action},
                               {"DEVPATH", sysPath(entry)},
                               {"SUBSYSTEM", "usb"},
                               {"DEVTYPE", "usb_device"},
                               {"DEVNAME", "/dev/" + nodeName(entry)},
                               {"SEQNUM", std::to_string(++sequence)}});
}

} // namespace sim
