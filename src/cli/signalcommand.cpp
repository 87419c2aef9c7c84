#include "cli.h"
#include "command.h"
#include "configuration.h"
#include "devices.h"
#include "displaytexts.h"
#include "output.h"
#include "records.h"
#include "targetarguments.h"
#include "vendorrequests.h"

#include <QEventLoop>
#include <QTimer>

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

namespace {

constexpr int s_pollInterval = 2000; // ms

// One answer of the device: its record, or why there is none.
struct Status
{
    InputStatusInfo record{};
    QString error;

    QString text() const
    {
        return error.isEmpty() ? inputStatusText(record) : requestNotSupportedText();
    }
};

Status readStatus(Configuration &configuration, const ListedDevice &device)
{
    const Answer answer = configuration.read<InputStatusInfo>(device.description, INPUT_STATUS);
    return answer.succeeded() ? Status{answer.as<InputStatusInfo>(), {}} : Status{{}, answer.error};
}

QJsonObject toJson(const ListedDevice &device, const Status &status)
{
    const InputStatusInfo &record = status.record;
    const bool present = record.width != 0 && record.height != 0 && record.frameRate != 0;
    QJsonObject object{{"device", toJson(device)}, {"text", status.text()}, {"present", present}};
    if (present) {
        object.insert("width", quint16(record.width));
        object.insert("height", quint16(record.height));
        object.insert("interlaced", record.interlaced != 0);
        object.insert("framesPerSecond", quint32(record.frameRate) / 1000.0);
    }
    if (!status.error.isEmpty()) {
        object.insert("error", status.error);
    }
    return object;
}

ExitStatus failed(Session &session, const ListedDevice &device, const Status &status)
{
    return requestFailed(session, device,
                         QStringLiteral("%1 (%2)").arg(status.text(), status.error));
}

bool hasGone(const ListedDevice &device, const usbview::Places &places)
{
    const auto shown = usbview::recognisedDevices(places);
    return shown &&
           !usbview::find(*shown, device.description.busNumber, device.description.deviceAddress);
}

void waitForPoll()
{
    QEventLoop loop;
    QTimer::singleShot(s_pollInterval, &loop, &QEventLoop::quit);
    loop.exec();
}

// A poll that fails while the device is there is a change like any other: another program may hold
// the device for a moment.
ExitStatus watch(Session &session, Configuration &configuration, const ListedDevice &device)
{
    // What a script is told of it: the text for people rounds the frame rate.
    std::optional<QJsonObject> shown;
    for (;;) {
        const Status status = readStatus(configuration, device);
        if (!status.error.isEmpty() && hasGone(device, session.places)) {
            return failed(session, device, status);
        }
        const QJsonObject now = toJson(device, status);
        if (now != shown) {
            shown = now;
            session.output.result(status.text(), now);
        }
        session.output.lookForReader();
        if (session.output.hasFailed()) {
            return ExitStatus::Failed;
        }
        waitForPoll();
    }
}

ExitStatus signal(Session &session, const TargetArguments &arguments, bool watching)
{
    return withTarget(session, arguments, [&](Configuration &configuration, const auto &device) {
        if (watching) {
            return watch(session, configuration, device);
        }
        const Status status = readStatus(configuration, device);
        if (!status.error.isEmpty()) {
            return failed(session, device, status);
        }
        session.output.result(status.text(), toJson(device, status));
        return ExitStatus::Done;
    });
}

} // namespace

const Command s_signalCommand{
    "signal",
    "Show the signal at the input of a device",
    "  capso-cli signal SIM00001\n"
    "  capso-cli signal SIM00001 --watch",
    [](CLI::App &app) -> CommandRun {
        const auto watching = std::make_shared<bool>(false);
        app.add_flag("--watch", *watching, "Show it at each change, until interrupted");
        return declareTarget(app, nullptr, nullptr,
                             [watching](Session &session, const TargetArguments &arguments) {
                                 return signal(session, arguments, *watching);
                             });
    },
};
