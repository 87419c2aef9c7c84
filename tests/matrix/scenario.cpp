#include "scenario.h"

#include "wiremodel.h"

namespace {

// While a device that has started the sandbox behind the program's back is away, the list is read
// again; then it comes back soon.
constexpr char s_stayAway[] = "set g return after 5000";
constexpr char s_return[] = "return after 300";

// The numbers of a try's operations, from 1.
struct Places
{
    int update = 0;
    int state = 0;
    int scan = 0;
};

class Operations
{
public:
    int add(const QStringList &words)
    {
        all += words;
        return ++count;
    }
    int control(const QString &command) { return add({"control", command}); }
    const QStringList &words() const { return all; }

private:
    QStringList all;
    int count = 0;
};

// What capso-clicker does, and where.
struct Course
{
    explicit Course(const Scenario &scenario)
    {
        DeviceModel device = scenario.device;
        begin = operations.control("state g");
        for (const Try &one : scenario.tries) {
            const DeviceModel next = deviceBeforeNext(device, one);
            places.push_back(tryOnce(one, next));
            device = next;
        }
    }

    Places tryOnce(const Try &one, const DeviceModel &next)
    {
        const Expectation &expected = one.expected;
        Places at;
        if (expected.left) {
            operations.control(s_stayAway);
        }
        operations.control(one.fault);
        at.update = operations.add({"update", "S1", one.package});
        // A row that is selected unlocks the tabs, or the program does not go on.
        operations.add(expected.gone || expected.left ? QStringList{"control", "list"}
                                                      : QStringList{"select", "S1"});
        if (expected.left) {
            operations.control(QString("set g ") + s_return);
        }
        if (expected.left || one.wakes) {
            operations.add({"await", "g", next.sceneMode()});
        }
        operations.control("clear-faults g");
        at.state = operations.control("state g");
        if (expected.gone && !one.wakes) {
            operations.control("replug g");
        } else if (!expected.gone && !expected.left && !one.atOnce) {
            operations.control("power-cycle g");
        }
        at.scan = operations.add({"scan"});
        return at;
    }

    Operations operations;
    int begin = 0; // the operation that asks what the device is at first
    std::vector<Places> places;
};

QStringList probeWire(const DeviceModel &device, int firstPoll = 1)
{
    return healthyProbe(device.runs(), firstPoll);
}

QStringList rowsAfter(const DeviceModel &device, const Try &one)
{
    const bool away = one.expected.gone || one.expected.left;
    return away ? QStringList() : QStringList{deviceAfter(device, one).row()};
}

// The list is read when the program starts, after every update, and once more before the next try.
QStringList wireOf(const Scenario &scenario)
{
    DeviceModel device = scenario.device;
    QStringList wire = scenario.wireBefore + probeWire(device, scenario.firstPoll);
    for (const Try &one : scenario.tries) {
        wire += one.expected.wire;
        if (!rowsAfter(device, one).isEmpty()) {
            wire += probeWire(deviceAfter(device, one), one.expected.firstPoll);
        }
        device = deviceBeforeNext(device, one);
        wire += probeWire(device);
    }
    return wire;
}

// The errors are those that a box opened for, in the moment in which it did.
QStringList updateSignals(const SimRun &run, int operation)
{
    QStringList lines;
    for (const QJsonObject &event : run.eventsOf(operation)) {
        const QString kind = event["event"].toString();
        if (kind == "progress") {
            lines.append(QString("progress %1").arg(event["value"].toInt()));
        } else if (kind == "box") {
            lines.append("error " + event["text"].toString());
        } else if (kind == "complete") {
            lines.append(kind);
        }
    }
    return lines;
}

// What the dialog shows when an update has ended: each error in a box of its own, and the last
// word.
QString checkDialog(const QJsonObject &seen, const QStringList &errors, const QStringList &rows)
{
    QStringList boxes;
    for (const QString &error : errors) {
        boxes.append("critical|Update Error|" + error + "|Ok");
    }
    const bool good = errors.isEmpty();
    return firstOf({
        [&] { return compareLists("boxes", listIn(seen, "boxes"), boxes); },
        [&] {
            return compareTexts("the bar", seen["bar"].toString(),
                                good ? "Update Completed" : "Update Error");
        },
        [&] {
            return compareTexts("the warning", seen["warning"].toString(),
                                good ? "" : "Do not disconnect. Retry. Call Support.");
        },
        [&] { return seen["enabled"].toBool() ? QString() : "the dialog stays disabled"; },
        [&] { return compareLists("rows", listIn(seen, "rows"), rows); },
    });
}

// Never a word of success that is not true.
QString checkSuccess(const QJsonObject &seen, const QJsonObject &state, const Try &one)
{
    if (seen["bar"].toString() != "Update Completed") {
        return {};
    }
    const QString difference =
        compareLists("'Update Completed' is shown, but the device's memory",
                     memoriesOf(state, one.images), memoriesHolding(one.images));
    const char *differs = one.expected.differs;
    if (differs && difference.isEmpty()) {
        return QString("the device holds the package, although ") + differs;
    }
    return differs ? QString() : difference;
}

QString checkTry(const SimRun &run, const Places &at, const DeviceModel &device, const Try &one)
{
    const QJsonObject seen = seenAfter(run, at.update);
    const QJsonObject state = stateAt(run, at.state);
    return firstOf({
        [&] {
            return run.eventsOf(at.update, "selected").value(0)["unlocked"].toBool()
                       ? QString()
                       : "the tabs stay locked";
        },
        [&] {
            return compareLists("signals", updateSignals(run, at.update), one.expected.signalLines);
        },
        [&] { return checkDialog(seen, one.expected.errors, rowsAfter(device, one)); },
        [&] { return checkSuccess(seen, state, one); },
        [&] {
            return compareTexts("the device", DeviceModel::memoriesOf(state),
                                deviceAfter(device, one).memories());
        },
        [&] {
            return compareLists("rows before the next try", listIn(seenAfter(run, at.scan), "rows"),
                                {deviceBeforeNext(device, one).row()});
        },
    });
}

// Every try in turn, and what the device is at last.
QString checkTries(const SimRun &run, const Scenario &scenario)
{
    const Course course(scenario);
    DeviceModel device = scenario.device;
    const QString found = firstOf(
        {[&] {
             return compareLists("the first rows", listIn(seenAfter(run, course.begin), "rows"),
                                 {device.row()});
         },
         [&] {
             return compareTexts("the device at first",
                                 DeviceModel::memoriesOf(stateAt(run, course.begin)),
                                 device.memories());
         }});
    if (!found.isEmpty()) {
        return found;
    }
    for (std::size_t i = 0; i < scenario.tries.size(); ++i) {
        const QString problem = checkTry(run, course.places[i], device, scenario.tries[i]);
        if (!problem.isEmpty()) {
            return QString("try %1: ").arg(i + 1) + problem;
        }
        device = deviceBeforeNext(device, scenario.tries[i]);
    }
    const Images &images = scenario.tries.back().images;
    return firstOf({
        [&] { return device.runs() ? QString() : "the device does not run in the end"; },
        [&] {
            return compareLists("the rescued device",
                                memoriesOf(stateAt(run, course.places.back().state), images),
                                memoriesHolding(images));
        },
    });
}

int errorsOf(const Scenario &scenario)
{
    int count = 0;
    for (const Try &one : scenario.tries) {
        count += one.expected.errors.size();
    }
    return count;
}

} // namespace

