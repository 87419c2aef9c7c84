#include "cli.h"
#include "command.h"
#include "diagnosis.h"
#include "output.h"
#include "udevrules.h"
#include "usbview.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QRegularExpression>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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
    static const QRegularExpression s_special(QStringLiteral("[^A-Za-z0-9_./+-]"));
    QString path = QCoreApplication::applicationFilePath();
    if (!path.contains(s_special)) {
        return path;
    }
    path.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + path + QLatin1Char('\'');
}

bool names(char *const *members, const char *user)
{
    for (; *members; ++members) {
        if (qstrcmp(*members, user) == 0) {
            return true;
        }
    }
    return false;
}

bool isGroupOfThisSession(gid_t group)
{
    std::vector<gid_t> groups(std::size_t(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(int(groups.size()), groups.data());
    groups.resize(std::size_t(std::max(count, 0)));
    return getegid() == group || std::count(groups.begin(), groups.end(), group) != 0;
}

// The machine, and the number of the rules' group on it.
struct Surroundings
{
    Machine machine;
    gid_t group = 0;
};

Surroundings lookAround()
{
    Surroundings around;
    around.machine.rules = installedUdevRules();
    around.machine.program = quotedProgram();
    const passwd *user = getpwuid(getuid());
    const QByteArray name = user ? user->pw_name : "";
    const gid_t usualGroup = user ? user->pw_gid : getgid();
    if (const group *plugdev = getgrnam(Machine::Group)) {
        around.group = plugdev->gr_gid;
        around.machine.hasGroup = true;
        around.machine.isMember =
            usualGroup == plugdev->gr_gid || names(plugdev->gr_mem, name.constData());
        around.machine.isMemberNow = isGroupOfThisSession(plugdev->gr_gid);
    }
    return around;
}

Node lookAt(const usbview::SystemDevice &device, const Surroundings &around)
{
    constexpr mode_t readAndWrite = S_IRGRP | S_IWGRP;
    struct stat facts = {};
    Node node;
    node.isGroups = around.machine.hasGroup && stat(qPrintable(nodeOf(device)), &facts) == 0 &&
                    facts.st_gid == around.group && (facts.st_mode & readAndWrite) == readAndWrite;
    return node;
}

// What one run finds. A command that mends several things is shown once.
class Report
{
public:
    explicit Report(Output &reportOutput) : output(reportOutput), around(lookAround()) {}

    // One device: what is so, and under it what is wrong.
    void examine(const usbview::SystemDevice &device)
    {
        const QString id = QStringLiteral("%1:%2")
                               .arg(device.id.vendorId, 4, 16, QLatin1Char('0'))
                               .arg(device.id.productId, 4, 16, QLatin1Char('0'));
        const auto findings = findingsOf(device, lookAt(device, around), around.machine);
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
        const auto findings = findingsOf(around.machine);
        output.line(rulesLine(around.machine.rules));
        for (const Finding &finding : findings) {
            showCommand(finding.command);
        }
        output.object(
            {{"devices", devices},
             {"rules", around.machine.rules.work() ? around.machine.rules.file : QString()},
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
    Surroundings around;
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
    const auto devices = usbview::recognisedDevices();
    if (!devices) {
        return output.failure(ExitStatus::Failed,
                              Cli::tr("this system does not show its USB devices"));
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
