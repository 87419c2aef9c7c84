#pragma once

#include "readypipe.h"
#include "testbed.h"
#include "usbfile.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

struct _GObject;

namespace sim {

// How a plugged device appears beyond its descriptors.
struct NodeOptions
{
    std::map<unsigned, std::string> kernelDrivers; // by the interface that they are bound to
    bool denied = false;                           // opening fails for lack of rights
    bool missing = false; // the node is not there, though sysfs shows the device
};

// A device as it is plugged in once, at one address: its node and those who have it open. After
// unplug() it lives on until the last file is closed, answering that the device is gone.
class UsbNode
{
public:
    UsbNode(TestBed &bed, SysfsEntry entry, NodeOwner &owner, NodeOptions options);
    ~UsbNode();
    UsbNode(const UsbNode &) = delete;
    UsbNode &operator=(const UsbNode &) = delete;

    void unplug();
    void setDenied(bool denied) { pipe.setAccess(!denied); }
    void setMissing(bool missing) { pipe.setMissing(missing || gone); }

    const SysfsEntry &entry() const { return sysfs; }
    size_t openFiles() const { return files.size(); }

private:
    static int onIoctl(UMockdevIoctlBase *handler, UMockdevIoctlClient *client, void *self);
    static void onClientGone(void *self, _GObject *client);

    void answer(UMockdevIoctlClient *client);
    void answerLater(UMockdevIoctlClient *client);
    void answerWaiting(UMockdevIoctlClient *client);
    UsbFile &fileOf(UMockdevIoctlClient *client);
    // The result of an ioctl: 0 or more, or a negative errno.
    int dispatch(UsbFile &file, unsigned long request, UMockdevIoctlClient *client);
    // Fetches the memory that an ioctl's argument points at.
    using Argument = std::function<ClientMemory(size_t size)>;
    int refuseAsGone(const UsbFile &file, unsigned long request, const Argument &argument);
    int claim(UsbFile &file, unsigned interface);
    int release(UsbFile &file, unsigned interface);
    int getDriver(const ClientMemory &memory) const;
    int driverIoctl(const UsbFile &file, const ClientMemory &memory);
    int detachDriver(unsigned interface);
    int attachDriver(unsigned interface);
    bool hasInterface(unsigned interface) const { return interface < sysfs.interfaces; }
    bool isClaimed(unsigned interface) const;
    void showDriver(unsigned interface) const;
    void showDrivers() const;
    // As the kernel names it; a claim counts as one. Empty: none.
    std::string driver(unsigned interface) const;
    int report(const UsbFile &file, const char *event, unsigned interface, int result,
               bool faulted = false);
    void updateReady();

    TestBed &bed;
    SysfsEntry sysfs;
    NodeOwner &owner;
    NodeOptions options;
    std::string path;
    std::map<unsigned, std::string> boundDrivers; // by interface
    ReadyPipe pipe;
    UMockdevIoctlBase *handler;
    bool gone = false;
    std::map<UMockdevIoctlClient *, std::unique_ptr<UsbFile>> files;
    // First ioctls of files, put off until the closing of earlier files has been noticed.
    std::map<UMockdevIoctlClient *, Timer> waiting;
};

} // namespace sim
