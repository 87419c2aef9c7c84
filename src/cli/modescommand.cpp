#include "cli.h"
#include "command.h"
#include "configuration.h"
#include "devices.h"
#include "output.h"
#include "records.h"
#include "targetarguments.h"
#include "vendorrequests.h"

#include <QJsonArray>
#include <QRegularExpression>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <array>
#include <optional>

namespace {

constexpr int s_modeCount = 3;

struct Size
{
    quint16 width;  // pixels
    quint16 height; // lines
};

// What is to become of one mode; what has no value stays as the device has it.
struct Change
{
    std::optional<Size> size = std::nullopt;
    std::optional<bool> on = std::nullopt;

    bool isWanted() const { return size || on; }
};

using Changes = std::array<Change, s_modeCount>;
using Modes = std::array<UserMode, s_modeCount>;

std::optional<Size> parseSize(const QString &text)
{
    const QRegularExpression pattern(QStringLiteral("^([0-9]{1,5})x([0-9]{1,5})\\z"));
    const QRegularExpressionMatch match = pattern.match(text);
    bool widthFits = false;
    bool heightFits = false;
    const quint16 width = match.captured(1).toUShort(&widthFits);
    const quint16 height = match.captured(2).toUShort(&heightFits);
    return widthFits && heightFits ? std::make_optional(Size{width, height}) : std::nullopt;
}

// Adds what "N=..." asks for; false when it asks for nothing that there is.
bool add(Changes &changes, const Assignment &assignment)
{
    const int index = assignment.name.size() == 1 ? assignment.name.at(0).unicode() - u'1' : -1;
    if (index < 0 || index >= s_modeCount) {
        return false;
    }
    Change &change = changes[std::size_t(index)];
    if (assignment.isSwitch()) {
        change.on = assignment.isOn();
        return true;
    }
    const auto size = parseSize(assignment.value);
    if (size) {
        change.size = size;
    }
    return size.has_value();
}

UserMode changed(UserMode mode, const Change &change)
{
    if (change.size) {
        mode.width = change.size->width;
        mode.height = change.size->height;
    }
    mode.disabled = change.on ? quint8(*change.on ? 0 : 1) : quint8(mode.disabled == 0 ? 0 : 1);
    return mode;
}

QJsonObject toJson(std::size_t index, const UserMode &mode)
{
    return {{"mode", int(index + 1)},
            {"width", quint16(mode.width)},
            {"height", quint16(mode.height)},
            {"on", mode.disabled == 0}};
}

void show(Output &output, const ListedDevice &device, const Modes &modes)
{
    QJsonArray array;
    for (std::size_t i = 0; i < modes.size(); ++i) {
        array.append(toJson(i, modes[i]));
        output.line(QStringLiteral("%1=%2x%3 %4")
                        .arg(i + 1)
                        .arg(quint16(modes[i].width))
                        .arg(quint16(modes[i].height))
                        .arg(modes[i].disabled == 0 ? QLatin1String("on") : QLatin1String("off")));
    }
    output.object({{"device", toJson(device)}, {"modes", array}});
}

// Reads all three; the module's text when one of them cannot be read.
QString readModes(Configuration &configuration, const ListedDevice &device, Modes &modes)
{
    for (std::size_t i = 0; i < modes.size(); ++i) {
        const Answer answer =
            configuration.readWhole<UserMode>(device.description, USER_MODE, uint16_t(i));
        if (!answer.succeeded()) {
            return answer.error;
        }
        modes[i] = answer.as<UserMode>();
    }
    return {};
}

// What the writing came to: the numbers of the modes that the device has taken, and the module's
// text where the next one could not be written.
struct Written
{
    QStringList modes;
    QString error;

    // How a person is told that half of it was done.
    QString text() const
    {
        return modes.isEmpty() ? error
                               : Cli::tr("%1 (modes written before: %2)")
                                     .arg(error, modes.join(QStringLiteral(", ")));
    }
    QJsonArray toJson() const
    {
        QJsonArray numbers;
        for (const QString &mode : modes) {
            numbers.append(mode.toInt());
        }
        return numbers;
    }
};

// Writes those that are to change, as far as the first that cannot be written.
Written writeModes(Session &session, Configuration &configuration, const ListedDevice &device,
                   const Changes &changes, Modes &modes)
{
    Written written;
    for (std::size_t i = 0; i < modes.size(); ++i) {
        if (!changes[i].isWanted()) {
            continue;
        }
        modes[i] = changed(modes[i], changes[i]);
        session.beginWriting();
        const QByteArray record(reinterpret_cast<const char *>(&modes[i]), sizeof(UserMode));
        const Answer answer =
            configuration.write(device.description, USER_MODE, record, uint16_t(i));
        if (!answer.succeeded()) {
            written.error = answer.error;
            break;
        }
        written.modes += QString::number(i + 1);
    }
    return written;
}

ExitStatus modes(Session &session, const TargetArguments &arguments)
{
    Changes changes;
    for (const Assignment &assignment : arguments.assignments()) {
        if (!add(changes, assignment)) {
            return session.output.failure(
                ExitStatus::Usage,
                Cli::tr("'%1' is not N=WIDTHxHEIGHT, N=on or N=off, with N from 1 to 3")
                    .arg(assignment.text));
        }
    }
    return withTarget(session, arguments, [&](Configuration &configuration, const auto &device) {
        Modes modes{};
        const QString error = readModes(configuration, device, modes);
        if (!error.isEmpty()) {
            return requestFailed(session, device, error);
        }
        const Written written = writeModes(session, configuration, device, changes, modes);
        if (!written.error.isEmpty()) {
            return requestFailed(session, device, written.text(), {{"written", written.toJson()}});
        }
        show(session.output, device, modes);
        return ExitStatus::Done;
    });
}

} // namespace

const Command s_modesCommand{
    "modes",
    "Show the three user modes of a device, or change some of them",
    "  capso-cli modes SIM00001\n"
    "  capso-cli modes SIM00001 1=1280x720 2=off",
    [](CLI::App &app) -> CommandRun {
        return declareTarget(app, "N=WIDTHxHEIGHT|N=on|N=off",
                             "The modes to change, N from 1 to 3. A size leaves the mode on or off "
                             "as it is. Without any, all three are shown",
                             modes);
    },
};
