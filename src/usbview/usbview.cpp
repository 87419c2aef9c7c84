#include "usbview.h"

#include <algorithm>

namespace usbview {

Obstacle SystemDevice::obstacle() const
{
    if (!hasNode) {
        return Obstacle::NoNode;
    }
    if (!mayOpen) {
        return Obstacle::Denied;
    }
    return held ? Obstacle::Held : Obstacle::None;
}

const SystemDevice *find(const std::vector<SystemDevice> &devices, quint8 busNumber,
                         quint16 deviceAddress)
{
    const auto found = std::find_if(
        devices.begin(), devices.end(), [busNumber, deviceAddress](const SystemDevice &device) {
            return device.busNumber == busNumber && device.deviceAddress == deviceAddress;
        });
    return found == devices.end() ? nullptr : &*found;
}

} // namespace usbview
