#include "diagnosis.h"

#include "cli.h"

namespace {

// udev reads its rules by itself, but devices that are there keep the rights that they have.
QString applyRules(const QString &devices)
{
    return QStringLiteral("sudo udevadm control --reload && sudo udevadm trigger --action=add %1")
        .arg(devices);
}

QString applyRulesTo(const usbview::SystemDevice &device)
{
    return applyRules(QStringLiteral("/sys/bus/usb/devices/%1").arg(device.portPath));
}

QString join()
{
    return QStringLiteral("sudo usermod -aG %1 $USER").arg(QLatin1String(Machine::Group));
}

// It needs neither a package nor the sources, only this program. What masks the rules may be a link
// to /dev/null, through which nothing can be written.
QString installRules(const Machine &machine)
{
    const QString unmask =
        machine.rules.masked ? QStringLiteral("sudo rm %1 && ").arg(machine.rules.file) : QString();
    const QString install =
        QStringLiteral("%1 doctor --rules | "
                       "sudo tee /etc/udev/rules.d/70-capso-config.rules >/dev/null && ")
            .arg(machine.program);
    return unmask + install + applyRules(QStringLiteral("--subsystem-match=usb"));
}

QString wrongWithRules(const Machine &machine)
{
    if (machine.rules.differs) {
        return Cli::tr("the udev rules in %1 are not this version's").arg(machine.rules.file);
    }
    return machine.rules.masked ? Cli::tr("the udev rules are masked by %1").arg(machine.rules.file)
                                : Cli::tr("the udev rules are not installed");
}

Finding denied(const usbview::SystemDevice &device, const Node &node, const Machine &machine)
{
    const auto because = [](const QString &reason) {
        return Cli::tr("this user may not open it: %1").arg(reason);
    };
    const bool mayBeTheRules = machine.rules.differs && !node.isGroups;
    if (!machine.rules.work() || mayBeTheRules) {
        return {because(wrongWithRules(machine)), installRules(machine)};
    }
    if (!machine.hasGroup) {
        return {because(Cli::tr("there is no group plugdev; make it, join it, and log in again")),
                QStringLiteral("sudo groupadd --system %1 && ").arg(QLatin1String(Machine::Group)) +
                    join() + QStringLiteral(" && ") + applyRulesTo(device)};
    }
    if (!node.isGroups) {
        return {because(Cli::tr("it was plugged in before the udev rules were installed")),
                applyRulesTo(device)};
    }
    // Beside the group, the rules give the right to whoever sits at the machine, which is nobody
    // over SSH.
    if (!machine.isMember) {
        return {because(Cli::tr("join the group plugdev, and log in again")), join()};
    }
    if (!machine.isMemberNow) {
        return {because(Cli::tr("the user has joined the group plugdev since this login; "
                                "log in again, or begin a shell that knows of it")),
                QStringLiteral("newgrp %1").arg(QLatin1String(Machine::Group))};
    }
    return {because(Cli::tr("although its group may; look for what else forbids it")),
            QStringLiteral("getfacl %1").arg(nodeOf(device))};
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

} // namespace

QString nodeOf(const usbview::SystemDevice &device)
{
    return QStringLiteral("/dev/bus/usb/%1/%2")
        .arg(device.busNumber, 3, 10, QLatin1Char('0'))
        .arg(device.deviceAddress, 3, 10, QLatin1Char('0'));
}

std::vector<Finding> findingsOf(const usbview::SystemDevice &device, const Node &node,
                                const Machine &machine)
{
    constexpr int usb3 = 5000; // Mbit/s
    std::vector<Finding> findings;
    switch (device.obstacle()) {
    case usbview::Obstacle::Denied:
        findings.push_back(denied(device, node, machine));
        break;
    case usbview::Obstacle::NoNode:
        findings.push_back(
            {Cli::tr("it has no device node; a container must be given %1").arg(nodeOf(device)),
             QStringLiteral("docker run --device=%1 ...").arg(nodeOf(device))});
        break;
    case usbview::Obstacle::Held:
        findings.push_back(held(device));
        break;
    default:
        break;
    }
    if (device.speed != 0 && device.speed < usb3) {
        findings.push_back(
            {Cli::tr("its link is slower than USB 3: use a USB 3 port and cable"), QString()});
    }
    return findings;
}

QString rulesLine(const UdevRules &rules)
{
    if (rules.masked) {
        return Cli::tr("udev rules: masked by %1").arg(rules.file);
    }
    if (rules.differs) {
        return Cli::tr("udev rules: %1, which are not this version's").arg(rules.file);
    }
    return Cli::tr("udev rules: %1").arg(rules.work() ? rules.file : Cli::tr("not installed"));
}

std::vector<Finding> findingsOf(const Machine &machine)
{
    if (machine.rules.work() && !machine.rules.differs) {
        return {};
    }
    return {{wrongWithRules(machine), installRules(machine)}};
}
