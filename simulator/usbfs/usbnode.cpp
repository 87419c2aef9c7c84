#include "usbnode.h"

#include "simulationlock.h"

#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace sim {
namespace {

constexpr unsigned s_closeTakesMs = 50; // at most; a file that is still open then is really open
constexpr uint32_t s_capabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                    USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                    USBDEVFS_CAP_REAP_AFTER_DISCONNECT;

const char *nameOfIoctl(unsigned long request)
{
    static const std::map<unsigned long, const char *> s_names = {
        {USBDEVFS_SUBMITURB, "SUBMITURB"},
        {USBDEVFS_REAPURB, "REAPURB"},
        {USBDEVFS_REAPURBNDELAY, "REAPURBNDELAY"},
        {USBDEVFS_DISCARDURB, "DISCARDURB"},
        {USBDEVFS_CLAIMINTERFACE, "CLAIMINTERFACE"},
        {USBDEVFS_RELEASEINTERFACE, "RELEASEINTERFACE"},
        {USBDEVFS_GETDRIVER, "GETDRIVER"},
        {USBDEVFS_IOCTL, "IOCTL"},
        {USBDEVFS_GET_CAPABILITIES, "GET_CAPABILITIES"},
    };
    const auto found = s_names.find(request);
    return found == s_names.end() ? "other" : found->second;
}

// As USBDEVFS_GET_SPEED counts.
int speedNumber(unsigned speed)
{
    switch (speed) {
    case 12:
        return 2;
    case 480:
        return 3;
    case 5000:
        return 5;
    default:
        return 6;
    }
}

const char *statusText(int result)
{
    switch (result) {
    case -EBUSY:
        return "busy";
    case -ENOENT:
    case -ENODATA:
        return "not-found";
    case -ENODEV:
        return "no-device";
    default:
        return result < 0 ? "error" : "ok";
    }
}

} // namespace

UsbNode::UsbNode(TestBed &testBed, SysfsEntry sysfsEntry, NodeOwner &nodeOwner,
                 NodeOptions nodeOptions)
    : bed(testBed),
      sysfs(std::move(sysfsEntry)),
      owner(nodeOwner),
      options(std::move(nodeOptions)),
      path(devicePath(sysfs.bus, sysfs.address)),
      boundDrivers(options.kernelDrivers),
      pipe(bed.root() + path),
      handler(umockdev_ioctl_base_new())
{
    pipe.setAccess(!options.denied);
    pipe.setMissing(options.missing);
    g_signal_connect(handler, "handle-ioctl", G_CALLBACK(&UsbNode::onIoctl), this);
    // Programs learn of the device only when everything behind it is in place.
    bed.attach(path, handler);
    bed.add(sysfs);
    showDrivers();
}

UsbNode::~UsbNode()
{
    unplug();
    for (const auto &[client, timer] : waiting) {
        g_object_unref(client);
    }
    for (const auto &[client, file] : files) {
        g_object_weak_unref(G_OBJECT(client), &UsbNode::onClientGone, this);
    }
    g_signal_handlers_disconnect_by_data(handler, this);
    g_object_unref(handler);
}

void UsbNode::unplug()
{
    if (gone) {
        return;
    }
    gone = true;
    pipe.setMissing(true);
    bed.detach(path);
    bed.remove(sysfs);
    for (const auto &[client, file] : files) {
        file->disconnect();
    }
}

int UsbNode::onIoctl(UMockdevIoctlBase *, UMockdevIoctlClient *client, void *self)
{
    const SimulationLock lock;
    auto *node = static_cast<UsbNode *>(self);
    // umockdev tells of a close a little later than it happens. Were a new file served at once, it
    // could find the interface claimed by one that is closed already.
    if (!node->files.empty() && !node->files.count(client)) {
        node->answerLater(client);
    } else {
        node->answer(client);
    }
    return TRUE;
}

void UsbNode::answer(UMockdevIoctlClient *client)
{
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    owner.called(nameOfIoctl(request));
    const int result = dispatch(fileOf(client), request, client);
    if (result < 0) {
        umockdev_ioctl_client_complete(client, -1, -result);
    } else {
        umockdev_ioctl_client_complete(client, result, 0);
    }
}

