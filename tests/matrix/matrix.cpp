#include "matrix.h"

#include "expectation.h"
#include "wiremodel.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

QString cellTitle(const Script &script, std::size_t at, Fault fault)
{
    return QString("%1 at %2 of %3: %4")
        .arg(factsOf(fault).title)
        .arg(at + 1)
        .arg(script.steps.size())
        .arg(script.steps[at].line.section(' ', 0, 4));
}

QString faultCommand(std::size_t at, const Step &step, Fault fault)
{
    return QString("fault g transfer nth %1 ").arg(at + 1) +
           QString::fromLatin1(sceneWords(step, fault));
}

void addStruckCells(Operation &operation, const Script &script, const MakeCell &make)
{
    for (std::size_t at = 0; at < script.steps.size(); ++at) {
        const Step &step = script.steps[at];
        for (const Fault fault : s_faults) {
            if (!applies(step, fault)) {
                continue;
            }
            Cell cell = make(at, fault, cellTitle(script, at, fault));
            cell.request = step.request.code;
            cell.in = step.in;
            cell.fault = fault;
            operation.cells.push_back(std::move(cell));
        }
    }
}

QJsonObject seenAfter(const SimRun &run, int operation)
{
    return run.eventsOf(operation, "seen").value(0);
}

QJsonObject stateAt(const SimRun &run, int operation)
{
    const QString answer = run.eventsOf(operation, "control").value(0)["answer"].toString();
    return QJsonDocument::fromJson(answer.toUtf8()).object();
}

QStringList listIn(const QJsonObject &seen, const char *field)
{
    QStringList texts;
    for (const QJsonValue value : seen[QLatin1String(field)].toArray()) {
        texts.append(value.toString());
    }
    return texts;
}

QString filesLeftOpen(const SimRun &run)
{
    for (int operation = 1; !seenAfter(run, operation).isEmpty(); ++operation) {
        const int files = seenAfter(run, operation)["filesLeftOpen"].toInt(-1);
        if (files != 0) {
            return QString("%1 files are open after operation %2").arg(files).arg(operation);
        }
    }
    return {};
}

QString checkBoxCount(const SimRun &run, int expected)
{
    int count = 0;
    for (int operation = 1; !seenAfter(run, operation).isEmpty(); ++operation) {
        count += listIn(seenAfter(run, operation), "boxes").size();
    }
    return count == expected ? QString()
                             : QString("%1 boxes in all, expected %2").arg(count).arg(expected);
}

// The language is asked for before each string: the product's, the serial number, and of a running
// device the version.
QStringList healthyProbe(bool runs, int firstPoll)
{
    WireModel wire;
    wire.line("open").line("string 0").line("string 2").line("string 0").line("string 4");
    if (!runs) {
        return wire.line("close").lines();
    }
    wire.line("string 0").line("string 3").line("claim 0 ok");
    return wire.poll(0xC8, firstPoll).giveBack().lines();
}

// Some transfers come after a pause, and the machine is busy: only the next longer time-out is out
// of the question.
QString checkPatience(const SimRun &run)
{
    static const QRegularExpression s_edidRequest("^> (cf|d2|d4) ");
    double before = 0;
    for (const SimLine &line : run.transcript().lines("g")) {
        const bool edid = line.text.contains(s_edidRequest);
        const double waited = line.time - before;
        before = line.time;
        const bool right = edid ? waited > 9900 : waited > 950 && waited < 9000;
        if (line.text.endsWith(" cancelled") && !right) {
            return QString("'%1' was given up after %2 ms").arg(line.text).arg(waited);
        }
    }
    return {};
}

QStringList wireOf(const SimRun &run)
{
    QStringList lines =
        run.transcript().texts("g", {SimLine::Vendor, SimLine::Standard, SimLine::Handle});
    for (const char *call : {"driver-attach", "driver-detach", "claim"}) {
        lines.removeAll(QString(call) + " 0 no-device");
    }
    return lines;
}

QString compareLists(const QString &what, const QStringList &actual, const QStringList &expected)
{
    const QString difference = firstDifference(actual, expected);
    return difference.isEmpty() ? QString() : what + ' ' + difference;
}

QString compareTexts(const QString &what, const QString &actual, const QString &expected)
{
    return actual == expected ? QString()
                              : QString("%1 is '%2', expected '%3'").arg(what, actual, expected);
}

QString firstOf(const std::vector<std::function<QString()>> &checks)
{
    for (const auto &check : checks) {
        const QString reason = check();
        if (!reason.isEmpty()) {
            return reason;
        }
    }
    return {};
}
