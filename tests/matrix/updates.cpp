// Updates and repairs, cut at every transfer in every way; then power is cycled, and the same
// program brings the device back to memories that equal the package.

#include "expectation.h"
#include "matrix.h"
#include "wiremodel.h"

#include <QDir>

#include <memory>

namespace {

constexpr int ImageSize = 4100; // two blocks

// The operations of a story, from 1.
enum {
    SetFault = 1,
    Struck,
    Selected,
    Cleared,
    StateThen,
    PowerCycle,
    Rescan,
    Rescue,
    StateAfter,
    Cycle,
    End
};

enum class Mode { Normal, Soft, Hard };

struct Plan
{
    const ProductFacts *product;
    Mode mode;
    Images images; // of the package that is cut
    QString package;
    Images cure; // of the one that brings the device back
    QString remedy;
    int busyPolls;
    Script script;
    QByteArray scene;

    bool repairing() const { return mode != Mode::Normal; }
};

// ---- the rows of the list

QString nameOf(const ProductFacts &product)
{
    const QByteArray simulated = product.simulated;
    return simulated == "velk3"   ? "VELK3 Grabber"
           : simulated == "sorn3" ? "SORN3 Grabber"
                                  : "VELK3 4K Grabber";
}

QString rowOf(const ProductFacts &product, Mode mode, const QString &version)
{
    switch (mode) {
    case Mode::Normal:
        return nameOf(product) + QString(" (S1, %1) [%2]").arg(version, product.runningId);
    case Mode::Soft:
        return nameOf(product) + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(product.softId);
    default:
        return "WestBridge (S1, ) [04b4:00f3] (Hard Repair Mode)";
    }
}

QString sandboxRow(const ProductFacts &product)
{
    return nameOf(product) + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(product.sandboxId);
}

// ---- what becomes of the device

// Microcode of these tests calls itself 7.8.9; a device whose microcode nobody has written, 1.0.0.
QString versionAt(const Plan &plan, Stage stage)
{
    return !plan.images.fx3.isEmpty() && stage >= Stage::Fx3Done ? "7.8.9" : "1.0.0";
}

// A device whose image was not completed falls back to its second boot loader; one that had none
// stays in the boot loader that it was in.
Mode modeAfterPowerCycle(const Plan &plan, const Expectation &expected)
{
    if (expected.stage == Stage::Fx3Open || expected.stage == Stage::FpgaOpen) {
        return Mode::Soft;
    }
    const bool whole = expected.stage == Stage::Done && expected.sandboxRuns;
    return whole ? Mode::Normal : plan.mode;
}

QStringList rowsAfterTheOperation(const Plan &plan, const Expectation &expected)
{
    if (expected.gone) {
        return {};
    }
    if (expected.sandboxRuns) {
        return {sandboxRow(*plan.product)};
    }
    return {rowOf(*plan.product, plan.mode, versionAt(plan, expected.stage))};
}

QStringList probeWire(Mode mode, int firstPoll = 1)
{
    return healthyProbe(mode == Mode::Normal, firstPoll);
}

// A device that runs is updated, and one that does not is repaired.
Expectation expectRescue(const Plan &plan, const Expectation &expected)
{
    const bool repairing = modeAfterPowerCycle(plan, expected) != Mode::Normal;
    Script cure;
    if (repairing) {
        cure.repair(*plan.product, plan.cure, plan.busyPolls);
    } else {
        cure.regularUpdate(*plan.product, plan.cure, 2, plan.busyPolls);
    }
    return expectUpdate(cure, repairing);
}

QStringList storyWire(const Plan &plan, const Expectation &expected)
{
    QStringList wire = probeWire(plan.mode) + expected.wire;
    if (!expected.gone) {
        // The list is read again after every update.
        wire += probeWire(expected.sandboxRuns ? Mode::Soft : plan.mode, expected.firstPoll);
    }
    const Mode mode = modeAfterPowerCycle(plan, expected);
    wire += probeWire(mode);
    const Expectation rescue = expectRescue(plan, expected);
    wire += rescue.wire;
    wire += probeWire(rescue.sandboxRuns ? Mode::Soft : mode);
    return wire + probeWire(Mode::Normal);
}

// ---- what is checked

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

// Never a word of success that is not true.
QString checkSuccess(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    if (seenAfter(run, Struck)["bar"].toString() != "Update Completed") {
        return {};
    }
    const QString difference = compareLists("'Update Completed' is shown, but the device's memory",
                                            memoriesOf(stateAt(run, StateThen), plan.images),
                                            memoriesHolding(plan.images));
    if (expected.differs && difference.isEmpty()) {
        return QString("the device holds the package, although ") + expected.differs;
    }
    return expected.differs ? QString() : difference;
}

QString checkRescue(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    return firstOf({
        [&] {
            return run.eventsOf(Rescue, "selected").value(0)["unlocked"].toBool()
                       ? QString()
                       : "the tabs stay locked";
        },
        [&] {
            return compareLists("the rescue's boxes", listIn(seenAfter(run, Rescue), "boxes"), {});
        },
        [&] {
            return compareLists("the rescue's signals", updateSignals(run, Rescue),
                                expectRescue(plan, expected).signalLines);
        },
        [&] {
            return compareTexts("the bar after the rescue",
                                seenAfter(run, Rescue)["bar"].toString(), "Update Completed");
        },
        [&] {
            return compareTexts("the warning after the rescue",
                                seenAfter(run, Rescue)["warning"].toString(), "");
        },
        [&] {
            return compareLists("the rescued device",
                                memoriesOf(stateAt(run, StateAfter), plan.cure),
                                memoriesHolding(plan.cure));
        },
    });
}

QString checkStory(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    const ProductFacts &product = *plan.product;
    const Mode mode = modeAfterPowerCycle(plan, expected);
    const QString cured = plan.cure.fx3.isEmpty() ? "1.0.0" : "7.8.9";
    return firstOf({
        [&] { return compareLists("signals", updateSignals(run, Struck), expected.signalLines); },
        [&] {
            return checkDialog(seenAfter(run, Struck), expected.errors,
                               rowsAfterTheOperation(plan, expected));
        },
        [&] { return checkSuccess(run, plan, expected); },
        [&] {
            return compareLists("rows after a power cycle", listIn(seenAfter(run, Rescan), "rows"),
                                {rowOf(product, mode, versionAt(plan, expected.stage))});
        },
        [&] { return checkRescue(run, plan, expected); },
        [&] {
            return compareLists("rows in the end", listIn(seenAfter(run, End), "rows"),
                                {rowOf(product, Mode::Normal, cured)});
        },
        [&] { return compareLists("the wire", wireOf(run), storyWire(plan, expected)); },
        [&] { return run.transcript().unbalanced("g"); },
        [&] { return checkPatience(run); },
        [&] { return filesLeftOpen(run); },
        [&] { return checkBoxCount(run, expected.errors.size()); },
    });
}

// ---- the cells

Cell cellOf(const std::shared_ptr<const Plan> &plan, const Expectation &expected,
            const QString &title, const QString &fault)
{
    Cell cell;
    cell.title = title;
    cell.scene = plan->scene;
    // A row that is selected unlocks the tabs, or the program does not go on.
    cell.operations = QStringList{"control", fault, "update", "S1", plan->package};
    cell.operations += expected.gone ? QStringList{"control", "list"} : QStringList{"select", "S1"};
    cell.operations +=
        QStringList{"control",    "clear-faults g", "control",
                    "state g",    "control",        expected.gone ? "replug g" : "power-cycle g",
                    "scan",       "update",         "S1",
                    plan->remedy, "control",        "state g",
                    "control",    "power-cycle g",  "scan"};
    cell.check = [plan, expected](const SimRun &run) { return checkStory(run, *plan, expected); };
    return cell;
}

Operation operationOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    const bool repairing = plan->repairing();
    Operation operation{repairing ? "repair" : "update", name, {}};
    operation.cells.push_back(
        cellOf(plan, expectUpdate(plan->script, repairing), "no fault", "clear-faults g"));
    addStruckCells(operation, plan->script,
                   [&](std::size_t at, Fault fault, const QString &title, const QString &command) {
                       return cellOf(plan, expectUpdate(plan->script, repairing, at, fault), title,
                                     command);
                   });
    return operation;
}