void UsbNode::answerLater(UMockdevIoctlClient *client)
{
    g_object_ref(client);
    waiting[client].start(s_closeTakesMs, [this, client] { answerWaiting(client); });
}

void UsbNode::answerWaiting(UMockdevIoctlClient *client)
{
    waiting.erase(client);
    if (umockdev_ioctl_client_get_connected(client)) {
        answer(client);
    }
    g_object_unref(client);
}

void UsbNode::onClientGone(void *self, GObject *client)
{
    const SimulationLock lock;
    // umockdev tells neither of a close nor of a program's death in every case; the end of the
    // client object does.
    auto *node = static_cast<UsbNode *>(self);
    node->files.erase(reinterpret_cast<UMockdevIoctlClient *>(client));
    node->updateReady();
    node->showDrivers();
    node->owner.filesChanged();
    if (!node->files.empty()) {
        return;
    }
    for (auto &[next, timer] : node->waiting) {
        timer.start(0, [node, next = next] { node->answerWaiting(next); });
    }
}

UsbFile &UsbNode::fileOf(UMockdevIoctlClient *client)
{
    std::unique_ptr<UsbFile> &file = files[client];
    if (!file) {
        file = std::make_unique<UsbFile>(owner, sysfs.address, [this] { updateReady(); });
        g_object_weak_ref(G_OBJECT(client), &UsbNode::onClientGone, this);
        owner.filesChanged();
    }
    return *file;
}

int UsbNode::dispatch(UsbFile &file, unsigned long request, UMockdevIoctlClient *client)
{
    const Argument argument = [client](size_t size) {
        return ClientMemory::ofArgument(client, size);
    };
    // A device that is gone leaves only finished transfers to fetch.
    if (request == USBDEVFS_REAPURBNDELAY || request == USBDEVFS_REAPURB) {
        const int result = file.reap(argument(sizeof(void *)));
        return gone && result == EAGAIN ? -ENODEV : -result;
    }
    if (request == USBDEVFS_DISCARDURB) {
        return -file.discard(ClientMemory::argumentValue(client));
    }
    if (gone) {
        return refuseAsGone(file, request, argument);
    }
    switch (request) {
    case USBDEVFS_SUBMITURB:
        return -file.submit(argument(sizeof(usbdevfs_urb)));
    case USBDEVFS_CLAIMINTERFACE:
        return claim(file, argument(sizeof(unsigned)).as<unsigned>());
    case USBDEVFS_RELEASEINTERFACE:
        return release(file, argument(sizeof(unsigned)).as<unsigned>());
    case USBDEVFS_GETDRIVER:
        return getDriver(argument(sizeof(usbdevfs_getdriver)));
    case USBDEVFS_IOCTL:
        return driverIoctl(file, argument(sizeof(usbdevfs_ioctl)));
    case USBDEVFS_GET_CAPABILITIES:
        argument(sizeof s_capabilities).write(0, &s_capabilities, sizeof s_capabilities);
        return 0;
    case USBDEVFS_GET_SPEED:
        return speedNumber(sysfs.speed);
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESET:
        return 0;
    default:
        return -ENOTTY;
    }
}

// Nothing works any more, but how the program gives the device back is worth recording.
int UsbNode::refuseAsGone(const UsbFile &file, unsigned long request, const Argument &argument)
{
    if (request == USBDEVFS_CLAIMINTERFACE) {
        return report(file, "claim", argument(sizeof(unsigned)).as<unsigned>(), -ENODEV);
    }
    if (request == USBDEVFS_RELEASEINTERFACE) {
        return report(file, "release", argument(sizeof(unsigned)).as<unsigned>(), -ENODEV);
    }
    if (request != USBDEVFS_IOCTL) {
        return -ENODEV;
    }
    const auto command = argument(sizeof(usbdevfs_ioctl)).as<usbdevfs_ioctl>();
    const bool attach = static_cast<unsigned>(command.ioctl_code) == USBDEVFS_CONNECT;
    return report(file, attach ? "driver-attach" : "driver-detach",
                  static_cast<unsigned>(command.ifno), -ENODEV);
}

