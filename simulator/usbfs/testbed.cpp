#include "testbed.h"

#include "descriptors.h"

#include <umockdev.h>

#include <cstdio>
#include <stdexcept>

#include <unistd.h>

namespace sim {
namespace {

constexpr const char *s_controller = "/devices/pci0000:00/0000:00:14.0";
constexpr unsigned s_addressesPerBus = 128; // minor numbers of usb devices
constexpr unsigned s_usbMajor = 189;
constexpr UsbId s_rootHubId = {0x1D6B, 0x0003};

std::string format(const char *text, unsigned first, unsigned second)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, text, first, second);
    return buffer;
}

std::string hubPath(unsigned bus)
{
    return std::string(s_controller) + format("/usb%u", bus, 0);
}

std::string sysPath(const SysfsEntry &entry)
{
    return hubPath(entry.bus) + format("/%u-%u", entry.bus, entry.port);
}

std::string nodeName(const SysfsEntry &entry)
{
    return format("bus/usb/%03u/%03u", entry.bus, entry.address);
}

unsigned minorOf(const SysfsEntry &entry)
{
    return (entry.bus - 1) * s_addressesPerBus + entry.address - 1;
}

// One device in the text form that umockdev reads.
std::string describe(const std::string &path, const SysfsEntry &entry)
{
    return "P: " + path + "\n" +                         //
           "E: SUBSYSTEM=usb\n" +                        //
           "E: DEVTYPE=usb_device\n" +                   //
           "E: DEVNAME=/dev/" + nodeName(entry) + "\n" + //
           format("A: busnum=%u\\n\nA: devnum=%u\\n\n", entry.bus, entry.address) +
           format("A: dev=%u:%u\\n\n", s_usbMajor, minorOf(entry)) + //
           "A: speed=5000\\n\n"                                      //
           "A: bConfigurationValue=1\\n\n"                           //
           "H: descriptors=" +
           toHex(entry.descriptors) + "\n";
}

Bytes rootHubDescriptors()
{
    Bytes bytes = deviceDescriptor(s_rootHubId, {false, false});
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
    if (!umockdev_testbed_attach_ioctl(bed.get(), path.c_str(), handler, &error))
        fail(error);
}

void TestBed::detach(const std::string &path)
{
    GError *error = nullptr;
    if (!umockdev_testbed_detach_ioctl(bed.get(), path.c_str(), &error))
        fail(error);
}

void TestBed::add(const SysfsEntry &entry)
{
    if (hubs.insert(entry.bus).second)
        addRootHub(entry.bus);
    addFromString(describe(sysPath(entry), entry));
    notify("add", entry);
}

void TestBed::remove(const SysfsEntry &entry)
{
    umockdev_testbed_remove_device(bed.get(), ("/sys" + sysPath(entry)).c_str());
    // umockdev leaves the link by number, and would stumble over it when the address is used again.
    unlink((rootDirectory + format("/sys/dev/char/%u:%u", s_usbMajor, minorOf(entry))).c_str());
    notify("remove", entry);
}

void TestBed::addRootHub(unsigned bus)
{
    addFromString(describe(hubPath(bus), {bus, 0, 1, rootHubDescriptors()}));
}

void TestBed::addFromString(const std::string &description)
{
    GError *error = nullptr;
    if (!umockdev_testbed_add_from_string(bed.get(), description.c_str(), &error))
        fail(error);
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
