#include "selection.h"

#include "cli.h"
#include "output.h"
#include "productcatalogue.h"

#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr quint16 s_groupMask = 0xFFF0; // sixteen product ids belong to one product
constexpr quint16 s_softRepairDigit = 0x0;
constexpr quint16 s_sandboxDigit = 0xF;

Selection nothing(ExitStatus status, const QString &error)
{
    Selection selection;
    selection.status = status;
    selection.error = error;
    return selection;
}

bool isPortPath(const QString &name)
{
    const QRegularExpression path(QStringLiteral("^[0-9]+-[0-9]+([.][0-9]+)*\\z"));
    return path.match(name).hasMatch();
}

bool hasName(const ListedDevice &device, const QString &name)
{
    if (name.isEmpty()) {
        return false; // and not that of a device whose serial number is empty
    }
    const QString portPath = device.portPath();
    return portPath == name || (device.usable && device.description.serialNumber == name);
}

Selection cannotBeUsed(const ListedDevice &device)
{
    return nothing(statusOf(device), Cli::tr("cannot use %1").arg(describe(device)));
}

bool hasDenial(const Devices &devices)
{
    return !devices.scanErrors.empty();
}

// Where the system shows nothing, the scan's own word is all there is to say.
Selection denial(const Devices &devices)
{
    return nothing(ExitStatus::NoAccess, devices.scanErrors.front());
}

// The serial number may be that of a device whose strings the scan could not read.
Selection nobodysName(const Devices &devices, const QString &name)
{
    if (hasDenial(devices)) {
        return denial(devices);
    }
    Selection selection =
        nothing(ExitStatus::NoDevice, Cli::tr("there is no device '%1'").arg(name));
    for (const ListedDevice &device : devices.all) {
        if (!device.usable && statusOf(device) == ExitStatus::NoAccess) {
            selection.candidates.push_back(&device);
        }
    }
    if (!selection.candidates.empty() && !isPortPath(name)) {
        selection.status = ExitStatus::NoAccess;
        selection.error = Cli::tr("there is no device '%1' among those that can be used; these "
                                  "cannot")
                              .arg(name);
    } else {
        selection.candidates.clear();
    }
    return selection;
}

std::vector<const ListedDevice *> matching(const Devices &devices, const Fits &fits)
{
    std::vector<const ListedDevice *> found;
    for (const ListedDevice &device : devices.all) {
        if (fits(device)) {
            found.push_back(&device);
        }
    }
    return found;
}

Selection noneFits(const Devices &devices)
{
    return hasDenial(devices) ? denial(devices)
                              : nothing(ExitStatus::NoDevice, Cli::tr("no device fits"));
}

// Of "1-2.3" the 3: all that a repair looks at.
QString lastPort(const QString &portPath)
{
    const auto separator =
        std::max(portPath.lastIndexOf(QLatin1Char('-')), portPath.lastIndexOf(QLatin1Char('.')));
    return portPath.mid(separator + 1);
}

bool isInGroup(const std::set<ProductId> &ids, ProductId id)
{
    return std::any_of(ids.begin(), ids.end(), [id](const ProductId &own) {
        return own.vendorId == id.vendorId &&
               (own.productId & s_groupMask) == (id.productId & s_groupMask);
    });
}

ProductId idOf(const DeviceDescription &device)
{
    return {device.vendorId, device.productId};
}

} // namespace

Selection selectNamed(const Devices &devices, const QStringList &names)
{
    Selection selection;
    for (const QString &name : names) {
        const auto found = matching(
            devices, [&name](const ListedDevice &device) { return hasName(device, name); });
        if (found.empty()) {
            return nobodysName(devices, name);
        }
        if (found.size() > 1) {
            Selection several =
                nothing(ExitStatus::NoDevice, Cli::tr("'%1' names several devices").arg(name));
            several.candidates = found;
            return several;
        }
        if (!found.front()->usable) {
            return cannotBeUsed(*found.front());
        }
        auto &chosen = selection.devices;
        if (std::find(chosen.begin(), chosen.end(), found.front()) == chosen.end()) {
            chosen.push_back(found.front());
        }
    }
    return selection;
}

