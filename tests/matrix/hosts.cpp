// The program is killed at each transfer of an update and of a repair, and a new one finds the
// device as it then is; and the computer falls asleep there: the transfer fails, and the device
// comes back by itself, at another address.

#include "plan.h"
#include "wiremodel.h"

namespace {

// ---- killed

struct Death
{
    std::shared_ptr<const Plan> plan;
    std::size_t at;
    bool afterTheDeed;

    const Step &step() const { return plan->script.steps[at]; }
};

// The device is silent at that transfer, and the program is killed while it waits.
Expectation expectDeath(const Death &death)
{
    const Plan &plan = *death.plan;
    const Fault silence = death.afterTheDeed ? Fault::SilenceAfter : Fault::Silence;
    Expectation expected = expectUpdate(plan.script, !plan.device.runs(), death.at, silence);
    const QString struck = struckLine(death.step(), silence);
    while (expected.wire.last() != struck) {
        expected.wire.removeLast(); // what the program would have done
    }
    expected.wire.last().replace(" cancelled", " abandoned");
    expected.wire += "close";
    if (death.step().role == Role::FpgaCrc) {
        expected.stage = Stage::FpgaOpen; // it has not been completed either
    }
    return expected;
}

Story tell(const Death &death)
{
    const Plan &plan = *death.plan;
    const Expectation expected = expectDeath(death);
    DeviceModel device = plan.device;
    device.take(expected, plan.images);
    Try rescue = goodTry(device, scriptOf(device, plan.recovery, plan.busyPolls));
    rescue.images = plan.recovery;
    rescue.package = plan.recoveryPackage;
    Story story{device, deviceWords(plan.busyPolls), {rescue}};
    story.firstPoll = expected.firstPoll;
    story.wireBefore = healthyProbe(plan.device.runs()) + expected.wire;
    return story;
}

int transfersIn(const QStringList &wire)
{
    int count = 0;
    for (const QString &line : wire) {
        count += line.startsWith("string ") || line.startsWith("< ") || line.startsWith("> ");
    }
    return count;
}

Cell cellOf(const Death &death)
{
    const Plan &plan = *death.plan;
    const Story story = tell(death);
    const Fault silence = death.afterTheDeed ? Fault::SilenceAfter : Fault::Silence;
    // Counted from the program's start.
    const int number = transfersIn(healthyProbe(plan.device.runs())) + int(death.at) + 1;
    Cell cell;
    cell.title = cellTitle(plan.script, death.at, silence).replace("silence", "killed");
    cell.scene = sceneOf(plan.device.product(), story.words + "\nmode " + plan.device.sceneMode()) +
                 "fault g transfer nth " + QByteArray::number(number) + ' ' +
                 factsOf(silence).scene + '\n';
    cell.program = CAPSO_KILLER;
    cell.operations = QStringList{QString::number(number), "update", "S1", plan.package, "--"} +
                      operationsOf(story);
    cell.check = [death](const SimRun &run) { return checkStory(run, tell(death)); };
    cell.request = death.step().request.code;
    cell.in = death.step().in;
    cell.fault = silence;
    return cell;
}

Operation deathsOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    Operation operation{"killed", "killed in " + name, {}};
    for (std::size_t at = 0; at < plan->script.steps.size(); ++at) {
        for (const bool after : {false, true}) {
            // A device that has started the sandbox is gone at once, and the program then goes on:
            // there is no moment to kill it in that would not be a race.
            if (!after || plan->script.steps[at].role != Role::SandboxStart) {
                operation.cells.push_back(cellOf(Death{plan, at, after}));
            }
        }
    }
    return operation;
}

// ---- asleep

Story sleepAt(const Plan &plan, std::size_t at)
{
    Try struck = struckTry(plan.device, plan.script, at, Fault::Disconnect);
    // Long enough for the list to be read again before it is back.
    struck.fault = QString("fault g transfer nth %1 disconnect replug 3000 address 77").arg(at + 1);
    struck.wakes = true;
    return tell(plan, struck);
}

Operation sleepsOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    Operation operation{"asleep", "asleep in " + name, {}};
    for (std::size_t at = 0; at < plan->script.steps.size(); ++at) {
        const QString title = cellTitle(plan->script, at, Fault::Disconnect);
        operation.cells.push_back(
            cellOf([plan, at] { return sleepAt(*plan, at); },
                   QString(title).replace(factsOf(Fault::Disconnect).title, "asleep")));
        operation.cells.back().request = plan->script.steps[at].request.code;
        operation.cells.back().in = plan->script.steps[at].in;
        operation.cells.back().fault = Fault::Disconnect;
    }
    return operation;
}

} // namespace

std::vector<Operation> hostOperations(const QString &packages)
{
    const auto update = wholePlan(packages, velk3, Mode::Normal, "velk3");
    const auto repair = wholePlan(packages, velk3, Mode::Soft, "velk3");
    return {deathsOf("update velk3", update), deathsOf("soft repair velk3", repair),
            sleepsOf("update velk3", update), sleepsOf("soft repair velk3", repair)};
}
