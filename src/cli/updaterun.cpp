#include "updaterun.h"

#include "cli.h"
#include "command.h"
#include "devices.h"
#include "displaytexts.h"
#include "interrupts.h"
#include "output.h"
#include "selection.h"
#include "sessionhold.h"
#include "thread.h"
#include "updatetask.h"

#include <QElapsedTimer>
#include <QEventLoop>

#include <algorithm>

namespace {

constexpr int s_checked = 2; // percent; more than that, and the device has been opened

// Tells how far the update of one device is: on a terminal in one line that is written anew, else
// in a line for every ten percent, so that a log stays short.
class ProgressReport
{
public:
    ProgressReport(Output &reportOutput, const ListedDevice &reportDevice,
                   const UpdateSteps &updateSteps)
        : output(reportOutput), device(reportDevice), steps(updateSteps)
    {
        clock.start();
    }

    void show(int percent)
    {
        percent = std::clamp(percent, 0, 100);
        const bool isNewTen = percent / 10 > shown / 10 || shown < 0;
        shown = std::max(shown, percent);
        if (output.showsProgressLine()) {
            output.progressLine(QStringLiteral("%1  %2").arg(text(percent), leftText(percent)));
        } else if (isNewTen) {
            output.note(text(percent));
        }
        if (isNewTen) {
            output.object({{"event", "progress"},
                           {"device", toJson(device)},
                           {"percent", percent},
                           {"step", steps.at(percent)}});
        }
    }

private:
    QString text(int percent) const
    {
        return QStringLiteral("%1: %2 % %3")
            .arg(nameOf(device), QString::number(percent), steps.at(percent));
    }

    // As if the rest went as fast as what is done; the pauses of an update make it a guess.
    QString leftText(int percent) const
    {
        constexpr int tooEarly = 5; // percent
        if (percent < tooEarly || percent == 100) {
            return {};
        }
        const auto seconds = int(clock.elapsed() * (100 - percent) / percent / 1000);
        return Cli::tr("%1:%2 left").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
    }

    Output &output;
    const ListedDevice &device;
    const UpdateSteps &steps;
    QElapsedTimer clock;
    int shown = -1; // percent
};

} // namespace

UpdateResult updateDevice(Session &session, const ListedDevice &device, const QString &fileName,
                          const UpdateSteps &steps)
{
    Output &output = session.output;
    const Interrupts::NoStop noStop;
    const platform::SessionHold hold(sessionHoldText());
    ProgressReport report(output, device, steps);
    UpdateResult result;
    int percent = 0;
    UpdateTask task;
    requireThread(task.hasThread());
    QEventLoop loop;
    QObject::connect(&task, &UpdateTask::progress, &loop, [&](int value) {
        percent = value;
        // A repair that has failed comes to its 100 percent all the same.
        if (result.error.isEmpty()) {
            report.show(value);
        }
    });
    QObject::connect(&task, &UpdateTask::error, &loop, [&](const QString &text) {
        // Where several things go wrong, the first is what the others come from.
        if (result.error.isEmpty()) {
            result.error = text;
        }
    });
    QObject::connect(&task, &UpdateTask::complete, &loop, &QEventLoop::quit);
    QObject::connect(&session.interrupts, &Interrupts::interrupted, &loop,
                     [&output] { output.warning(doNotInterruptText()); });
    session.beginWriting();
    emit task.start(device.description, fileName);
    loop.exec();

    output.progressLine({});
    if (result.error.isEmpty() && percent < 100) {
        result.error = Cli::tr("the update did not take place");
    }
    if (!result.error.isEmpty()) {
        result.status =
            percent <= s_checked ? statusNow(device, session.places) : ExitStatus::Failed;
    }
    return result;
}
