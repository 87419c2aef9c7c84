#include "cli.h"
#include "command.h"
#include "configuration.h"
#include "devices.h"
#include "output.h"
#include "records.h"
#include "selection.h"
#include "targetarguments.h"
#include "vendorrequests.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace {

struct Setting
{
    const char *name;
    DeviceFlag flag;
};

constexpr std::array<Setting, 4> s_settings{{
    {"input-resolution", UseInputResolution},
    {"aspect-ratio", KeepAspectRatio},
    {"performance", PerformanceMode},
    {"audio-selector", AudioSelector},
}};

// Which settings are to be switched on, and which off: bits of the flags byte.
struct Changes
{
    quint8 on = 0;
    quint8 off = 0;
};

// Adds the change that "NAME=on" or "NAME=off" asks for; false when it asks for nothing known.
bool add(Changes &changes, const Assignment &assignment)
{
    const auto setting =
        std::find_if(s_settings.begin(), s_settings.end(),
                     [&](const Setting &row) { return assignment.name == row.name; });
    if (setting == s_settings.end() || !assignment.isSwitch()) {
        return false;
    }
    quint8 &wanted = assignment.isOn() ? changes.on : changes.off;
    quint8 &other = assignment.isOn() ? changes.off : changes.on;
    wanted |= setting->flag;
    other &= quint8(~setting->flag); // the last word on a setting holds
    return true;
}

// The four settings alone: the byte's other bits are written as 0, as the dialog does.
quint8 changed(quint8 flags, const Changes &changes)
{
    quint8 result = 0;
    for (const Setting &setting : s_settings) {
        const bool kept = (flags & setting.flag) != 0 && (changes.off & setting.flag) == 0;
        if (kept || (changes.on & setting.flag) != 0) {
            result |= setting.flag;
        }
    }
    return result;
}

void show(Output &output, const ListedDevice &device, quint8 flags)
{
    QJsonObject object;
    for (const Setting &setting : s_settings) {
        const bool on = (flags & setting.flag) != 0;
        object.insert(QLatin1String(setting.name), on);
        output.line(QStringLiteral("%1=%2").arg(QLatin1String(setting.name),
                                                on ? QLatin1String("on") : QLatin1String("off")));
    }
    output.object({{"device", toJson(device)}, {"settings", object}});
}

ExitStatus settings(Session &session, const TargetArguments &arguments)
{
    Output &output = session.output;
    Changes changes;
    for (const Assignment &assignment : arguments.assignments()) {
        if (!add(changes, assignment)) {
            return output.failure(ExitStatus::Usage,
                                  Cli::tr("'%1' is not NAME=on or NAME=off; the names are "
                                          "input-resolution, aspect-ratio, performance and "
                                          "audio-selector")
                                      .arg(assignment.text));
        }
    }
    return withTarget(session, arguments, [&](Configuration &configuration, const auto &device) {
        const Answer read = configuration.readWhole<quint8>(device.description, GET_DEVICE_FLAGS);
        if (!read.succeeded()) {
            return requestFailed(session, device, read.error);
        }
        auto flags = read.as<quint8>();
        if (!arguments.assignments().empty()) {
            flags = changed(flags, changes);
            session.beginWriting();
            const Answer written = configuration.write(device.description, SET_DEVICE_FLAGS,
                                                       QByteArray(1, char(flags)));
            if (!written.succeeded()) {
                return requestFailed(session, device, written.error);
            }
        }
        show(output, device, flags);
        return ExitStatus::Done;
    });
}

} // namespace

const Command s_settingsCommand{
    "settings",
    "Show the four settings of a device, or change some of them",
    "  capso-cli settings SIM00001\n"
    "  capso-cli settings SIM00001 aspect-ratio=on performance=off",
    [](CLI::App &app) -> CommandRun {
        return declareTarget(app, "NAME=on|off",
                             "The settings to change: input-resolution, aspect-ratio, performance, "
                             "audio-selector. Without any, all four are shown",
                             settings);
    },
};
