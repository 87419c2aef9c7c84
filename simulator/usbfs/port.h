#pragma once

#include "nodeowner.h"
#include "scene.h"
#include "timer.h"
#include "usbnode.h"

#include <algorithm>
#include <functional>
#include <list>
#include <memory>

namespace sim {

// Gives out the addresses of a bus, as the host controller does: always a fresh one.
class AddressPool
{
public:
    // The next address of the bus that no device has.
    unsigned take(unsigned bus);
    // This one. Throws SceneError when a device has it.
    void take(unsigned bus, unsigned address);
    // The highest that no device has, for what is always there.
    unsigned takeLast(unsigned bus);
    void giveBack(unsigned bus, unsigned address);

private:
    std::map<unsigned, std::set<unsigned>> taken;
    std::map<unsigned, unsigned> last;
};

// A port with its device: the device's behaviour, its faults, and its coming and going.
class Port : private NodeOwner
{
public:
    Port(TestBed &bed, Transcript &transcript, AddressPool &addresses, const SceneDevice &scene,
         unsigned port);

    // Throws SceneError when it is plugged in already, or the address is taken.
    void plug(std::optional<unsigned> address = std::nullopt);
    // Pulls the plug; everything volatile is lost. Throws SceneError when it is not plugged.
    void unplug();
    void powerCycle(std::optional<unsigned> address = std::nullopt);

    // A property in the words of a scene.
    void set(WordReader &words);
    void addFault(Fault fault);
    void clearFaults();

    const std::string &name() const { return device.config().name; }
    CaptureDevice &captureDevice() { return device; }
    // state.json
    std::string state() const;
    // fx3.bin, fpga.bin, edid.bin and state.json below this directory.
    void writeMemories(const std::string &directory) const;
    // Keeps the device for the next run; only at the end of this one.
    void keep(const std::string &directory);
    // Whether no program has it open.
    bool isIdle() const;
    bool sawViolation() const { return !device.violations().empty(); }

    // Called for plugs, unplugs and violations, for people who watch.
    std::function<void(const std::string &)> onNews;

private:
    unsigned nextTransferNumber() override { return ++transfers; }
    unsigned nextFileNumber() override { return ++fileCount; }
    void called(const char *ioctl) override { ++calls[ioctl]; }
    Completion control(const Setup &setup, const Bytes &out, bool claimed) override;
    int claimFault() override;
    void finished(unsigned address, const TransferRecord &record) override;
    void late(unsigned ms) override { lateMs = std::max(lateMs, ms); }
    void afterTransfer(const Completion &completion) override;
    void event(unsigned address, const char *name, const JsonObject &details) override;
    void filesChanged() override;

    void plugIn(std::optional<unsigned> address);
    std::string portPath() const; // "2.1.4"
    void leave();
    void startCode(const CaptureDevice::Departure &departure, const Completion &answer);
    void comeBack();
    void comeBackAgain();
    void checkAccess();
    bool isDenied() const;
    bool isMissing() const;
    void retire();
    void news(const std::string &text) const;
    unsigned address() const { return node ? node->entry().address : lastAddress; }

    TestBed &bed;
    Transcript &transcript;
    AddressPool &addresses;
    CaptureDevice device;
    FaultPlan faults;
    unsigned portNumber;
    unsigned lastBus = 0;
    unsigned lastAddress = 0;
    unsigned transfers = 0;
    unsigned fileCount = 0;
    std::map<std::string, unsigned> calls; // ioctls by name, at all its addresses
    unsigned lateMs = 0;                   // by how much the latest of the delayed answers was
    bool pulled = true;     // the plug is out; a device that left by itself is still plugged in
    bool returning = false; // comes back from a start, by its rule
    std::unique_ptr<UsbNode> node;
    std::list<std::unique_ptr<UsbNode>> retired; // unplugged, but still open somewhere
    Timer coming;
    Timer leaving;
    Timer idle;
};

} // namespace sim
