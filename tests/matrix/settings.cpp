// The settings, the user modes and the input status, with each of their transfers struck; then the
// same program reads and writes the device when it is well.

#include "expectation.h"
#include "flagboxes.h"
#include "libusbtexts.h"
#include "matrix.h"
#include "wiremodel.h"

#include <QJsonArray>

#include <memory>

namespace {

// The device at first.
constexpr char s_scene[] = "flags 0x05\n"
                           "user-mode 0 640x480 on\n"
                           "user-mode 1 800x600 off\n"
                           "user-mode 2 1024x768 on\n"
                           "input 1920x1080p 60000 \"HDMI\" \"RGB\"";

// What the dialog shows of that device.
constexpr int s_flags = 0x05;
const QStringList s_modes{"640x480 on", "800x600 off", "1024x768 on"};
const QString s_signal = "HDMI 1920x1080p@60, RGB";
constexpr int s_wrongFlags = 0x11;
const QString s_wrongSignal = "VGA 1280x720i@25, YUV";

// What it is changed to.
constexpr int s_otherFlags = 0x12;
const QStringList s_otherModes{"1280x720 off", "320x240 on", "1920x1080 off"};

QByteArray modeRecord(const QString &mode)
{
    const QStringList size = mode.section(' ', 0, 0).split('x');
    QByteArray record;
    for (const QString &side : size) {
        record += char(side.toInt() & 0xFF);
        record += char(side.toInt() >> 8);
    }
    return record + (mode.endsWith(" on") ? '\x00' : '\x01');
}

// 29 bytes: two texts, the rate in thousandths, the size, and whether it is interlaced.
QByteArray statusRecord(const char *info, const char *name, quint32 rate, const char *rest)
{
    return QByteArray(info).leftJustified(12, '\0') + QByteArray(name).leftJustified(8, '\0') +
           le32(rate) + QByteArray::fromHex(rest);
}

// ---- the transfers of the five operations

void addRead(Script &script, int code, int index, const QByteArray &record)
{
    script.add(Role::Configuration, {Direction::In, code, 0, index, record.size()}, record);
}

void addWrite(Script &script, int code, int index, const QByteArray &record)
{
    script.add(Role::Configuration, {Direction::Out, code, 0, index, record.size()}, record);
}

Script readFlags(int flags)
{
    Script script;
    addRead(script, 0xE2, 0, QByteArray(1, char(flags)));
    script.steps.back().wrong = QByteArray(1, char(s_wrongFlags));
    return script;
}

Script writeFlags(int flags)
{
    Script script;
    addWrite(script, 0xE3, 0, QByteArray(1, char(flags)));
    return script;
}

Script readModes(const QStringList &modes)
{
    Script script;
    for (int i = 0; i < modes.size(); ++i) {
        addRead(script, 0xB3, i, modeRecord(modes[i]));
    }
    return script;
}

Script writeModes(const QStringList &modes)
{
    Script script;
    for (int i = 0; i < modes.size(); ++i) {
        addWrite(script, 0xB3, i, modeRecord(modes[i]));
    }
    return script;
}

Script readStatus()
{
    Script script;
    addRead(script, 0xB2, 0, statusRecord("RGB", "HDMI", 60000, "8007380400"));
    script.steps.back().wrong = statusRecord("YUV", "VGA", 25000, "0005d00201");
    return script;
}

// Each request opens the device for itself.
QStringList wireOf(const Script &script)
{
    QStringList wire;
    for (const Step &step : script.steps) {
        wire += WireModel().openForWork().line(step.line).giveBack().lines();
    }
    return wire;
}

// ---- what is expected

struct SettingsExpectation
{
    QStringList wire;        // of the struck operation
    QStringList signalLines; // "error 226 TEXT", "get 226", "get 226 null", "set 227"
    QStringList errors;      // the texts alone
    bool box = false;        // each error has a box
    QString shown;           // by the widgets that the operation is about
    bool modesPageUsable = true;
    QString held; // what the device holds then; of a write only
    bool gone = false;
};

using Operations = QList<QStringList>; // capso-clicker's, each with its words

// One scenario: how its operations go, and what is seen where.
struct Scenario
{
    const char *title;
    Operations prepare;
    QStringList operate; // the operation that is struck
    Operations repeat;   // the same, with the device well and selected again
    const char *field;   // of what is seen
    Script script;       // of `operate`
    QStringList wireBefore;
    std::function<SettingsExpectation(std::size_t at, Fault fault)> expect;
    SettingsExpectation well;
    // What follows when the device is selected again, by what it holds then.
    std::function<QStringList(const QString &held)> wireAfter;
    QString shownAfter;
    std::function<QString(const QJsonObject &state)> held; // null unless it writes
};

QString readError(int request, Fault fault)
{
    return QString("Error retreiving config device data: req=%1, status: %2")
        .arg(request)
        .arg(libusbText(factsOf(fault).code));
}

// The same words for every write.
QString writeError(Fault fault)
{
    return QString("Error setting device flags: %1").arg(libusbText(factsOf(fault).code));
}

// The requests up to the one that is struck, and that one.
QStringList wireUpTo(const Script &script, std::size_t at, Fault fault)
{
    QStringList wire;
    for (std::size_t i = 0; i <= at; ++i) {
        const Step &step = script.steps[i];
        const bool gone = i == at && isDeparture(fault);
        wire += WireModel().openForWork().lines();
        wire += i == at ? struckLine(step, fault) : step.line;
        wire += gone ? QStringList{"release 0 no-device", "close"} : WireModel().giveBack().lines();
    }
    return wire;
}

// What follows a transfer that went through, though not as it should.
QStringList wireFrom(const Script &script, std::size_t at)
{
    Script rest;
    rest.steps.assign(script.steps.begin() + long(at), script.steps.end());
    return wireOf(rest);
}

// The boxes keep what they showed; a short answer leaves zeros.
SettingsExpectation expectReadFlags(Fault fault)
{
    SettingsExpectation expected;
    if (isError(fault)) {
        expected.errors = QStringList{readError(226, fault)};
        expected.box = true;
        expected.shown = boxesOf(s_flags);
    } else {
        expected.shown = boxesOf(fault == Fault::Short ? 0 : s_wrongFlags);
    }
    return expected;
}

SettingsExpectation expectWriteFlags(Fault fault)
{
    SettingsExpectation expected;
    if (isError(fault)) {
        expected.errors = QStringList{writeError(fault)};
        expected.box = true;
    }
    expected.shown = boxesOf(s_otherFlags); // as the user has set them
    expected.held = isAfterTheDeed(fault) ? "18" : "5";
    return expected;
}

// A failed read of a mode is told by the page: it cannot be used. The modes after it are not read.
SettingsExpectation expectReadModes(std::size_t at, Fault fault)
{
    SettingsExpectation expected;
    QStringList shown = s_modes;
    for (std::size_t i = 0; i < at; ++i) {
        shown[int(i)] = s_otherModes[int(i)];
    }
    if (isError(fault)) {
        expected.errors = QStringList{readError(179, fault)};
        expected.modesPageUsable = false;
    } else {
        for (int i = int(at); i < 3; ++i) {
            shown[i] = s_otherModes[i];
        }
        // Two of five bytes are the width, and a mode that is not switched off is on. A wrong
        // answer here is every bit the other way round.
        const QString width = s_otherModes[int(at)].section('x', 0, 0);
        const QStringList size = s_otherModes[int(at)].section(' ', 0, 0).split('x');
        shown[int(at)] =
            fault == Fault::Short
                ? width + "x0 on"
                : QString("%1x%2 off").arg(65535 - size[0].toInt()).arg(65535 - size[1].toInt());
    }
    expected.shown = shown.join(", ");
    return expected;
}

// A failed write of a mode is told once, and the modes after it are not written. A mode of which
// only a part arrives is not stored, and nobody is told.
SettingsExpectation expectWriteModes(std::size_t at, Fault fault)
{
    SettingsExpectation expected;
    QStringList held = s_otherModes;
    if (!isAfterTheDeed(fault)) {
        held[int(at)] = s_modes[int(at)];
    }
    if (isError(fault)) {
        expected.errors = QStringList{writeError(fault)};
        expected.box = true;
        for (int i = int(at) + 1; i < 3; ++i) {
            held[i] = s_modes[i];
        }
    }
    expected.shown = s_otherModes.join(", ");
    expected.held = held.join(", ");
    return expected;
}

// A poll fails without a box, since there is one every two seconds. Of 29 bytes, 14 are no signal.
SettingsExpectation expectStatus(Fault fault)
{
    SettingsExpectation expected;
    if (isError(fault)) {
        expected.errors = QStringList{readError(178, fault)};
    }
    expected.shown = isError(fault)          ? "request not supported"
                     : fault == Fault::Short ? "no signal"
                                             : s_wrongSignal;
    return expected;
}

// Each request ends with one completion, and a failed one is told before: what waits for the
// completion must know by then. Only a failed read brings no data.
QStringList signalsOf(const Step &step, const QStringList &errors)
{
    QStringList lines;
    for (const QString &error : errors) {
        lines += QString("error %1 ").arg(step.request.code) + error;
    }
    const QString nothing = step.in && !errors.isEmpty() ? " null" : "";
    return lines +
           QStringList{QString(step.in ? "get %1" : "set %1").arg(step.request.code) + nothing};
}

// The signals of an operation in which the transfer at `struck` has these errors.
QStringList signalsOf(const Script &script, std::size_t struck, const QStringList &errors)
{
    QStringList lines;
    for (std::size_t i = 0; i < script.steps.size(); ++i) {
        lines += signalsOf(script.steps[i], i == struck ? errors : QStringList());
        if (i == struck && !errors.isEmpty()) {
            break;
        }
    }
    return lines;
}

SettingsExpectation expectStruck(const Scenario &scenario, std::size_t at, Fault fault)
{
    SettingsExpectation expected = scenario.expect(at, fault);
    expected.gone = isDeparture(fault);
    expected.wire = wireUpTo(scenario.script, at, fault);
    expected.signalLines = signalsOf(scenario.script, at, expected.errors);
    if (!isError(fault)) {
        expected.wire += wireFrom(scenario.script, at + 1);
    }
    return expected;
}

// ---- what is checked

// Where the operations of a scenario stand, from 1.
struct Places
{
    explicit Places(const Scenario &scenario)
        : struck(scenario.prepare.size() + 2), poll(struck + 1), state(poll + 2)
    {
        // The device is brought back, found and selected.
        last = state + 3 + scenario.repeat.size();
    }
    int struck;
    int poll; // the one that comes by itself when the controls are unlocked
    int state;
    int last;
};

// Every error and every completion, as the task signals them.
QStringList configSignals(const SimRun &run, int operation)
{
    QStringList lines;
    for (const QJsonObject &event : run.eventsOf(operation)) {
        const QString kind = event["event"].toString();
        const QString request = QString::number(event["request"].toInt());
        if (kind == "configError") {
            lines += "error " + request + ' ' + event["text"].toString();
        } else if (kind == "getRequestComplete") {
            lines += "get " + request + (event["null"].toBool() ? " null" : "");
        } else if (kind == "setRequestComplete") {
            lines += "set " + request;
        }
    }
    return lines;
}

QString checkStruck(const SimRun &run, const Scenario &scenario,
                    const SettingsExpectation &expected)
{
    const QJsonObject seen = seenAfter(run, Places(scenario).struck);
    QStringList boxes;
    for (const QString &error : expected.box ? expected.errors : QStringList()) {
        boxes.append("critical|Device Access Error|" + error + "|Ok");
    }
    return firstOf({
        [&] {
            return compareLists("signals", configSignals(run, Places(scenario).struck),
                                expected.signalLines);
        },
        [&] { return compareLists("boxes", listIn(seen, "boxes"), boxes); },
        [&] { return seen["unlocked"].toBool() ? QString() : "the tabs stay locked"; },
        [&] {
            return compareTexts("the dialog", seen[QLatin1String(scenario.field)].toString(),
                                expected.shown);
        },
        [&] {
            return seen["modesPage"].toBool() == expected.modesPageUsable
                       ? QString()
                       : "the User Modes page is usable or not, the wrong way round";
        },
    });
}

QString checkScenario(const SimRun &run, const Scenario &scenario,
                      const SettingsExpectation &expected)
{
    const Places places(scenario);
    const QString held = scenario.held ? scenario.held(stateAt(run, places.state)) : QString();
    const QStringList probe = healthyProbe(true);
    const QStringList poll = expected.gone ? QStringList() : wireOf(readStatus());
    return firstOf({
        [&] { return checkStruck(run, scenario, expected); },
        [&] {
            return compareTexts("the next poll", seenAfter(run, places.poll)["signal"].toString(),
                                expected.gone ? "request not supported" : s_signal);
        },
        [&] { return compareTexts("what the device holds", held, expected.held); },
        [&] {
            return compareTexts(
                "the dialog in the end",
                seenAfter(run, places.last)[QLatin1String(scenario.field)].toString(),
                scenario.shownAfter);
        },
        [&] {
            const QJsonObject seen = seenAfter(run, places.last);
            return seen["unlocked"].toBool() && seen["modesPage"].toBool()
                       ? QString()
                       : "a page cannot be used in the end";
        },
        [&] {
            return scenario.held ? compareTexts("what the device holds in the end",
                                                scenario.held(stateAt(run, places.last + 1)),
                                                scenario.well.held)
                                 : QString();
        },
        [&] {
            return compareLists("the wire", wireOf(run),
                                probe + scenario.wireBefore + expected.wire + poll + probe +
                                    scenario.wireAfter(expected.held));
        },
        [&] { return run.transcript().unbalanced("g"); },
        [&] { return checkPatience(run); },
        [&] { return filesLeftOpen(run); },
        [&] { return checkBoxCount(run, expected.box ? expected.errors.size() : 0); },
    });
}

// ---- the scenarios

QString flagsHeld(const QJsonObject &state)
{
    return QString::number(state["flags"].toInt());
}

QString modesHeld(const QJsonObject &state)
{
    QStringList texts;
    for (const QJsonValue value : state["userModes"].toArray()) {
        const QJsonObject mode = value.toObject();
        texts.append(QString("%1x%2 %3")
                         .arg(mode["width"].toInt())
                         .arg(mode["height"].toInt())
                         .arg(mode["disabled"].toInt() == 0 ? "on" : "off"));
    }
    return texts.join(", ");
}

Scenario readFlagsScenario()
{
    Scenario scenario;
    scenario.title = "read flags";
    scenario.prepare = {
        {"select", "S1"}, {"tab", "1"}, {"control", "set g flags 0x12"}, {"tab", "0"}};
    scenario.operate = QStringList{"tab", "1"};
    scenario.field = "flags";
    scenario.script = readFlags(s_otherFlags);
    scenario.wireBefore = wireOf(readFlags(s_flags));
    scenario.expect = [](std::size_t, Fault fault) { return expectReadFlags(fault); };
    scenario.well.shown = boxesOf(s_otherFlags);
    scenario.wireAfter = [](const QString &) { return wireOf(readFlags(s_otherFlags)); };
    scenario.shownAfter = boxesOf(s_otherFlags);
    return scenario;
}

Scenario writeFlagsScenario()
{
    Scenario scenario;
    scenario.title = "write flags";
    scenario.prepare = {{"select", "S1"}, {"tab", "1"}};
    scenario.operate = QStringList{"apply-flags", boxesOf(s_otherFlags)};
    scenario.repeat = {scenario.operate};
    scenario.field = "flags";
    scenario.script = writeFlags(s_otherFlags);
    scenario.wireBefore = wireOf(readFlags(s_flags));
    scenario.expect = [](std::size_t, Fault fault) { return expectWriteFlags(fault); };
    scenario.well.shown = boxesOf(s_otherFlags);
    scenario.well.held = "18";
    scenario.wireAfter = [](const QString &held) {
        return wireOf(readFlags(held.toInt())) + wireOf(writeFlags(s_otherFlags));
    };
    scenario.shownAfter = boxesOf(s_otherFlags);
    scenario.held = flagsHeld;
    return scenario;
}

Scenario readModesScenario()
{
    Scenario scenario;
    scenario.title = "read user modes";
    scenario.prepare = {{"select", "S1"}, {"tab", "2"}};
    for (int i = 0; i < s_otherModes.size(); ++i) {
        scenario.prepare +=
            QStringList{"control", QString("set g user-mode %1 ").arg(i) + s_otherModes[i]};
    }
    scenario.prepare += QStringList{"tab", "0"};
    scenario.operate = QStringList{"tab", "2"};
    scenario.field = "modes";
    scenario.script = readModes(s_otherModes);
    scenario.wireBefore = wireOf(readModes(s_modes));
    scenario.expect = expectReadModes;
    scenario.well.shown = s_otherModes.join(", ");
    scenario.wireAfter = [](const QString &) { return wireOf(readModes(s_otherModes)); };
    scenario.shownAfter = s_otherModes.join(", ");
    return scenario;
}

Scenario writeModesScenario()
{
    Scenario scenario;
    scenario.title = "write user modes";
    scenario.prepare = {{"select", "S1"}, {"tab", "2"}};
    scenario.operate = QStringList{"apply-modes"} + s_otherModes;
    scenario.repeat = {scenario.operate};
    scenario.field = "modes";
    scenario.script = writeModes(s_otherModes);
    scenario.wireBefore = wireOf(readModes(s_modes));
    scenario.expect = expectWriteModes;
    scenario.well.shown = s_otherModes.join(", ");
    scenario.well.held = s_otherModes.join(", ");
    scenario.wireAfter = [](const QString &held) {
        return wireOf(readModes(held.split(", "))) + wireOf(writeModes(s_otherModes));
    };
    scenario.shownAfter = s_otherModes.join(", ");
    scenario.held = modesHeld;
    return scenario;
}

Scenario statusScenario()
{
    Scenario scenario;
    scenario.title = "read input status";
    scenario.prepare = {{"select", "S1"}, {"poll"}};
    scenario.operate = QStringList{"poll"};
    scenario.repeat = {scenario.operate};
    scenario.field = "signal";
    scenario.script = readStatus();
    scenario.wireBefore = wireOf(readStatus());
    scenario.expect = [](std::size_t, Fault fault) { return expectStatus(fault); };
    scenario.well.shown = s_signal;
    scenario.wireAfter = [](const QString &) { return wireOf(readStatus()); };
    scenario.shownAfter = s_signal;
    return scenario;
}

// ---- the cells

Cell cellOf(const std::shared_ptr<const Scenario> &scenario, const SettingsExpectation &expected,
            const QString &title, const QString &fault)
{
    Operations operations = scenario->prepare;
    operations += QStringList{"control", fault};
    operations += scenario->operate;
    operations += QStringList{"poll"};
    operations += QStringList{"control", "clear-faults g"};
    operations += QStringList{"control", "state g"};
    operations += QStringList{"control", expected.gone ? "replug g" : "list"};
    operations += QStringList{"scan"};
    operations += QStringList{"select", "S1"};
    operations += scenario->repeat;
    operations += QStringList{"control", "state g"};
    Cell cell;
    cell.title = title;
    cell.scene = sceneOf(velk3, s_scene);
    for (const QStringList &words : operations) {
        cell.operations += words;
    }
    cell.check = [scenario, expected](const SimRun &run) {
        return checkScenario(run, *scenario, expected);
    };
    return cell;
}

Operation operationOf(const Scenario &one)
{
    const auto scenario = std::make_shared<Scenario>(one);
    Operation operation{"settings", scenario->title, {}};
    SettingsExpectation well = scenario->well;
    well.wire = wireOf(scenario->script);
    well.signalLines = signalsOf(scenario->script, 0, {});
    operation.cells.push_back(cellOf(scenario, well, "no fault", "clear-faults g"));
    addStruckCells(operation, scenario->script,
                   [&](std::size_t at, Fault fault, const QString &title) {
                       return cellOf(scenario, expectStruck(*scenario, at, fault), title,
                                     faultCommand(at, scenario->script.steps[at], fault));
                   });
    return operation;
}

} // namespace

std::vector<Operation> settingsOperations()
{
    return {operationOf(readFlagsScenario()), operationOf(writeFlagsScenario()),
            operationOf(readModesScenario()), operationOf(writeModesScenario()),
            operationOf(statusScenario())};
}
