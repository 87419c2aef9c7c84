#include "winusbinstall.h"

#include "platforminstaller.h"

#include <array>
#include <cstdio>

namespace usb::wdi {
namespace {

// Users and support know the driver package by this name, so it stays the same in every release.
constexpr char s_infName[] = "quorlin_capso_hdmi_configuration.inf";

using Description = std::array<char, 128>; // with its terminating zero

// libwdi has no text for some devices and results.
const char *printable(const char *text)
{
    return text != nullptr ? text : "(null)";
}

// The connected devices; empty when they cannot be listed. Its devices and all their texts are gone
// when the list is.
class DeviceList
{
public:
    explicit DeviceList(const Functions &functions) : wdi(functions)
    {
        CreateListOptions options{};
        options.listAll = 1;
        options.trimWhitespaces = 1;
        listed = wdi.createList(&head, &options) == Success;
    }
    ~DeviceList()
    {
        if (listed) {
            wdi.destroyList(head);
        }
    }
    DeviceList(const DeviceList &) = delete;
    DeviceList &operator=(const DeviceList &) = delete;

    bool isListed() const { return listed; }
    const DeviceInfo *first() const { return listed ? head : nullptr; }

private:
    const Functions &wdi;
    DeviceInfo *head = nullptr;
    bool listed = false;
};

bool same_interface(const DeviceInfo &a, const DeviceInfo &b)
{
    return a.vid == b.vid && a.pid == b.pid && a.mi == b.mi;
}

// Takes the name by which Windows lists the device, cut to the buffer; of several like it, the last
// one's. False when the devices cannot be listed. The name is a copy, as the list is not kept.
bool find_description(const Functions &wdi, const DeviceInfo &device, Description &description)
{
    const DeviceList list(wdi);
    for (const DeviceInfo *info = list.first(); info != nullptr; info = info->next) {
        if (!same_interface(*info, device)) {
            continue;
        }
        std::printf("Set device desc: %s\n", printable(info->desc));
        if (info->desc != nullptr) {
            std::snprintf(description.data(), description.size(), "%s", info->desc);
        }
    }
    return list.isListed();
}

int prepare(const Functions &wdi, DeviceInfo &device)
{
    PrepareDriverOptions options{};
    const int result = wdi.prepareDriver(&device, nullptr, s_infName, &options);
    std::printf("WDI driver prepare: %s\n", printable(wdi.strError(result)));
    return result;
}

int install_one(const Functions &wdi, DeviceInfo &device)
{
    InstallDriverOptions options{};
    const int result = wdi.installDriver(&device, nullptr, s_infName, &options);
    std::printf("Install status: %s (%d)\n", printable(wdi.strError(result)), result);
    return result;
}

// Installs for each connected device like the given one until one fails. When there is none (or no
// list), installs for the given one, so that Windows has the driver when the device appears.
int install_all(const Functions &wdi, DeviceInfo &device)
{
    std::printf("Installing driver(s)...\n");

    const DeviceList list(wdi);
    bool found = false;
    for (const DeviceInfo *info = list.first(); info != nullptr; info = info->next) {
        if (!same_interface(*info, device)) {
            continue;
        }
        found = true;
        std::printf("Found device: %s: ", printable(info->hardwareId));
        // Installation takes its time: show what it is busy with.
        std::fflush(stdout);

        DeviceInfo target = device;
        target.deviceId = info->deviceId;
        target.hardwareId = info->hardwareId;
        const int result = install_one(wdi, target);
        if (result != Success) {
            return result;
        }
    }
    return found ? Success : install_one(wdi, device);
}

int return_value(int result)
{
    switch (result) {
    case Success:
        return DriverReady;
    case NeedsAdmin:
        return InstallNeedsAdmin;
    default:
        return InstallFailed;
    }
}

} // namespace

int install(const Functions &wdi, unsigned short vendorId, unsigned short productId,
            unsigned char interfaceNumber, bool composite, char *deviceDescription)
{
    Description description{};
    DeviceInfo device{};
    device.vid = vendorId;
    device.pid = productId;
    device.isComposite = composite ? 1 : 0;
    device.mi = composite ? interfaceNumber : 0;
    device.desc = deviceDescription;

    wdi.setLogLevel(LogDebug);
    if (device.desc == nullptr && find_description(wdi, device, description)) {
        device.desc = description.data();
    }

    int result = prepare(wdi, device);
    if (result == Success) {
        result = install_all(wdi, device);
    }
    return return_value(result);
}

} // namespace usb::wdi