bool UsbNode::isClaimed(unsigned interface) const
{
    return std::any_of(files.begin(), files.end(),
                       [interface](const auto &entry) { return entry.second->claimed(interface); });
}

int UsbNode::claim(UsbFile &file, unsigned interface)
{
    int result = -owner.claimFault();
    const bool faulted = result != 0;
    if (result == 0 && !hasInterface(interface)) {
        result = -ENOENT;
    } else if (result == 0 && !file.claimed(interface) && !driver(interface).empty()) {
        result = -EBUSY;
    }
    if (result == 0) {
        file.setClaimed(interface, true);
        showDriver(interface);
    }
    return report(file, "claim", interface, result, faulted);
}

int UsbNode::release(UsbFile &file, unsigned interface)
{
    int result = 0;
    if (!hasInterface(interface)) {
        result = -ENOENT;
    } else if (!file.claimed(interface)) {
        result = -EINVAL;
    } else {
        file.setClaimed(interface, false);
        showDriver(interface);
    }
    return report(file, "release", interface, result);
}

int UsbNode::getDriver(const ClientMemory &memory) const
{
    const unsigned interface = memory.as<usbdevfs_getdriver>().interface;
    if (!hasInterface(interface)) {
        return -EINVAL;
    }
    const std::string name = driver(interface);
    if (name.empty()) {
        return -ENODATA;
    }
    memory.write(offsetof(usbdevfs_getdriver, driver), name.c_str(), name.size() + 1);
    return 0;
}

std::string UsbNode::driver(unsigned interface) const
{
    if (isClaimed(interface)) {
        return "usbfs";
    }
    const auto bound = boundDrivers.find(interface);
    return bound == boundDrivers.end() ? std::string() : bound->second;
}

void UsbNode::showDriver(unsigned interface) const
{
    if (!gone) {
        bed.showDriver(sysfs, interface, driver(interface));
    }
}

void UsbNode::showDrivers() const
{
    for (unsigned interface = 0; interface < sysfs.interfaces; ++interface) {
        showDriver(interface);
    }
}

int UsbNode::driverIoctl(const UsbFile &file, const ClientMemory &memory)
{
    const auto command = memory.as<usbdevfs_ioctl>();
    const auto interface = static_cast<unsigned>(command.ifno);
    if (!hasInterface(interface)) {
        return -EINVAL;
    }
    if (static_cast<unsigned>(command.ioctl_code) == USBDEVFS_DISCONNECT) {
        return report(file, "driver-detach", interface, detachDriver(interface));
    }
    if (static_cast<unsigned>(command.ioctl_code) == USBDEVFS_CONNECT) {
        return report(file, "driver-attach", interface, attachDriver(interface));
    }
    return -ENOTTY;
}

int UsbNode::detachDriver(unsigned interface)
{
    if (boundDrivers.erase(interface) == 0) {
        return -ENODATA;
    }
    showDriver(interface);
    return 0;
}

// 1: a driver was bound; 0: none fits, which libusb calls NOT_FOUND.
int UsbNode::attachDriver(unsigned interface)
{
    if (!driver(interface).empty()) {
        return -EBUSY;
    }
    const auto fits = options.kernelDrivers.find(interface);
    if (fits == options.kernelDrivers.end()) {
        return 0;
    }
    boundDrivers.insert(*fits);
    showDriver(interface);
    return 1;
}

int UsbNode::report(const UsbFile &file, const char *event, unsigned interface, int result,
                    bool faulted)
{
    const bool noDriver = std::strcmp(event, "driver-attach") == 0 && result == 0;
    JsonObject details;
    details.add("file", file.number())
        .add("interface", interface)
        .add("status", noDriver ? "not-found" : statusText(result));
    if (faulted) {
        details.add("fault", true);
    }
    owner.event(sysfs.address, event, details);
    return result;
}

void UsbNode::updateReady()
{
    pipe.setReady(std::any_of(files.begin(), files.end(),
                              [](const auto &entry) { return entry.second->canReap(); }));
}

} // namespace sim
