// A scan of each kind of device, with each of its transfers struck; then the same program scans the
// device again when it is well.

#include "expectation.h"
#include "matrix.h"
#include "wiremodel.h"

namespace {

// The operations of a scenario, from 1. The dialog's own first scan comes before them.
enum { SetFault = 1, Struck, Selected, Cleared, Again, Healthy };

constexpr char s_soft[] = " (Soft Repair Mode)";

struct Kind
{
    const ProductFacts *product;
    const char *mode; // in the words of a scene
    const char *id;
    const char *coldId;   // when its power has been cut: a sandbox lives in RAM
    const char *modeText; // "" when it runs
};

std::vector<Kind> allKinds()
{
    std::vector<Kind> kinds;
    for (const ProductFacts *product : allProducts()) {
        kinds.push_back({product, "normal", product->runningId, product->runningId, ""});
        kinds.push_back({product, "soft", product->softId, product->softId, s_soft});
    }
    kinds.push_back({&velk3, "soft-f", velk3.sandboxId, velk3.sandboxId, s_soft});
    kinds.push_back({&sorn3, "sandbox", sorn3.sandboxId, sorn3.softId, s_soft});
    kinds.push_back({&velk3_4k, "hard", "04b4:00f3", "04b4:00f3", " (Hard Repair Mode)"});
    return kinds;
}

QString nameOf(const Kind &kind)
{
    return QByteArray(kind.mode) == "hard" ? "WestBridge" : kind.product->name;
}

bool runs(const Kind &kind)
{
    return kind.modeText[0] == '\0';
}

// What a row shows of a device.
struct Texts
{
    QString product;
    QString serial;
    QString version;
};

Texts textsOf(const Kind &kind)
{
    return {nameOf(kind), "S1", runs(kind) ? "1.0.0" : ""};
}

QString rowOf(const Kind &kind, const Texts &texts, bool cold = false)
{
    return QString("%1 (%2, %3) [%4]%5")
        .arg(texts.product, texts.serial, texts.version, cold ? kind.coldId : kind.id,
             kind.modeText);
}

// A string descriptor: its length, its type, UTF-16.
QByteArray descriptorOf(const QString &text)
{
    QByteArray bytes;
    bytes += char(2 + 2 * text.size());
    bytes += '\x03';
    for (const QChar character : text) {
        bytes += char(character.unicode() & 0xFF);
        bytes += char(character.unicode() >> 8);
    }
    return bytes;
}

// ---- the probe of such a device

void addString(Script &script, Role role, int index, const QString &text)
{
    script.addString(Role::LanguageString, 0, QByteArray("\x04\x03\x09\x04", 4));
    script.steps.back().wrong = QByteArray("\x04\x02\x09\x04", 4); // another kind of descriptor
    script.addString(role, index, descriptorOf(text));
    script.steps.back().wrong = descriptorOf("XYZ");
}

Script probeOf(const Kind &kind)
{
    const Texts texts = textsOf(kind);
    Script script;
    addString(script, Role::ProductString, 2, texts.product);
    addString(script, Role::SerialString, 4, texts.serial);
    if (runs(kind)) {
        addString(script, Role::VersionString, 3, texts.version);
        script.add(Role::Ping, {Direction::In, 0xC8, 0, 0, 1}, QByteArray(1, 1));
        script.steps.back().handles = QStringList{"claim 0 ok"};
    }
    return script;
}

QStringList probeWire(const Kind &kind)
{
    QStringList wire{"open"};
    for (const Step &step : probeOf(kind).steps) {
        wire += step.handles;
        wire += step.line;
    }
    return wire + (runs(kind) ? WireModel().giveBack().lines() : QStringList{"close"});
}

// ---- with a fault

struct ScanExpectation
{
    QStringList rows;
    QStringList wire; // of the struck scan
    bool gone = false;
};

// Which of the strings a transfer is for: the language is asked for before each of them.
Role stringOf(const Script &script, std::size_t at)
{
    return script.steps[at].role == Role::LanguageString ? script.steps[at + 1].role
                                                         : script.steps[at].role;
}

// What a row shows instead of a string that could not be read.
void forget(Texts &texts, Role role)
{
    (role == Role::ProductString  ? texts.product
     : role == Role::SerialString ? texts.serial
                                  : texts.version) = role == Role::ProductString  ? ""
                                                     : role == Role::SerialString ? "FFFFFFFF"
                                                                                  : "0.0.0";
}

// What was sent up to the transfer, and the transfer.
QStringList wireUpTo(const Script &script, std::size_t at, Fault fault)
{
    QStringList wire{"open"};
    for (std::size_t i = 0; i < at; ++i) {
        wire += script.steps[i].handles;
        wire += script.steps[i].line;
    }
    const Step &step = script.steps[at];
    wire += step.handles;
    if (step.role == Role::Ping) {
        return wire + QStringList{struckLine(step, fault)};
    }
    return wire + QStringList{step.line + factsOf(fault).wire};
}

// A string that cannot be read has a default; the rest of the probe goes on.
ScanExpectation expectLostString(const Kind &kind, const Script &script, std::size_t at,
                                 Fault fault)
{
    ScanExpectation expected;
    expected.wire = wireUpTo(script, at, fault);
    // Without the language, the string itself is not asked for.
    std::size_t next = script.steps[at].role == Role::LanguageString ? at + 2 : at + 1;
    Texts texts = textsOf(kind);
    forget(texts, stringOf(script, at));
    for (; next < script.steps.size(); ++next) {
        expected.wire += script.steps[next].handles;
        expected.wire += script.steps[next].line;
    }
    expected.wire += runs(kind) ? WireModel().giveBack().lines() : QStringList{"close"};
    expected.rows = QStringList{rowOf(kind, texts)};
    return expected;
}

// A device that leaves has no more strings. A boot loader is shown all the same, since nothing else
// is asked of it; a running device's interface cannot be claimed any more.
ScanExpectation expectDeparture(const Kind &kind, const Script &script, std::size_t at)
{
    ScanExpectation expected;
    expected.gone = true;
    expected.wire = wireUpTo(script, at, Fault::Disconnect);
    if (script.steps[at].role == Role::Ping) {
        expected.wire += "release 0 no-device";
    } else if (!runs(kind)) {
        Texts texts = textsOf(kind);
        for (std::size_t i = at; i < script.steps.size(); ++i) {
            forget(texts, stringOf(script, i));
        }
        texts.version = "";
        expected.rows = QStringList{rowOf(kind, texts)};
    }
    expected.wire += "close";
    return expected;
}

// A device that does not answer is left out. When none answers, all are asked once more, and this
// one answers then.
ScanExpectation expectLostPing(const Kind &kind, const Script &script, std::size_t at, Fault fault)
{
    ScanExpectation expected;
    expected.wire = wireUpTo(script, at, fault) + WireModel().giveBack().lines() + probeWire(kind);
    expected.rows = QStringList{rowOf(kind, textsOf(kind))};
    return expected;
}

ScanExpectation expectScan(const Kind &kind, const Script &script, std::size_t at, Fault fault)
{
    const Step &step = script.steps[at];
    if (fault == Fault::Disconnect) {
        return expectDeparture(kind, script, at);
    }
    if (step.role == Role::Ping && isError(fault)) {
        return expectLostPing(kind, script, at, fault);
    }
    if (isError(fault) || fault == Fault::Short || step.role == Role::LanguageString) {
        if (step.role != Role::Ping) {
            return expectLostString(kind, script, at, fault);
        }
    }
    ScanExpectation expected;
    Texts texts = textsOf(kind);
    if (step.role == Role::Ping) {
        // Nobody looks at the byte that a ping brings.
        expected.wire = wireUpTo(script, at, fault) + WireModel().giveBack().lines();
    } else {
        // Another text than usual is a text.
        expected.wire = probeWire(kind);
        (step.role == Role::ProductString  ? texts.product
         : step.role == Role::SerialString ? texts.serial
                                           : texts.version) = "XYZ";
    }
    expected.rows = QStringList{rowOf(kind, texts)};
    return expected;
}

// ---- the cells

QString checkScan(const SimRun &run, const Kind &kind, const ScanExpectation &expected)
{
    const QStringList well{rowOf(kind, textsOf(kind))};
    const auto seen = [&run](int operation, const char *field) {
        return listIn(seenAfter(run, operation), field);
    };
    return firstOf({
        [&] { return compareLists("the first scan's rows", seen(SetFault, "rows"), well); },
        [&] { return compareLists("rows", seen(Struck, "rows"), expected.rows); },
        [&] { return compareLists("boxes", seen(Struck, "boxes"), {}); },
        [&] {
            const int ends = run.eventsOf(Struck, "scanComplete").size();
            return ends == 1 ? QString() : QString("%1 completions").arg(ends);
        },
        [&] {
            return compareLists("the healthy scan's rows", seen(Healthy, "rows"),
                                {rowOf(kind, textsOf(kind), expected.gone)});
        },
        [&] {
            return compareLists("the wire", wireOf(run),
                                probeWire(kind) + expected.wire + probeWire(kind));
        },
        [&] { return run.transcript().unbalanced("g"); },
        [&] { return checkPatience(run); },
        [&] { return filesLeftOpen(run); },
        [&] { return checkBoxCount(run, 0); },
    });
}

// "S1" of "VELK3 Grabber (S1, 1.0.0) [e5c1:3601]"
QString serialIn(const QString &row)
{
    return row.section(" (", 1, 1).section(',', 0, 0);
}

Cell cellOf(const Kind &kind, const ScanExpectation &expected, const QString &title,
            const QString &fault)
{
    Cell cell;
    cell.title = title;
    cell.scene = sceneOf(*kind.product, QByteArray("mode ") + kind.mode);
    // A row that is selected unlocks the tabs, or the program does not go on.
    cell.operations = QStringList{"control", fault, "scan"};
    cell.operations += expected.rows.isEmpty() ? QStringList{"control", "list"}
                                               : QStringList{"select", serialIn(expected.rows[0])};
    cell.operations +=
        QStringList{"control", "clear-faults g", "control", expected.gone ? "replug g" : "list",
                    "scan",    "select",         "S1"};
    cell.check = [kind, expected](const SimRun &run) { return checkScan(run, kind, expected); };
    return cell;
}

Operation scanOf(const Kind &kind)
{
    const Script script = probeOf(kind);
    Operation operation{"scan", QString("scan %1 %2").arg(kind.mode, kind.product->simulated), {}};
    ScanExpectation well;
    well.rows = QStringList{rowOf(kind, textsOf(kind))};
    well.wire = probeWire(kind);
    operation.cells.push_back(cellOf(kind, well, "no fault", "clear-faults g"));
    addStruckCells(operation, script, [&](std::size_t at, Fault fault, const QString &title) {
        return cellOf(kind, expectScan(kind, script, at, fault), title,
                      faultCommand(at, script.steps[at], fault));
    });
    return operation;
}

} // namespace

std::vector<Operation> scanOperations()
{
    std::vector<Operation> all;
    for (const Kind &kind : allKinds()) {
        all.push_back(scanOf(kind));
    }
    return all;
}