// "complete 4100 89abcdef" of each memory that the package is for.
QStringList memoriesOf(const QJsonObject &state, const Images &images)
{
    QStringList texts;
    const std::pair<const char *, const QByteArray *> memories[] = {
        {"microcode", &images.fx3}, {"fpga", &images.fpga}, {"edid", &images.edid}};
    for (const auto &[name, image] : memories) {
        if (!image->isEmpty()) {
            const QJsonObject memory = state[QLatin1String(name)].toObject();
            texts.append(QString("%1 %2 %3")
                             .arg(memory["state"].toString())
                             .arg(memory["size"].toInt())
                             .arg(memory["crc32"].toString()));
        }
    }
    return texts;
}

QStringList memoriesHolding(const Images &images)
{
    QStringList texts;
    for (const QByteArray *image : {&images.fx3, &images.fpga, &images.edid}) {
        if (!image->isEmpty()) {
            texts.append(QString("complete %1 %2")
                             .arg(image->size())
                             .arg(crc32Of(*image), 8, 16, QChar('0')));
        }
    }
    return texts;
}

QByteArray deviceWords(int busyPolls)
{
    return QByteArray(s_return) + "\nbusy-polls " + QByteArray::number(busyPolls);
}

Script scriptOf(const DeviceModel &device, const Images &images, int busyPolls)
{
    Script script(busyPolls);
    if (device.runs()) {
        script.regularUpdate(device.product(), images, 2);
    } else {
        script.repair(device.product(), images);
    }
    return script;
}

Try struckTry(const DeviceModel &device, const Script &script, std::size_t at, Fault fault)
{
    Try one;
    one.expected = expectUpdate(script, !device.runs(), at, fault);
    one.fault = faultCommand(at, script.steps[at], fault);
    return one;
}

Try goodTry(const DeviceModel &device, const Script &script)
{
    Try one;
    one.expected = expectUpdate(script, !device.runs());
    return one;
}

DeviceModel deviceAfter(DeviceModel device, const Try &one)
{
    device.take(one.expected, one.images);
    return device;
}

DeviceModel deviceBeforeNext(DeviceModel device, const Try &one)
{
    device.take(one.expected, one.images);
    if (!one.expected.gone && !one.expected.left && !one.atOnce) {
        device.powerCycle();
    }
    return device;
}

QByteArray sceneOf(const Scenario &scenario)
{
    return sceneOf(scenario.device.product(),
                   scenario.words + "\nmode " + scenario.device.sceneMode());
}

QStringList operationsOf(const Scenario &scenario)
{
    return Course(scenario).operations.words();
}

QString checkScenario(const SimRun &run, const Scenario &scenario)
{
    return firstOf({
        [&] { return checkTries(run, scenario); },
        [&] { return compareLists("the wire", wireOf(run), wireOf(scenario)); },
        [&] {
            return scenario.wireBefore.isEmpty() ? run.transcript().unbalanced("g") : QString();
        },
        [&] { return checkPatience(run); },
        [&] { return filesLeftOpen(run); },
        [&] { return checkBoxCount(run, errorsOf(scenario)); },
    });
}

Cell cellOf(const std::function<Scenario()> &make, const QString &title)
{
    const Scenario scenario = make();
    Cell cell;
    cell.title = title;
    cell.scene = sceneOf(scenario);
    cell.operations = operationsOf(scenario);
    cell.check = [make](const SimRun &run) { return checkScenario(run, make()); };
    return cell;
}