QString save(const QString &folder, const QString &name, const QByteArray &package)
{
    const QString path = QDir(folder).filePath(name);
    writeFile(path, package);
    return path;
}

// Two sections; the first goes out in two pieces.
Images imagesOf(const ProductFacts &product)
{
    Images images = makeImages(product, ImageSize, ImageSize);
    images.sections = {{0x40008000, patternBytes(4160, 31)}, {0x40013000, patternBytes(8, 32)}};
    images.entry = 0x40008000;
    return images;
}

std::shared_ptr<Plan> makePlan(const ProductFacts &product, Mode mode, int busyPolls)
{
    auto plan = std::make_shared<Plan>();
    plan->product = &product;
    plan->mode = mode;
    plan->busyPolls = busyPolls;
    plan->images = plan->cure = imagesOf(product);
    const char *word = mode == Mode::Soft ? "soft" : mode == Mode::Hard ? "hard" : "normal";
    plan->scene = sceneOf(product, QByteArray("return after 300\nbusy-polls ") +
                                       QByteArray::number(busyPolls) + "\nmode " + word);
    return plan;
}

// A device that says busy once after each block.
Operation updateOf(const QString &folder, const QString &name, const ProductFacts &product)
{
    auto plan = makePlan(product, Mode::Normal, 1);
    plan->package = plan->remedy = save(folder, name, makePackage(product, plan->images));
    plan->script.regularUpdate(product, plan->images, 2, plan->busyPolls);
    return operationOf("update " + name, plan);
}

