#include "devices.h"

#include "cli.h"
#include "command.h"
#include "devicescanner.h"
#include "displaytexts.h"
#include "interrupts.h"
#include "output.h"
#include "thread.h"

#include <QEventLoop>

#include <algorithm>

namespace {

bool isSame(const DeviceDescription &a, const DeviceDescription &b)
{
    return a.busNumber == b.busNumber && a.deviceAddress == b.deviceAddress;
}

// A scan that makes a second pass may describe a device twice; the later description holds.
void add(std::vector<ListedDevice> &devices, const DeviceDescription &description)
{
    const auto known =
        std::find_if(devices.begin(), devices.end(), [&](const ListedDevice &device) {
            return isSame(device.description, description);
        });
    if (known != devices.end()) {
        known->description = description;
    } else {
        devices.push_back({description, true});
    }
}

Devices scan(Session &session)
{
    Devices result;
    const Interrupts::Busy busy;
    DeviceScanner scanner;
    requireThread(scanner.hasThread());
    QEventLoop loop;
    QObject::connect(&scanner, &DeviceScanner::newDevice, &loop,
                     [&](const DeviceDescription &description) { add(result.all, description); });
    QObject::connect(&scanner, &DeviceScanner::error, &loop,
                     [&](const QString &text) { result.scanErrors.push_back(text); });
    QObject::connect(&scanner, &DeviceScanner::complete, &loop, &QEventLoop::quit);
    QObject::connect(&session.interrupts, &Interrupts::interrupted, &loop, [&session] {
        // It waits for no reader: no signal would end that.
        session.output.diagnostic(Cli::tr("interrupted, ends once every device has been asked"));
    });
    emit scanner.scan();
    loop.exec();
    return result;
}

void addWhatTheSystemShows(Devices &devices, const usbview::Places &places)
{
    const auto shown = usbview::recognisedDevices(places);
    if (!shown) {
        return;
    }
    devices.scanErrors.clear(); // each device that could not be opened is told of by itself
    for (const usbview::SystemDevice &system : *shown) {
        const ListedDevice device = asTheSystemShows(system);
        const auto known =
            std::find_if(devices.all.begin(), devices.all.end(), [&](const ListedDevice &other) {
                return isSame(other.description, device.description);
            });
        if (known != devices.all.end()) {
            known->system = system;
        } else {
            devices.all.push_back(device);
        }
    }
}

void markTellingSerials(std::vector<ListedDevice> &devices)
{
    const QString none = QStringLiteral("FFFFFFFF"); // the scan's word for a device without one
    for (ListedDevice &device : devices) {
        const QString &serial = device.description.serialNumber;
        const auto bearers =
            std::count_if(devices.begin(), devices.end(), [&serial](const ListedDevice &other) {
                return other.description.serialNumber == serial;
            });
        device.serialTells = !serial.isEmpty() && serial != none && bearers == 1;
    }
}

} // namespace

Devices findDevices(Session &session)
{
    Devices devices = scan(session);
    addWhatTheSystemShows(devices, session.places);
    markTellingSerials(devices.all);
    return devices;
}

ListedDevice asTheSystemShows(const usbview::SystemDevice &system)
{
    ListedDevice device;
    device.description.vendorId = system.id.vendorId;
    device.description.productId = system.id.productId;
    device.description.busNumber = system.busNumber;
    device.description.deviceAddress = system.deviceAddress;
    device.system = system;
    return device;
}

QString ListedDevice::portPath() const
{
    return system ? system->portPath
                  : QStringLiteral("%1-%2").arg(description.busNumber).arg(description.portNumber);
}

QString nameOf(const ListedDevice &device)
{
    return device.serialTells ? device.description.serialNumber : device.portPath();
}

QString describe(const ListedDevice &device)
{
    if (!device.usable) {
        return Cli::tr("[%1] at %2: %3").arg(idText(device), device.portPath(), reasonOf(device));
    }
    return Cli::tr("%1 at %2").arg(deviceRowText(device.description), device.portPath());
}

QString reasonOf(const ListedDevice &device)
{
    using usbview::Obstacle;
    switch (device.system ? device.system->obstacle() : Obstacle::None) {
    case Obstacle::Denied:
        return Cli::tr("no right to open it");
    case Obstacle::NoNode:
        return Cli::tr("it has no device node");
    case Obstacle::Held:
        return device.system->driver == QLatin1String("usbfs")
                   ? Cli::tr("another program holds it")
                   : Cli::tr("the driver %1 holds it").arg(device.system->driver);
    default:
        break;
    }
    return Cli::tr("it does not answer");
}

QString modeName(const ListedDevice &device)
{
    switch (device.description.mode) {
    case DeviceMode::Normal:
        return QStringLiteral("normal");
    case DeviceMode::SoftRepair:
        return QStringLiteral("soft repair");
    default:
        return QStringLiteral("hard repair");
    }
}

QString idText(const ListedDevice &device)
{
    return QStringLiteral("%1:%2")
        .arg(device.description.vendorId, 4, 16, QLatin1Char('0'))
        .arg(device.description.productId, 4, 16, QLatin1Char('0'));
}

QJsonObject toJson(const ListedDevice &device)
{
    QJsonObject object{
        {"id", idText(device)},
        {"bus", device.description.busNumber},
        {"address", device.description.deviceAddress},
        {"port", device.portPath()},
        {"usable", device.usable},
    };
    if (device.usable) {
        object.insert("model", device.description.productName);
        object.insert("serial", device.description.serialNumber);
        object.insert("version", device.description.versionString);
        object.insert("mode", modeName(device));
    } else {
        object.insert("reason", reasonOf(device));
    }
    if (device.system && device.system->speed > 0) {
        object.insert("speed", device.system->speed);
    }
    return object;
}
