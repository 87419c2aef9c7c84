// Updates and repairs through the unmodified program of the command line: the cells of the dialog
// once more, with what is expected from the same tables.

#include "plan.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace {

enum { Struck = 1, Rescue }; // throughcli.sh

// A scan comes before the operation, in the same process: so many transfers.
int transfersOf(const QStringList &probe)
{
    static const QRegularExpression s_transfer("^(string|[<>]) ");
    return int(probe.filter(s_transfer).size());
}

QByteArray sceneWith(const Plan &plan, const Try &first)
{
    static const QRegularExpression s_number("nth ([0-9]+)");
    const QByteArray scene = sceneOf(scenarioOf(plan, first));
    const QRegularExpressionMatch match = s_number.match(first.fault);
    if (!match.hasMatch()) {
        return scene; // without a fault
    }
    const int number = match.captured(1).toInt() + transfersOf(healthyProbe(plan.device.runs()));
    QString moved = first.fault;
    moved.replace(s_number, QString("nth %1").arg(number));
    return scene + "\n" + moved.toLatin1() + "\n";
}

// The program tells of the first percentage in each ten, and of none after an error: a repair that
// has failed comes to its 100 percent all the same.
QStringList tensOf(const QStringList &signalLines)
{
    QStringList tens;
    int shown = -1;
    for (const QString &line : signalLines) {
        if (line.startsWith("error ")) {
            break;
        }
        if (!line.startsWith("progress ")) {
            continue;
        }
        const int percent = line.section(' ', 1).toInt();
        if (shown < 0 || percent / 10 > shown / 10) {
            tens.append(QString::number(percent));
        }
        shown = qMax(shown, percent);
    }
    return tens;
}

QStringList percentsOf(const SimRun &run, int operation)
{
    QStringList percents;
    for (const QJsonObject &event : run.eventsOf(operation, "progress")) {
        percents.append(QString::number(event["percent"].toInt()));
    }
    return percents;
}

// The one line that says what the update came to, in words to compare.
QString resultOf(const SimRun &run, int operation)
{
    const int code = run.eventsOf(operation, "exit").value(0)["code"].toInt(-1);
    const QJsonArray devices = run.eventsOf(operation, "result").value(0)["devices"].toArray();
    QString text = QString("exit status %1").arg(code);
    for (const QJsonValue device : devices) {
        const QJsonObject row = device.toObject();
        text += QString(", %1 %2 %3 %4")
                    .arg(row["device"].toObject()["serial"].toString(), row["result"].toString(),
                         QString::number(row["status"].toInt(-1)), row["error"].toString());
    }
    return text;
}

QString expectedResult(const Expectation &expected)
{
    return expected.errors.isEmpty() ? QString("exit status 0, S1 updated 0 ")
                                     : "exit status 1, S1 failed 1 " + expected.errors.first();
}

QJsonObject stateAfter(const SimRun &run, int operation)
{
    return run.eventsOf(operation, "state").value(0)["state"].toObject();
}

// Never a word of success that is not true, but for those that are known.
QString checkSuccess(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    if (run.eventsOf(Struck, "exit").value(0)["code"].toInt(-1) != 0) {
        return {};
    }
    const QString difference = compareLists("'updated' is said, but the device's memory",
                                            memoriesOf(stateAfter(run, Struck), plan.images),
                                            memoriesHolding(plan.images));
    if (expected.differs && difference.isEmpty()) {
        return QString("the device holds the package, although ") + expected.differs;
    }
    return expected.differs ? QString() : difference;
}

QString checkFiles(const SimRun &run)
{
    for (const int operation : {Struck, Rescue}) {
        const int files = stateAfter(run, operation)["openFiles"].toInt(-1);
        if (files != 0) {
            return QString("%1 files are open after update %2").arg(files).arg(operation);
        }
    }
    return {};
}

// It refuses what the dialog does nothing for: one line of JSON without a device, or one that tells
// of the device that was named.
QString checkRefusal(const SimRun &run, const Plan &plan)
{
    QString error;
    for (const QJsonObject &event : run.eventsOf(Struck)) {
        error += event["error"].toString();
        for (const QJsonValue device : event["devices"].toArray()) {
            error += device.toObject()["error"].toString();
        }
    }
    if (run.eventsOf(Struck, "exit").value(0)["code"].toInt(-1) != 1) {
        return "it is not refused";
    }
    return error.startsWith(plan.cliRefusal)
               ? QString()
               : QString("refused with '%1', expected '%2'").arg(error, plan.cliRefusal);
}

QString checkStruck(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    if (!plan.cliRefusal.isEmpty()) {
        return checkRefusal(run, plan);
    }
    return firstOf({
        [&] { return compareTexts("the result", resultOf(run, Struck), expectedResult(expected)); },
        [&] {
            return compareLists("the progress", percentsOf(run, Struck),
                                tensOf(expected.signalLines));
        },
        [&] { return checkSuccess(run, plan, expected); },
    });
}

QStringList wholeWire(const Scenario &scenario, bool begins)
{
    const Try &first = scenario.tries[0];
    QStringList wire = healthyProbe(scenario.device.runs());
    if (begins) {
        wire += first.expected.wire;
    }
    const DeviceModel then = deviceBeforeNext(scenario.device, first);
    return wire + healthyProbe(then.runs()) + scenario.tries[1].expected.wire;
}

QString check(const SimRun &run, const Plan &plan, const Try &first)
{
    const Scenario scenario = scenarioOf(plan, first);
    const Expectation &expected = first.expected;
    const Expectation &rescue = scenario.tries[1].expected;
    return firstOf({
        [&] { return checkStruck(run, plan, expected); },
        [&] { return compareTexts("the rescue", resultOf(run, Rescue), expectedResult(rescue)); },
        [&] {
            return compareLists("the rescue's progress", percentsOf(run, Rescue),
                                tensOf(rescue.signalLines));
        },
        [&] {
            return compareLists("the rescued device",
                                memoriesOf(stateAfter(run, Rescue), plan.recovery),
                                memoriesHolding(plan.recovery));
        },
        [&] {
            return compareLists("the wire", wireOf(run),
                                wholeWire(scenario, plan.cliRefusal.isEmpty()));
        },
        [&] { return run.transcript().unbalanced("g"); },
        [&] { return checkPatience(run); },
        [&] { return checkFiles(run); },
    });
}

} // namespace

Cell cliCellOf(const std::shared_ptr<const Plan> &plan, const Try &first, const QString &title)
{
    Cell cell;
    cell.title = title;
    cell.scene = sceneWith(*plan, first);
    cell.program = CAPSO_THROUGH_CLI;
    cell.operations = QStringList{CAPSO_CLI, CAPSO_SIM, plan->package, plan->recoveryPackage,
                                  first.expected.gone ? QString("replug") : QString("power-cycle")};
    cell.check = [plan, first](const SimRun &run) { return check(run, *plan, first); };
    return cell;
}
