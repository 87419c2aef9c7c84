#include "cli.h"
#include "command.h"
#include "devices.h"
#include "displaytexts.h"
#include "inspection.h"
#include "interrupts.h"
#include "output.h"
#include "package.h"
#include "packagecopy.h"
#include "selection.h"
#include "updaterun.h"
#include "ziparchive.h"

#include <QJsonArray>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace {

struct Arguments
{
    std::string package;
    std::vector<std::string> devices;
    bool all = false;
    std::string unlessVersion; // empty: whatever the version
};

// What has become of one of the selected devices.
struct Row
{
    const ListedDevice *device;
    const char *outcome; // for scripts
    ExitStatus status = ExitStatus::Done;
    QString error = {};
    QString reason = {}; // what keeps this program from the device's repair firmware
};

QJsonObject toJson(const Row &row)
{
    QJsonObject object{{"device", toJson(*row.device)},
                       {"result", QLatin1String(row.outcome)},
                       {"status", int(row.status)}};
    if (!row.error.isEmpty()) {
        object.insert("error", row.error);
    }
    if (!row.reason.isEmpty()) {
        object.insert("reason", row.reason);
    }
    return object;
}

// One command's worth of updates, of one device after another.
class Updates
{
public:
    Updates(Session &updateSession, const Package &readPackage, const PackageCopy &copy,
            const Arguments &parsed)
        : session(updateSession),
          package(readPackage),
          fileName(QString::fromStdString(copy.path())),
          unlessVersion(QString::fromStdString(parsed.unlessVersion))
    {
    }

    ExitStatus run(const std::vector<const ListedDevice *> &devices)
    {
        for (const ListedDevice *device : devices) {
            rows.push_back(runOne(*device));
        }
        return conclude();
    }

private:
    Row runOne(const ListedDevice &device)
    {
        Output &output = session.output;
        const QString name = nameOf(device);
        if (!device.usable) {
            const QString reason = reasonOf(device);
            output.error(QStringLiteral("%1: %2").arg(name, reason));
            return {&device, "failed", statusOf(device), reason};
        }
        const DeviceDescription &description = device.description;
        if (!unlessVersion.isEmpty() && description.versionString == unlessVersion) {
            output.line(Cli::tr("%1: left out, it has version %2").arg(name, unlessVersion));
            return {&device, "left out"};
        }
        if (Interrupts::count() > 0) {
            const QString reason = Cli::tr("interrupted before its update began");
            output.error(QStringLiteral("%1: %2").arg(name, reason));
            return {&device, "not begun", ExitStatus::Failed, reason};
        }
        const QString reason = reasonAgainstRepair(device);
        if (!reason.isEmpty()) {
            output.error(QStringLiteral("%1: %2").arg(name, reason));
            return {&device, "failed", ExitStatus::Failed, reason};
        }
        return update(device);
    }

    // Why the device in repair must not be repaired now; empty: it may be, or it is none.
    QString reasonAgainstRepair(const ListedDevice &device) const
    {
        if (device.description.mode == DeviceMode::Normal) {
            return {};
        }
        if (!package.missing.isEmpty()) {
            // Without a sandbox image the update would end at once, as if it had succeeded.
            return Cli::tr("the package holds an EDID only and repairs no device");
        }
        // As the bus is now: the repair before this one has left a sandbox behind.
        const auto shown = usbview::recognisedDevices(session.places);
        const usbview::SystemDevice *other =
            shown ? mistakableSandbox(*package.product, device, *shown) : nullptr;
        return other ? Cli::tr("it might be taken for the device at %1, which runs its repair "
                               "firmware on a port of the same number: unplug that one first")
                           .arg(other->portPath)
                     : QString();
    }

    Row update(const ListedDevice &device)
    {
        Output &output = session.output;
        const QString name = nameOf(device);
        const UpdateSteps steps(package, device.description.mode);
        UpdateResult result = updateDevice(session, device, fileName, steps);
        if (result.status == ExitStatus::Done) {
            output.line(QStringLiteral("%1: %2").arg(name, updateCompletedText()));
            return {&device, "updated"};
        }
        output.error(QStringLiteral("%1: %2: %3").arg(name, updateErrorText(), result.error));
        output.warning(callSupportText());
        const QString reason = noteClosedSandbox(device);
        if (!reason.isEmpty()) {
            result.status = ExitStatus::NoAccess;
        }
        return {&device, "failed", result.status, result.error, reason};
    }

    // A repair that could not open the sandbox says no more than that it has no driver for it.
    QString noteClosedSandbox(const ListedDevice &device)
    {
        if (device.description.mode == DeviceMode::Normal) {
            return {};
        }
        const auto sandbox = closedSandbox(*package.product, device, session.places);
        if (!sandbox) {
            return {};
        }
        session.output.note(Cli::tr("its repair firmware runs, but cannot be used: %1; "
                                    "'capso-cli doctor' tells what mends it")
                                .arg(describe(*sandbox)));
        return reasonOf(*sandbox);
    }

