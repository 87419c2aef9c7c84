#include "usbview.h"

#include "filters.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <tuple>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace usbview {

namespace {

constexpr int s_longestAttribute = 32; // bytes; each one read here is a short number
constexpr int s_longestLink = 4096;    // bytes
constexpr int s_mostNames = 65536;     // in the folder; far more than buses can carry

constexpr const char *s_claimedByProgram = "usbfs"; // the driver that stands for a claim
constexpr const char *s_ordinaryDriver = "usb";     // the driver of a device that is its own

// The names in a folder; no value when it cannot be read.
std::optional<std::vector<QByteArray>> namesIn(const QByteArray &folder)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(opendir(folder.constData()), closedir);
    if (!stream) {
        return std::nullopt;
    }
    std::vector<QByteArray> names;
    for (int i = 0; i < s_mostNames; ++i) {
        const dirent *entry = readdir(stream.get());
        if (!entry) {
            break;
        }
        names.emplace_back(entry->d_name);
    }
    return names;
}

// The text of an attribute without its line end; empty when there is none, or when it is longer
// than any that is known. What stands there in its place may be a pipe or have no end, so it is
// opened without waiting and read once.
QByteArray attribute(const QByteArray &folder, const char *name)
{
    const QByteArray path = folder + '/' + name;
    const int file = open(path.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    std::array<char, s_longestAttribute> text;
    const ssize_t length = read(file, text.data(), text.size());
    close(file);
    if (length <= 0 || length == s_longestAttribute) {
        return {};
    }
    return QByteArray(text.data(), int(length)).trimmed();
}

// The number that an attribute holds; 0, which none of those read here can be, when it holds none.
quint16 number(const QByteArray &folder, const char *name, int base)
{
    return attribute(folder, name).toUShort(nullptr, base);
}

// The last part of what a link leads to; empty when there is no link.
QByteArray linkedName(const QByteArray &path)
{
    std::array<char, s_longestLink> target;
    const ssize_t length = readlink(path.constData(), target.data(), target.size());
    if (length <= 0) {
        return {};
    }
    const QByteArray whole(target.data(), int(length));
    return whole.mid(whole.lastIndexOf('/') + 1);
}

// Whether this is a device on a port ("2-1.4"), and not a root hub ("usb2") or one interface of a
// device ("2-1.4:1.0").
bool isDevice(const QByteArray &name)
{
    return name.contains('-') && !name.contains(':');
}

// Whether this is interface 0 of the device, "2-1.4:1.0". The number of the configuration is taken
// as it comes: bConfigurationValue takes the device's lock, which the kernel holds for seconds
// while a device does not answer it.
bool isInterfaceZero(const QByteArray &name, const QByteArray &device)
{
    const QByteArray interfaces = device + ':';
    return name.startsWith(interfaces) && name.endsWith(".0");
}

bool isRecognised(ProductId id)
{
    return std::any_of(s_filters.begin(), s_filters.end(),
                       [id](const Filter &filter) { return filter.id == id; });
}

class Reader
{
public:
    Reader(const Places &places, const std::vector<QByteArray> &allNames)
        : folder(QFile::encodeName(places.sysfs) + "/bus/usb/devices/"),
          nodes(QFile::encodeName(places.devices) + "/bus/usb/"),
          names(allNames)
    {
    }

    // No value when it is not recognised, or has gone.
    std::optional<SystemDevice> device(const QByteArray &name) const
    {
        const QByteArray path = folder + name;
        // First and last of all, so that everything in between belongs to this address.
        const quint16 address = number(path, "devnum", 10);
        SystemDevice device;
        device.id = {number(path, "idVendor", 16), number(path, "idProduct", 16)};
        if (!isRecognised(device.id)) {
            return std::nullopt;
        }
        const quint16 bus = number(path, "busnum", 10);
        device.busNumber = quint8(bus);
        device.deviceAddress = address;
        device.portPath = QFile::decodeName(name);
        device.speed = int(attribute(path, "speed").toUInt());
        readRights(device);
        readDriver(name, device);
        // Another device, or the same one after it re-enumerated, would have another address.
        if (bus == 0 || bus > UINT8_MAX || address == 0 || address != number(path, "devnum", 10)) {
            return std::nullopt;
        }
        return device;
    }

private:
    void readRights(SystemDevice &device) const
    {
        const QByteArray node = nodes +
                                QByteArray::number(device.busNumber).rightJustified(3, '0') + '/' +
                                QByteArray::number(device.deviceAddress).rightJustified(3, '0');
        device.mayOpen = access(node.constData(), R_OK | W_OK) == 0;
        device.hasNode = device.mayOpen || errno == EACCES || errno == EPERM;
    }

    void readDriver(const QByteArray &name, SystemDevice &device) const
    {
        const QByteArray ofDevice = linkedName(folder + name + "/driver");
        if (!ofDevice.isEmpty() && ofDevice != s_ordinaryDriver) {
            device.held = true;
            device.driver = QFile::decodeName(ofDevice);
            return;
        }
        const auto interface = std::find_if(names.begin(), names.end(), [&name](const auto &other) {
            return isInterfaceZero(other, name);
        });
        if (interface != names.end()) {
            const QByteArray ofInterface = linkedName(folder + *interface + "/driver");
            device.held = ofInterface == s_claimedByProgram;
            device.driver = QFile::decodeName(ofInterface);
        }
    }

    QByteArray folder;
    QByteArray nodes;
    const std::vector<QByteArray> &names;
};

} // namespace

std::optional<std::vector<SystemDevice>> recognisedDevices(const Places &places)
{
    const auto names = namesIn(QFile::encodeName(places.sysfs) + "/bus/usb/devices");
    if (!names) {
        return std::nullopt;
    }
    const Reader reader(places, *names);
    std::vector<SystemDevice> devices;
    for (const QByteArray &name : *names) {
        if (!isDevice(name)) {
            continue;
        }
        if (const auto device = reader.device(name)) {
            devices.push_back(*device);
        }
    }
    std::sort(devices.begin(), devices.end(), [](const SystemDevice &a, const SystemDevice &b) {
        return std::tie(a.busNumber, a.deviceAddress) < std::tie(b.busNumber, b.deviceAddress);
    });
    return devices;
}

} // namespace usbview
