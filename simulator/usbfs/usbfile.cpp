#include "usbfile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include <linux/usbdevice_fs.h>

namespace sim {
namespace {

constexpr size_t s_setupSize = 8;
constexpr unsigned s_workInterface = 0; // whose claim vendor requests need

Setup parseSetup(const Bytes &bytes)
{
    Setup setup;
    setup.requestType = bytes[0];
    setup.request = bytes[1];
    setup.value = readLe16(&bytes[2]);
    setup.index = readLe16(&bytes[4]);
    setup.length = readLe16(&bytes[6]);
    return setup;
}

// The status of a finished URB as the kernel gives it, and its name in the transcript.
struct StatusName
{
    Status status;
    int code;
    const char *text;
};

constexpr StatusName s_statuses[] = {
    {Status::Ok, 0, "ok"},
    {Status::Stall, -EPIPE, "stall"},
    {Status::NoDevice, -ENODEV, "no-device"},
    {Status::Protocol, -EPROTO, "protocol"},
    {Status::Overflow, -EOVERFLOW, "overflow"},
};

const StatusName &nameOf(Status status)
{
    return *std::find_if(std::begin(s_statuses), std::end(s_statuses),
                         [status](const StatusName &s) { return s.status == status; });
}

} // namespace

UsbFile::UsbFile(NodeOwner &nodeOwner, unsigned deviceAddress, std::function<void()> readyChanged)
    : owner(nodeOwner),
      address(deviceAddress),
      onReadyChanged(std::move(readyChanged)),
      fileNumber(owner.nextFileNumber())
{
    owner.event(address, "open", JsonObject().add("file", fileNumber));
}

UsbFile::~UsbFile()
{
    for (Urb &urb : urbs) {
        if (urb.ready) {
            continue;
        }
        urb.record.status = "abandoned";
        owner.finished(address, urb.record);
    }
    owner.event(address, "close", JsonObject().add("file", fileNumber));
}

int UsbFile::submit(const ClientMemory &memory)
{
    const auto raw = memory.as<usbdevfs_urb>();
    if (!memory || raw.type != USBDEVFS_URB_TYPE_CONTROL || raw.buffer_length < int{s_setupSize}) {
        return EINVAL;
    }
    urbs.emplace_back();
    Urb &urb = urbs.back();
    urb.urb = memory;
    urb.buffer =
        memory.follow(offsetof(usbdevfs_urb, buffer), static_cast<size_t>(raw.buffer_length));
    const Bytes content = urb.buffer.bytes();
    if (content.size() < s_setupSize) {
        urbs.pop_back();
        return EFAULT;
    }
    urb.record.number = owner.nextTransferNumber();
    urb.record.setup = parseSetup(content);
    const bool out = urb.record.setup.direction() == Direction::Out;
    if (out) {
        urb.record.data.assign(content.begin() + s_setupSize, content.end());
    }
    const Completion completion =
        owner.control(urb.record.setup, out ? urb.record.data : Bytes(), claimed(s_workInterface));
    answer(urb, completion);
    owner.afterTransfer(completion);
    return 0;
}

void UsbFile::setClaimed(unsigned interface, bool claim)
{
    if (claim) {
        claims.insert(interface);
    } else {
        claims.erase(interface);
    }
}

void UsbFile::answer(Urb &urb, const Completion &completion)
{
    urb.outcome = completion.outcome;
    urb.record.faulted = completion.faulted;
    if (urb.outcome.status == Status::Silence) {
        return;
    }
    const StatusName &name = nameOf(urb.outcome.status);
    if (completion.delayMs == 0) {
        finish(urb, name.code, name.text);
    } else {
        urb.due = std::chrono::steady_clock::now() + std::chrono::milliseconds(completion.delayMs);
        urb.delay.start(completion.delayMs,
                        [this, &urb, &name] { finish(urb, name.code, name.text); });
    }
}

void UsbFile::finish(Urb &urb, int status, const char *statusText)
{
    urb.delay.cancel();
    urb.ready = true;
    urb.status = status;
    if (status != 0) {
        urb.outcome = Outcome();
    }
    urb.record.status = statusText;
    urb.record.actual = urb.outcome.actual;
    if (urb.record.setup.direction() == Direction::In) {
        urb.record.data = urb.outcome.data;
    }
    owner.finished(address, urb.record);
    onReadyChanged();
}

int UsbFile::discard(uint64_t urbAddress)
{
    for (Urb &urb : urbs) {
        if (urb.urb.address() != urbAddress || urb.ready) {
            continue;
        }
        noteLateness(urb);
        finish(urb, -ENOENT, "cancelled");
        return 0;
    }
    return EINVAL;
}

bool UsbFile::canReap() const
{
    return std::any_of(urbs.begin(), urbs.end(), [](const Urb &urb) { return urb.ready; });
}

int UsbFile::reap(const ClientMemory &pointer)
{
    const auto ready =
        std::find_if(urbs.begin(), urbs.end(), [](const Urb &urb) { return urb.ready; });
    if (ready == urbs.end()) {
        return EAGAIN;
    }
    noteLateness(*ready);
    writeBack(*ready);
    pointer.writePointerTo(ready->urb);
    urbs.erase(ready);
    onReadyChanged();
    return 0;
}

void UsbFile::writeBack(const Urb &urb) const
{
    const int actual = static_cast<int>(urb.outcome.actual);
    urb.buffer.write(s_setupSize, urb.outcome.data.data(), urb.outcome.data.size());
    urb.urb.write(offsetof(usbdevfs_urb, status), &urb.status, sizeof urb.status);
    urb.urb.write(offsetof(usbdevfs_urb, actual_length), &actual, sizeof actual);
}

// A machine that has too much to do is late in either of two places: here, or in the program.
void UsbFile::noteLateness(const Urb &urb)
{
    using namespace std::chrono;
    const auto now = steady_clock::now();
    if (urb.due && now > *urb.due) {
        owner.late(static_cast<unsigned>(duration_cast<milliseconds>(now - *urb.due).count()));
    }
}

void UsbFile::disconnect()
{
    for (Urb &urb : urbs) {
        if (!urb.ready) {
            finish(urb, -ENODEV, "no-device");
        }
    }
}

} // namespace sim
