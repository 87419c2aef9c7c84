#pragma once

#include "scriptedlibusb.h"

#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>

// A device with nothing but a boot loader, which keeps what is written to its memory and, once
// started, leaves the bus and comes back as its sandbox.
class BrokenDevice
{
public:
    BrokenDevice(ScriptedUsb &scriptedBus, const QByteArray &id)
        : bus(scriptedBus), loader(bus.plug("loader", id))
    {
        place(loader, 9);
        bus.onTransfer([this](const ScriptedTransfer &transfer) { return answer(transfer); });
    }

    // Where it comes back; without this it stays away.
    void comesBackAs(const char *name, const QByteArray &id)
    {
        sandbox = bus.plug(name, id);
        place(sandbox, 23);
        bus.unplug(sandbox);
        sandboxName = name;
        sandboxId = id;
    }

    std::function<std::optional<int>(const ScriptedTransfer &)> fault;

    ScriptedUsb &bus;
    libusb_device *loader;
    libusb_device *sandbox = nullptr;
    std::function<void(libusb_device *)> prepareSandbox;

private:
    static void place(libusb_device *device, quint8 address)
    {
        device->bus = 2;
        device->port = 6;
        device->address = address;
    }

    std::optional<int> answer(const ScriptedTransfer &transfer)
    {
        if (fault) {
            const auto result = fault(transfer);
            if (result) {
                return result;
            }
        }
        if (transfer.request != 0xA0) {
            return {};
        }
        const quint32 address = quint32(transfer.index) << 16 | transfer.value;
        if (transfer.isIn()) {
            std::memcpy(transfer.buffer, memory[address].constData(), transfer.length);
            return transfer.length;
        }
        if (transfer.length != 0) {
            memory[address] = transfer.data;
            return transfer.length;
        }
        bus.unplug(loader);
        if (sandbox != nullptr) {
            sandbox = bus.plug(sandboxName, sandboxId);
            place(sandbox, 23);
            if (prepareSandbox) {
                prepareSandbox(sandbox);
            }
        }
        return 0;
    }

    std::string sandboxName;
    QByteArray sandboxId;
    std::map<quint32, QByteArray> memory;
};
