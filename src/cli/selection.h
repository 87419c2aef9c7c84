#pragma once

#include "devices.h"
#include "exitstatus.h"

#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

class Output;
struct ProductInfo;

// Which devices a command is for. Nothing here touches a device.

struct Selection
{
    std::vector<const ListedDevice *> devices; // of the list that was chosen from
    // Why nothing may be done: the status is not Done, and `devices` is empty.
    ExitStatus status = ExitStatus::Done;
    QString error;
    std::vector<const ListedDevice *> candidates; // that the error is about
};

// Whether a command takes this device unasked. It is called for devices that the scan could not use
// as well, of which nothing but the ids is known.
using Fits = std::function<bool(const ListedDevice &device)>;

// The devices with these serial numbers or port paths, each once, in the order of the names. Fails
// when a name is nobody's, or several devices', or that of a device that cannot be used.
Selection selectNamed(const Devices &devices, const QStringList &names);
// The one device that fits. Fails when there are none or several, or when it cannot be used.
Selection selectOnly(const Devices &devices, const Fits &fits);
// Every device that fits, those that cannot be used included, and they come last. Fails when there
// is none.
Selection selectAll(const Devices &devices, const Fits &fits);

// Whether an update with a package of this product may take the device although nobody named it. A
// running device has to show one of the product's ids. One in soft repair has to show a repair id
// of the product's own group of sixteen ids: any package of the vendor may be written to it, and
// choosing the wrong one is left to a person. What a bare controller belongs to nobody can tell.
bool fitsUnasked(const ProductInfo &product, const DeviceDescription &device);
// The same for a device that is known by its ids alone.
bool mayFitUnasked(const ProductInfo &product, ProductId id);

// A repair finds its device again by its bus, the port of the last hub and the sandbox's ids. This
// is another device that it might take for its own then: one that runs a sandbox of the product
// already, behind another hub of the bus, on a port of the same number. Null if there is none.
const usbview::SystemDevice *mistakableSandbox(const ProductInfo &product,
                                               const ListedDevice &device,
                                               const std::vector<usbview::SystemDevice> &shown);

// Whether the device runs its product's firmware, as far as one can know.
bool isRunning(const ListedDevice &device);

// Says why nothing was selected, with the candidates. Returns the selection's status.
ExitStatus report(Output &output, const Selection &selection);

// The status that a device that cannot be used comes to.
ExitStatus statusOf(const ListedDevice &unusable);
// The status of a request that failed: what the system shows of the device now tells whether the
// device refused it, or this program was kept from the device.
ExitStatus statusNow(const ListedDevice &device, const usbview::Places &places);
// The sandbox as which a device in repair has come back to its port, and that this program is kept
// from. No value if there is none.
std::optional<ListedDevice> closedSandbox(const ProductInfo &product, const ListedDevice &device,
                                          const usbview::Places &places);
