// The program is killed at each transfer of an update and of a repair, and a new one finds the
// device as it then is; and the computer falls asleep there: the transfer fails, and the device
// comes back by itself, at another address. At last it sleeps while an update, a scan and a request
// are under way at once, each on another device.

#include "libusbtexts.h"
#include "plan.h"
#include "wiremodel.h"

#include <QRegularExpression>

namespace {

// ---- killed

struct Death
{
    std::shared_ptr<const Plan> plan;
    std::size_t at;
    bool afterTheDeed;

    const Step &step() const { return plan->script.steps[at]; }
    Fault fault() const { return afterTheDeed ? Fault::SilenceAfter : Fault::Silence; }
    // A device that has started the sandbox is gone at once when its answer is lost; where the
    // answer only takes longer than the program waits, there is a moment to kill it in.
    QByteArray sceneWords() const
    {
        const bool starts = afterTheDeed && step().role == Role::SandboxStart;
        return starts ? "delay 2000" : factsOf(fault()).scene;
    }
};

// The device is silent at that transfer, and the program is killed while it waits.
Expectation expectDeath(const Death &death)
{
    const Plan &plan = *death.plan;
    Expectation expected = expectUpdate(plan.script, !plan.device.runs(), death.at, death.fault());
    const QString struck = struckLine(death.step(), death.fault());
    while (expected.wire.last() != struck) {
        expected.wire.removeLast(); // what the program would have done
    }
    expected.wire.last().replace(QRegularExpression(" (cancelled|no-device)$"), " abandoned");
    expected.wire += "close";
    if (death.step().role == Role::FpgaCrc) {
        expected.stage = Stage::FpgaOpen; // it has not been completed either
    }
    return expected;
}

Scenario scenarioOf(const Death &death)
{
    const Plan &plan = *death.plan;
    const Expectation expected = expectDeath(death);
    DeviceModel device = plan.device;
    device.take(expected, plan.images);
    Try rescue = goodTry(device, scriptOf(device, plan.recovery, plan.busyPolls));
    rescue.images = plan.recovery;
    rescue.package = plan.recoveryPackage;
    Scenario scenario{device, deviceWords(plan.busyPolls), {rescue}};
    scenario.firstPoll = expected.firstPoll;
    scenario.wireBefore = healthyProbe(plan.device.runs()) + expected.wire;
    return scenario;
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
    const Scenario scenario = scenarioOf(death);
    // Counted from the program's start.
    const int number = transfersIn(healthyProbe(plan.device.runs())) + int(death.at) + 1;
    Cell cell;
    cell.title = cellTitle(plan.script, death.at, death.fault()).replace("silence", "killed");
    cell.scene =
        sceneOf(plan.device.product(), scenario.words + "\nmode " + plan.device.sceneMode()) +
        "fault g transfer nth " + QByteArray::number(number) + ' ' + death.sceneWords() + '\n';
    cell.program = CAPSO_KILLER;
    const QString mode = QString::fromLatin1(scenario.device.sceneMode());
    cell.operations =
        QStringList{QString::number(number), mode, "update", "S1", plan.package, "--"} +
        operationsOf(scenario);
    cell.check = [death](const SimRun &run) { return checkScenario(run, scenarioOf(death)); };
    cell.request = death.step().request.code;
    cell.in = death.step().in;
    cell.fault = death.fault();
    return cell;
}

Operation deathsOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    Operation operation{"killed", "killed in " + name, {}};
    for (std::size_t at = 0; at < plan->script.steps.size(); ++at) {
        for (const bool after : {false, true}) {
            operation.cells.push_back(cellOf(Death{plan, at, after}));
        }
    }
    return operation;
}

// ---- asleep

