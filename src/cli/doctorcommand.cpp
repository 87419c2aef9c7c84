#include "cli.h"
#include "command.h"
#include "diagnosis.h"
#include "output.h"
#include "surroundings.h"
#include "udevrules.h"
#include "usbview.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QRegularExpression>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <memory>

namespace {

QString speedText(int speed)
{
    if (speed == 0) {
        return Cli::tr("speed not known");
    }
    return speed >= 1000 ? Cli::tr("%1 Gbit/s").arg(speed / 1000.0)
                         : Cli::tr("%1 Mbit/s").arg(speed);
}

QJsonArray toJson(const std::vector<Finding> &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings) {
        QJsonObject object{{"problem", finding.text}};
        if (!finding.command.isEmpty()) {
            object.insert("command", finding.command);
        }
        array.append(object);
    }
    return array;
}

QString yesOrNo(bool yes)
{
    return yes ? Cli::tr("yes") : Cli::tr("no");
}

// The program as a shell would call it.
QString quotedProgram()
{
    const QRegularExpression special(QStringLiteral("[^A-Za-z0-9_./+-]"));
    QString path = QCoreApplication::applicationFilePath();
    if (!path.contains(special)) {
        return path;
    }
    path.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + path + QLatin1Char('\'');
}

// What one run finds. A command that mends several things is shown once.
class Report
{
public:
    explicit Report(Output &reportOutput)
        : output(reportOutput), machine(lookAround(quotedProgram()))
    {
    }

    // One device: what is so, and under it what is wrong.
    void examine(const usbview::SystemDevice &device)
    {
        const QString id = QStringLiteral("%1:%2")
                               .arg(device.id.vendorId, 4, 16, QLatin1Char('0'))
                               .arg(device.id.productId, 4, 16, QLatin1Char('0'));
        const auto findings = findingsOf(device, lookAt(device), machine);
        output.line(Cli::tr("%1 %2: %3, may be opened: %4, held: %5")
                        .arg(device.portPath, id, speedText(device.speed), yesOrNo(device.mayOpen),
                             yesOrNo(device.held)));
        show(findings);
        devices.append(QJsonObject{{"port", device.portPath},
                                   {"id", id},
                                   {"bus", device.busNumber},
                                   {"address", device.deviceAddress},
                                   {"speed", device.speed},
                                   {"mayOpen", device.mayOpen},
                                   {"held", device.held},
                                   {"driver", device.driver},
                                   {"problems", toJson(findings)}});
        if (device.obstacle() != usbview::Obstacle::None) {
            status = ExitStatus::NoAccess;
        }
    }

    ExitStatus conclude()
    {
        const auto findings = findingsOf(machine);
        output.line(rulesLine(machine.rules));
        for (const Finding &finding : findings) {
            showCommand(finding.command);
        }
        output.object({{"devices", devices},
                       {"rulesState", QLatin1String(machine.rules.state())},
                       {"rules", machine.rules.inForce()},
                       {"problems", toJson(findings)},
                       {"status", int(status)}});
        return status;
    }

private:
    void show(const std::vector<Finding> &findings)
    {
        for (const Finding &finding : findings) {
            output.line(QStringLiteral("  ") + finding.text);
            showCommand(finding.command);
        }
    }

    void showCommand(const QString &command)
    {
        if (!command.isEmpty() && !shownCommands.contains(command)) {
            shownCommands += command;
            output.line(QStringLiteral("    ") + command);
        }
    }

    Output &output;
    const Machine machine;
    QStringList shownCommands;
    QJsonArray devices;
    ExitStatus status = ExitStatus::Done;
};

ExitStatus doctor(Session &session, bool rulesAlone)
{
    Output &output = session.output;
    if (rulesAlone) {
        const QString rules = QString::fromUtf8(udevRulesText());
        output.lines(rules);
        output.object({{"rulesText", rules}});
        return ExitStatus::Done;
    }
    const auto devices = usbview::recognisedDevices(session.places);
    if (!devices) {
        return output.failure(
            ExitStatus::Failed,
            Cli::tr("this system does not show its USB devices, so what keeps one from "
                    "being used is not known"));
    }
    Report report(output);
    for (const usbview::SystemDevice &device : *devices) {
        report.examine(device);
    }
    if (devices->empty()) {
        output.note(Cli::tr("the system knows no capture device"));
    }
    return report.conclude();
}

} // namespace

const Command s_doctorCommand{
    "doctor",
    "Tell what keeps devices from being used, and what mends it",
    "  capso-cli doctor",
    [](CLI::App &app) -> CommandRun {
        const auto rulesAlone = std::make_shared<bool>(false);
        app.add_flag("--rules", *rulesAlone,
                     "Print the udev rules that let users open the devices, and nothing else");
        return [rulesAlone](Session &session) { return doctor(session, *rulesAlone); };
    },
};