Selection selectOnly(const Devices &devices, const Fits &fits)
{
    Selection selection;
    selection.devices = matching(devices, fits);
    if (selection.devices.empty()) {
        return noneFits(devices);
    }
    if (selection.devices.size() > 1) {
        Selection several = nothing(ExitStatus::NoDevice, Cli::tr("several devices fit; name one"));
        several.candidates = selection.devices;
        return several;
    }
    return selection.devices.front()->usable ? selection : cannotBeUsed(*selection.devices.front());
}

Selection selectAll(const Devices &devices, const Fits &fits)
{
    Selection selection;
    selection.devices = matching(devices, fits);
    return selection.devices.empty() ? noneFits(devices) : selection;
}

bool fitsUnasked(const ProductInfo &product, const DeviceDescription &device)
{
    switch (device.mode) {
    case DeviceMode::Normal:
        return product.compatibleIds.count(idOf(device)) != 0;
    case DeviceMode::SoftRepair:
        return isInGroup(product.compatibleIds, idOf(device)) ||
               isInGroup(product.sandboxIds, idOf(device));
    default:
        return false;
    }
}

bool mayFitUnasked(const ProductInfo &product, ProductId id)
{
    const auto digit = quint16(id.productId & ~s_groupMask);
    DeviceDescription device;
    device.vendorId = id.vendorId;
    device.productId = id.productId;
    device.mode = digit == s_softRepairDigit || digit == s_sandboxDigit ? DeviceMode::SoftRepair
                                                                        : DeviceMode::Normal;
    return fitsUnasked(product, device);
}

const usbview::SystemDevice *mistakableSandbox(const ProductInfo &product,
                                               const ListedDevice &device,
                                               const std::vector<usbview::SystemDevice> &shown)
{
    const DeviceDescription &own = device.description;
    const auto found =
        std::find_if(shown.begin(), shown.end(), [&](const usbview::SystemDevice &other) {
            return other.busNumber == own.busNumber && other.deviceAddress != own.deviceAddress &&
                   lastPort(other.portPath) == lastPort(device.portPath()) &&
                   product.sandboxIds.count(other.id) != 0;
        });
    return found == shown.end() ? nullptr : &*found;
}

bool isRunning(const ListedDevice &device)
{
    if (device.usable) {
        return device.description.mode == DeviceMode::Normal;
    }
    return (device.description.productId & ~s_groupMask) == 1;
}

ExitStatus statusOf(const ListedDevice &unusable)
{
    const bool kept = unusable.system && unusable.system->obstacle() != usbview::Obstacle::None;
    return kept ? ExitStatus::NoAccess : ExitStatus::Failed;
}

ExitStatus statusNow(const ListedDevice &device, const usbview::Places &places)
{
    const auto shown = usbview::recognisedDevices(places);
    const DeviceDescription &description = device.description;
    const usbview::SystemDevice *system =
        shown ? usbview::find(*shown, description.busNumber, description.deviceAddress) : nullptr;
    return system && system->obstacle() != usbview::Obstacle::None ? ExitStatus::NoAccess
                                                                   : ExitStatus::Failed;
}

std::optional<ListedDevice> closedSandbox(const ProductInfo &product, const ListedDevice &device,
                                          const usbview::Places &places)
{
    const auto shown = usbview::recognisedDevices(places);
    if (!shown) {
        return std::nullopt;
    }
    const QString portPath = device.portPath();
    const auto found =
        std::find_if(shown->begin(), shown->end(), [&](const usbview::SystemDevice &other) {
            return other.portPath == portPath &&
                   other.deviceAddress != device.description.deviceAddress &&
                   product.sandboxIds.count(other.id) != 0 &&
                   other.obstacle() != usbview::Obstacle::None;
        });
    return found == shown->end() ? std::nullopt : std::make_optional(asTheSystemShows(*found));
}

ExitStatus report(Output &output, const Selection &selection)
{
    QJsonArray candidates;
    for (const ListedDevice *device : selection.candidates) {
        candidates.append(toJson(*device));
    }
    QJsonObject details;
    if (!candidates.isEmpty()) {
        details.insert(QStringLiteral("candidates"), candidates);
    }
    output.failure(selection.status, selection.error, details);
    for (const ListedDevice *device : selection.candidates) {
        output.note(QStringLiteral("  ") + describe(*device));
    }
    return selection.status;
}