Operation edidOnlyUpdate(const QString &folder)
{
    auto plan = makePlan(velk3, Mode::Normal, 1);
    plan->images = plan->cure = Images();
    plan->images.edid = plan->cure.edid = edidBlocks(2);
    plan->package = plan->remedy = save(
        folder, "edid-only",
        zipArchive({{"product.info", "velk3\n"}, {velk3.edidName, edidText(plan->images.edid)}}));
    plan->script.regularUpdate(velk3, plan->images, 2, plan->busyPolls);
    return operationOf("update edid-only", plan);
}

// A device that is always ready: a repair's requests are many.
Operation repairOf(const QString &folder, const QString &name, const ProductFacts &product,
                   Mode mode)
{
    auto plan = makePlan(product, mode, 0);
    plan->package = plan->remedy = save(folder, name, makePackage(product, plan->images));
    plan->script.repair(product, plan->images, plan->busyPolls);
    return operationOf((mode == Mode::Soft ? "soft repair " : "hard repair ") + name, plan);
}

// ---- successes that are none, without any fault

// The EDID alone makes a valid package, but there is nothing in it with which a boot loader could
// be helped: nothing is done, and that is called a success.
Operation repairWithoutSandbox(const QString &folder)
{
    auto plan = makePlan(velk3, Mode::Soft, 0);
    plan->images = Images();
    plan->images.edid = edidBlocks(2);
    plan->package = save(
        folder, "no-sandbox",
        zipArchive({{"product.info", "velk3\n"}, {velk3.edidName, edidText(plan->images.edid)}}));
    plan->remedy = save(folder, "velk3", makePackage(velk3, plan->cure));
    Expectation expected = expectUpdate(plan->script, true);
    expected.stage = Stage::Nothing;
    expected.differs = "the package has no sandbox to repair with";
    return {"repair",
            "soft repair without a sandbox",
            {cellOf(plan, expected, "no fault", "clear-faults g")}};
}

// The length of a transfer has 16 bits, so that 65536 bytes are sent as none.
Operation longestEdid(const QString &folder)
{
    auto plan = makePlan(velk3, Mode::Normal, 0);
    plan->images = Images();
    plan->images.edid = edidBlocks(512);
    plan->package = save(
        folder, "edid-65536",
        zipArchive({{"product.info", "velk3\n"}, {velk3.edidName, edidText(plan->images.edid)}}));
    plan->remedy = save(folder, "velk3", makePackage(velk3, plan->cure));
    plan->script.regularUpdate(velk3, plan->images, 2, plan->busyPolls);
    Expectation expected = expectUpdate(plan->script, false);
    expected.differs = "65536 bytes of EDID are sent as none";
    return {"update",
            "update with 65536 bytes of EDID",
            {cellOf(plan, expected, "no fault", "clear-faults g")}};
}

} // namespace

std::vector<Operation> updateOperations(const QString &packages)
{
    std::vector<Operation> all;
    all.push_back(updateOf(packages, "velk3", velk3));
    all.push_back(updateOf(packages, "sorn3", sorn3));
    all.push_back(updateOf(packages, "velk3_4k", velk3_4k));
    all.push_back(updateOf(packages, "legacy", legacyVelk3));
    all.push_back(edidOnlyUpdate(packages));
    all.push_back(longestEdid(packages));
    for (const Mode mode : {Mode::Soft, Mode::Hard}) {
        all.push_back(repairOf(packages, "velk3", velk3, mode));
        all.push_back(repairOf(packages, "sorn3", sorn3, mode));
        all.push_back(repairOf(packages, "velk3_4k", velk3_4k, mode));
    }
    all.push_back(repairWithoutSandbox(packages));
    return all;
}