    ExitStatus conclude()
    {
        QJsonArray array;
        QStringList failed;
        std::vector<ExitStatus> statuses;
        for (const Row &row : rows) {
            array.append(toJson(row));
            statuses.push_back(row.status);
            if (row.status != ExitStatus::Done) {
                failed += nameOf(*row.device);
            }
        }
        const ExitStatus status = combined(statuses);
        session.output.object({{"event", "result"}, {"devices", array}, {"status", int(status)}});
        if (rows.size() > 1 && !failed.isEmpty()) {
            session.output.error(Cli::tr("%1 of %2 devices failed: %3")
                                     .arg(QString::number(failed.size()),
                                          QString::number(rows.size()),
                                          failed.join(QStringLiteral(", "))));
        }
        return status;
    }

    Session &session;
    const Package &package;
    QString fileName;
    QString unlessVersion;
    std::vector<Row> rows;
};

// A package that holds an EDID alone repairs nothing, so it takes no device in repair unasked.
Fits fitsPackage(const Package &package)
{
    const bool repairs = package.missing.isEmpty();
    const ProductInfo &product = *package.product;
    return [repairs, &product](const ListedDevice &device) {
        const DeviceDescription &description = device.description;
        if (!device.usable) {
            return mayFitUnasked(product, {description.vendorId, description.productId});
        }
        return (repairs || description.mode == DeviceMode::Normal) &&
               fitsUnasked(product, description);
    };
}

Selection select(const Devices &devices, const Arguments &arguments, const Package &package)
{
    if (arguments.all) {
        return selectAll(devices, fitsPackage(package));
    }
    if (arguments.devices.empty()) {
        return selectOnly(devices, fitsPackage(package));
    }
    QStringList names;
    for (const std::string &name : arguments.devices) {
        names += QString::fromStdString(name);
    }
    return selectNamed(devices, names);
}

bool isRepair(const ListedDevice *device)
{
    return device->usable && device->description.mode != DeviceMode::Normal;
}

// Why nothing is begun although devices were selected; empty: it may begin. A repair whose sandbox
// cannot be opened would end at once, as if it had succeeded.
QString obstacle(Zip &archive, const Package &package,
                 const std::vector<const ListedDevice *> &devices)
{
    const bool needsSandbox =
        package.missing.isEmpty() && std::any_of(devices.begin(), devices.end(), isRepair);
    return needsSandbox ? closed_sandbox(archive, *package.product) : QString();
}

ExitStatus update(Session &session, const Arguments &arguments)
{
    const PackageCopy copy(arguments.package);
    if (!copy.failure().isEmpty()) {
        return session.output.failure(ExitStatus::Failed, copy.failure());
    }
    Zip archive(copy.path());
    const Package package = read_package(archive);
    if (!package.refusal.isEmpty()) {
        return session.output.failure(ExitStatus::Failed, package.refusal);
    }
    const Devices devices = findDevices(session);
    const Selection selection = select(devices, arguments, package);
    if (selection.status != ExitStatus::Done) {
        return report(session.output, selection);
    }
    const QString closed = obstacle(archive, package, selection.devices);
    if (!closed.isEmpty()) {
        return session.output.failure(ExitStatus::Failed, closed);
    }
    archive.close();
    return Updates(session, package, copy, arguments).run(selection.devices);
}

} // namespace

const Command s_updateCommand{
    "update",
    "Write a firmware package to a device; repair it if that is what it needs",
    "  capso-cli update velk3.fw                        # the only device that it fits\n"
    "  capso-cli update velk3.fw SIM00001 1-2.3         # these two\n"
    "  capso-cli update velk3.fw --all --unless-version 2.0.0\n"
    "\n"
    "Let it come to its end: Ctrl+C does not interrupt it. On Windows, closing the console, "
    "logging\n"
    "off and shutting down end it after some seconds, and the device then needs repair.",
    [](CLI::App &app) -> CommandRun {
        const auto arguments = std::make_shared<Arguments>();
        app.add_option("PACKAGE", arguments->package, "The firmware package")->required();
        CLI::Option *devices =
            app.add_option("DEVICE", arguments->devices,
                           "Serial numbers or port paths; may be left out when the package fits "
                           "only one device. A device in hard repair, and one in soft repair that "
                           "shows no id of the package's product, must be named");
        app.add_flag("--all", arguments->all,
                     "Every device that the package fits, one after another")
            ->excludes(devices);
        app.add_option("--unless-version", arguments->unlessVersion,
                       "Leave out devices that report this version")
            ->type_name("V")
            ->check([](const std::string &version) {
                // The option takes any word: the next one where a script's variable is empty.
                return version.front() == '-' ? "'" + version + "' is no version" : std::string();
            });
        return [arguments](Session &session) { return update(session, *arguments); };
    },
};