Scenario sleepAt(const Plan &plan, std::size_t at)
{
    Try struck = struckTry(plan.device, plan.script, at, Fault::Disconnect);
    // Long enough for the list to be read again before it is back.
    struck.fault = QString("fault g transfer nth %1 disconnect replug 3000 address 77").arg(at + 1);
    struck.wakes = true;
    return scenarioOf(plan, struck);
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

// ---- asleep, with everything under way that can be

constexpr int s_flags = 5; // of the device that is asked
const QStringList s_found{"S1", "S2", "S3"};

// The numbers of capso-sleeper's operations.
enum { AllAtOnce = 2, ScanAwake, UpdateAwake, FlagsAwake };

QStringList updateLines(const SimRun &run, int operation)
{
    QStringList lines;
    for (const QJsonObject &event : run.eventsOf(operation)) {
        const QString kind = event["event"].toString();
        if (kind == "progress") {
            lines += QString("progress %1").arg(event["value"].toInt());
        } else if (kind == "error") {
            lines += "error " + event["text"].toString();
        } else if (kind == "complete") {
            lines += kind;
        }
    }
    return lines;
}

// What the request's and the scan's front objects said.
QStringList otherLines(const SimRun &run, int operation)
{
    QStringList lines;
    for (const QJsonObject &event : run.eventsOf(operation)) {
        const QString kind = event["event"].toString();
        if (kind == "flags") {
            lines += QString("flags %1").arg(event["value"].toInt());
        } else if (kind == "flagsError" || kind == "scanError") {
            lines += kind + ' ' + event["text"].toString();
        } else if (kind == "newDevice") {
            lines += event["serialNumber"].toString();
        } else if (kind == "asleep") {
            lines += QString("asleep, %1 ended").arg(event["ends"].toInt());
        } else if (kind == "scanComplete") {
            lines += kind;
        }
    }
    lines.sort();
    return lines;
}

QString checkSleep(const SimRun &run, const Plan &plan, std::size_t at)
{
    const Expectation expected =
        expectUpdate(plan.script, !plan.device.runs(), at, Fault::Disconnect);
    DeviceModel device = plan.device;
    device.take(expected, plan.images);
    const Expectation rescue =
        expectUpdate(scriptOf(device, plan.images, plan.busyPolls), !device.runs());
    const QString noDevice =
        "flagsError Error retreiving config device data: req=226, status: " + libusbText(-4);
    return firstOf({
        [&] { return compareLists("update", updateLines(run, AllAtOnce), expected.signalLines); },
        [&] {
            return compareLists("request and scan", otherLines(run, AllAtOnce),
                                {"asleep, 0 ended", "flags -1", noDevice, "scanComplete"});
        },
        [&] {
            return compareLists("after it", otherLines(run, ScanAwake),
                                s_found + QStringList{"scanComplete"});
        },
        [&] { return compareLists("rescue", updateLines(run, UpdateAwake), rescue.signalLines); },
        [&] {
            return compareLists("request after it", otherLines(run, FlagsAwake),
                                {QString("flags %1").arg(s_flags)});
        },
        [&] {
            return compareLists("the rescued device", memoriesOf(run.state("g"), plan.images),
                                memoriesHolding(plan.images));
        },
        [&] {
            return compareLists("the wire", wireOf(run),
                                healthyProbe(plan.device.runs()) + expected.wire +
                                    healthyProbe(device.runs()) + rescue.wire);
        },
        [&] { return run.transcript().unbalanced("g"); },
        [&] { return run.transcript().unbalanced("b"); },
        [&] { return run.transcript().unbalanced("c"); },
    });
}

// One of the three requests has been given up before the computer slept: all of them have to be
// under way within the second that the first one has.
bool sleptTooLate(const SimRun &run)
{
    for (const char *device : {"g", "b", "c"}) {
        if (!run.transcript().texts(device).filter(" cancelled").isEmpty()) {
            return true;
        }
    }
    return false;
}

Operation commonSleepsOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    Operation operation{"asleep", "asleep in scan, request and " + name, {}};
    for (std::size_t at = 0; at < plan->script.steps.size(); ++at) {
        Cell cell;
        cell.title = cellTitle(plan->script, at, Fault::Disconnect)
                         .replace(factsOf(Fault::Disconnect).title, "all asleep");
        cell.scene = sceneOf(plan->device.product(),
                             deviceWords(plan->busyPolls) + "\nmode " + plan->device.sceneMode()) +
                     "device b\nproduct velk3\nserial \"S2\"\nflags " +
                     QByteArray::number(s_flags) + "\ndevice c\nproduct sorn3\nserial \"S3\"\n";
        cell.program = CAPSO_SLEEPER;
        cell.operations = QStringList{plan->package, QString::number(at + 1)};
        cell.check = [plan, at](const SimRun &run) { return checkSleep(run, *plan, at); };
        cell.missed = sleptTooLate;
        cell.request = plan->script.steps[at].request.code;
        cell.in = plan->script.steps[at].in;
        cell.fault = Fault::Disconnect;
        operation.cells.push_back(std::move(cell));
    }
    return operation;
}

} // namespace

std::vector<Operation> hostOperations(const QString &packages)
{
    const auto update = wholePlan(packages, velk3, Mode::Normal, "velk3");
    const auto repair = wholePlan(packages, velk3, Mode::Soft, "velk3");
    return {deathsOf("update velk3", update),       deathsOf("soft repair velk3", repair),
            sleepsOf("update velk3", update),       sleepsOf("soft repair velk3", repair),
            commonSleepsOf("update velk3", update), commonSleepsOf("soft repair velk3", repair)};
}
