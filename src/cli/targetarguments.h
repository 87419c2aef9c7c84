#pragma once

#include "command.h"
#include "configuration.h"
#include "selection.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

// What the commands for one device have in common: "[DEVICE] [NAME=VALUE...]".

struct Assignment
{
    QString text; // as it was given
    QString name;
    QString value;

    bool isOn() const { return value == QLatin1String("on"); }
    bool isSwitch() const { return isOn() || value == QLatin1String("off"); }
};

class TargetArguments
{
public:
    // The first word is the device unless the command takes assignments and it looks like one: then
    // a device whose serial number holds a "=" is to be named by its port path. An empty word is
    // nobody's name.
    TargetArguments(const QStringList &words, bool takesAssignments);

    const std::vector<Assignment> &assignments() const { return allAssignments; }
    // The named device, or else the only one that runs. Exactly one where the status is Done.
    Selection select(const Devices &devices) const;

private:
    std::optional<QString> device; // no value: left out
    std::vector<Assignment> allAssignments;
};

using TargetRun = std::function<ExitStatus(Session &session, const TargetArguments &arguments)>;

// Declares the arguments. With `valueName` null the command takes no assignments.
CommandRun declareTarget(CLI::App &app, const char *valueName, const char *valueHelp,
                         const TargetRun &run);

// Finds the device and does the work with it, or says why there is none to work with.
using TargetWork = std::function<ExitStatus(Configuration &configuration, const ListedDevice &)>;
ExitStatus withTarget(Session &session, const TargetArguments &arguments, const TargetWork &work);

// Says that a request to the device failed. Returns the status that this comes to, which depends on
// whether the system shows why.
ExitStatus requestFailed(Session &session, const ListedDevice &device, const QString &text,
                         const QJsonObject &details = {});
