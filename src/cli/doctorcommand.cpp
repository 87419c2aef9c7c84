#include "cli.h"
#include "command.h"
#include "devices.h"
#include "output.h"
#include "udevrules.h"
#include "usbview.h"

#include <QJsonArray>
#include <QStringList>

#include <CLI/CLI.hpp>

namespace {

// Something that is wrong, and what mends it: a command where there is one.
struct Finding
{
    QString text;
    QString remedy;
};

QString nodeOf(const usbview::SystemDevice &device)
{
    return QStringLiteral("/dev/bus/usb/%1/%2")
        .arg(device.busNumber, 3, 10, QLatin1Char('0'))
        .arg(device.deviceAddress, 3, 10, QLatin1Char('0'));
}

QString speedText(int speed)
{
    if (speed == 0) {
        return Cli::tr("speed not known");
    }
    return speed >= 1000 ? Cli::tr("%1 Gbit/s").arg(speed / 1000.0)
                         : Cli::tr("%1 Mbit/s").arg(speed);
}

Finding denied(const QString &rules)
{
    if (rules.isEmpty()) {
        return {Cli::tr("this user may not open it"),
                QStringLiteral("sudo apt install capso-config-udev")};
    }
    // Beside the group, the rules give the right to whoever sits at the machine, which is nobody
    // over SSH.
    return {Cli::tr("this user may not open it: join the group plugdev, and log in again"),
            QStringLiteral("sudo usermod -aG plugdev $USER")};
}

Finding held(const usbview::SystemDevice &device)
{
    if (device.driver == QLatin1String("usbfs")) {
        return {Cli::tr("another program holds it; close that program"),
                QStringLiteral("sudo fuser -v %1").arg(nodeOf(device))};
    }
    if (device.driver == QLatin1String("usbip-host")) {
        return {Cli::tr("it is lent to another machine"),
                QStringLiteral("sudo usbip unbind -b %1").arg(device.portPath)};
    }
    return {Cli::tr("the driver %1 holds it").arg(device.driver),
            QStringLiteral("echo %1 | sudo tee /sys/bus/usb/drivers/%2/unbind")
                .arg(device.portPath, device.driver)};
}

std::vector<Finding> findingsOf(const usbview::SystemDevice &device, const QString &rules)
{
    constexpr int usb3 = 5000; // Mbit/s
    std::vector<Finding> findings;
    switch (device.obstacle()) {
    case usbview::Obstacle::Denied:
        findings.push_back(denied(rules));
        break;
    case usbview::Obstacle::NoNode:
        findings.push_back(
            {Cli::tr("it has no device node; a container must be given %1").arg(nodeOf(device)),
             QStringLiteral("docker run --device=%1 ...").arg(nodeOf(device))});
        break;
    case usbview::Obstacle::Held:
        findings.push_back(held(device));
        break;
    case usbview::Obstacle::None:
        break;
    }
    if (device.speed != 0 && device.speed < usb3) {
        findings.push_back(
            {Cli::tr("its link is slower than USB 3: use a USB 3 port and cable"), QString()});
    }
    return findings;
}

QJsonArray toJson(const std::vector<Finding> &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings) {
        QJsonObject object{{"problem", finding.text}};
        if (!finding.remedy.isEmpty()) {
            object.insert("command", finding.remedy);
        }
        array.append(object);
    }
    return array;
}

void show(Output &output, const std::vector<Finding> &findings)
{
    for (const Finding &finding : findings) {
        output.line(QStringLiteral("  ") + finding.text);
        if (!finding.remedy.isEmpty()) {
            output.line(QStringLiteral("    ") + finding.remedy);
        }
    }
}

QString yesOrNo(bool yes)
{
    return yes ? Cli::tr("yes") : Cli::tr("no");
}

// One device: what is so, and under it what is wrong.
QJsonObject examine(Output &output, const usbview::SystemDevice &device, const QString &rules)
{
    const QString id = QStringLiteral("%1:%2")
                           .arg(device.id.vendorId, 4, 16, QLatin1Char('0'))
                           .arg(device.id.productId, 4, 16, QLatin1Char('0'));
    const std::vector<Finding> findings = findingsOf(device, rules);
    output.line(Cli::tr("%1 %2: %3, may be opened: %4, held: %5")
                    .arg(device.portPath, id, speedText(device.speed), yesOrNo(device.mayOpen),
                         yesOrNo(device.held)));
    show(output, findings);
    return {{"port", device.portPath},     {"id", id},
            {"bus", device.busNumber},     {"address", device.deviceAddress},
            {"speed", device.speed},       {"mayOpen", device.mayOpen},
            {"held", device.held},         {"driver", device.driver},
            {"problems", toJson(findings)}};
}

ExitStatus doctor(Session &session)
{
    Output &output = session.output;
    const auto devices = usbview::recognisedDevices();
    if (!devices) {
        return output.failure(ExitStatus::Failed,
                              Cli::tr("this system does not show its USB devices"));
    }
    const QString rules = installedUdevRules();
    ExitStatus status = ExitStatus::Done;
    QJsonArray array;
    for (const usbview::SystemDevice &device : *devices) {
        array.append(examine(output, device, rules));
        if (device.obstacle() != usbview::Obstacle::None) {
            status = ExitStatus::NoAccess;
        }
    }
    if (devices->empty()) {
        output.note(Cli::tr("the system knows no capture device"));
    }
    std::vector<Finding> general;
    if (rules.isEmpty()) {
        general.push_back({Cli::tr("the udev rules are not installed"),
                           QStringLiteral("sudo apt install capso-config-udev")});
        output.line(Cli::tr("udev rules: not installed"));
        output.line(QStringLiteral("    ") + general.back().remedy);
    } else {
        output.line(Cli::tr("udev rules: %1").arg(rules));
    }
    output.object({{"devices", array},
                   {"rules", rules},
                   {"problems", toJson(general)},
                   {"status", int(status)}});
    return status;
}

} // namespace

const Command s_doctorCommand{
    "doctor",
    "Tell what keeps devices from being used, and what mends it",
    "  capso-cli doctor",
    [](CLI::App & /*arguments*/) -> CommandRun { return doctor; },
};
