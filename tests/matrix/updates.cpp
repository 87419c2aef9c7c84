// Updates and repairs, cut at every transfer in every way; then power is cycled, and the same
// program brings the device back to memories that equal the package.

#include "expectation.h"
#include "matrix.h"
#include "updateplan.h"
#include "wiremodel.h"

#include <QDir>

#include <memory>

namespace {

constexpr int s_imageSize = 4100; // two blocks

// The operations of a scenario, from 1.
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

// ---- the rows of the list

QString rowOf(const ProductFacts &product, Mode mode, const QString &version)
{
    switch (mode) {
    case Mode::Normal:
        return product.name + QString(" (S1, %1) [%2]").arg(version, product.runningId);
    case Mode::Soft:
        return product.name + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(product.softId);
    default:
        return "WestBridge (S1, ) [04b4:00f3] (Hard Repair Mode)";
    }
}

QString sandboxRow(const ProductFacts &product)
{
    return product.name + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(product.sandboxId);
}

// ---- what becomes of the device

// Microcode of these tests calls itself 7.8.9; a device whose microcode nobody has written, 1.0.0.
QString versionAt(const Plan &plan, Stage stage)
{
    return !plan.images.fx3.isEmpty() && stage >= Stage::Fx3Done ? "7.8.9" : "1.0.0";
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

QStringList scenarioWire(const Plan &plan, const Expectation &expected)
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
                                memoriesOf(stateAt(run, StateAfter), plan.recovery),
                                memoriesHolding(plan.recovery));
        },
    });
}

QString checkScenario(const SimRun &run, const Plan &plan, const Expectation &expected)
{
    const ProductFacts &product = *plan.product;
    const Mode mode = modeAfterPowerCycle(plan, expected);
    const QString recoveredVersion = plan.recovery.fx3.isEmpty() ? "1.0.0" : "7.8.9";
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
                                {rowOf(product, Mode::Normal, recoveredVersion)});
        },
        [&] { return compareLists("the wire", wireOf(run), scenarioWire(plan, expected)); },
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
    cell.operations += QStringList{"control", "clear-faults g",
                                   "control", "state g",
                                   "control", expected.gone ? "replug g" : "power-cycle g",
                                   "scan",    "update",
                                   "S1",      plan->recoveryPackage,
                                   "control", "state g",
                                   "control", "power-cycle g",
                                   "scan"};
    cell.check = [plan, expected](const SimRun &run) {
        return checkScenario(run, *plan, expected);
    };
    cell.throughCli = std::make_shared<Cell>(cliCellOf(plan, expected, title, fault));
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
    Images images = makeImages(product, s_imageSize, s_imageSize);
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
    plan->script = Script(busyPolls);
    plan->images = plan->recovery = imagesOf(product);
    const char *word = mode == Mode::Soft ? "soft" : mode == Mode::Hard ? "hard" : "normal";
    plan->scene = sceneOf(product, QByteArray("return after 300\nbusy-polls ") +
                                       QByteArray::number(busyPolls) + "\nmode " + word);
    return plan;
}

// A device that says busy once after each block.
Operation updateOf(const QString &folder, const QString &name, const ProductFacts &product)
{
    auto plan = makePlan(product, Mode::Normal, 1);
    plan->package = plan->recoveryPackage = save(folder, name, makePackage(product, plan->images));
    plan->script.regularUpdate(product, plan->images, 2);
    return operationOf("update " + name, plan);
}

Operation edidOnlyUpdate(const QString &folder)
{
    auto plan = makePlan(velk3, Mode::Normal, 1);
    plan->images = plan->recovery = Images();
    plan->images.edid = plan->recovery.edid = edidBlocks(2);
    plan->package = plan->recoveryPackage =
        save(folder, "edid-only", makeEdidPackage(velk3, plan->images.edid));
    plan->script.regularUpdate(velk3, plan->images, 2);
    return operationOf("update edid-only", plan);
}

// A device that is always ready: a repair's requests are many.
Operation repairOf(const QString &folder, const QString &name, const ProductFacts &product,
                   Mode mode)
{
    auto plan = makePlan(product, mode, 0);
    plan->package = plan->recoveryPackage = save(folder, name, makePackage(product, plan->images));
    plan->script.repair(product, plan->images);
    return operationOf((mode == Mode::Soft ? "soft repair " : "hard repair ") + name, plan);
}

// ---- successes that are none, without any fault

// A repair that finds no sandbox to load: nothing is done, and that is called a success.
Operation repairWithNothing(const QString &folder, const QString &name, const QByteArray &package,
                            const Images &images, const char *reason, const char *cliRefusal)
{
    auto plan = makePlan(velk3, Mode::Soft, 0);
    plan->cliRefusal = cliRefusal;
    plan->images = images;
    plan->package = save(folder, name, package);
    plan->recoveryPackage = save(folder, "velk3", makePackage(velk3, plan->recovery));
    Expectation expected = expectUpdate(plan->script, true);
    expected.stage = Stage::Nothing;
    expected.differs = reason;
    return {
        "repair", "soft repair " + name, {cellOf(plan, expected, "no fault", "clear-faults g")}};
}

// The EDID alone makes a valid package, in which there is nothing to help a boot loader with.
Operation repairWithoutSandbox(const QString &folder)
{
    Images images;
    images.edid = edidBlocks(2);
    return repairWithNothing(folder, "without a sandbox", makeEdidPackage(velk3, images.edid),
                             images, "the package has no sandbox to repair with",
                             "the package holds an EDID only and repairs no device");
}

Operation repairWithSealedSandbox(const QString &folder)
{
    const Images images = imagesOf(velk3);
    std::vector<PackageEntry> package = packageEntries(velk3, images);
    for (PackageEntry &entry : package) {
        entry.encrypted = entry.name == velk3.sandboxName;
    }
    return repairWithNothing(folder, "with a sandbox that cannot be opened", zipArchive(package),
                             images, "the package's sandbox cannot be opened",
                             "the sandbox cannot be opened: ");
}

// The length of a transfer has 16 bits, and so 65536 bytes are sent as none.
Operation tooLongEdid(const QString &folder, int blocks, const char *reason)
{
    auto plan = makePlan(velk3, Mode::Normal, 0);
    plan->images = Images();
    plan->images.edid = edidBlocks(blocks);
    const QString bytes = QString::number(plan->images.edid.size());
    plan->package = save(folder, "edid-" + bytes, makeEdidPackage(velk3, plan->images.edid));
    plan->recoveryPackage = save(folder, "velk3", makePackage(velk3, plan->recovery));
    plan->script.regularUpdate(velk3, plan->images, 2);
    Expectation expected = expectUpdate(plan->script, false);
    expected.differs = reason;
    return {"update",
            "update with " + bytes + " bytes of EDID",
            {cellOf(plan, expected, "no fault", "clear-faults g")}};
}

} // namespace

std::vector<Operation> updateOperations(const QString &packages)
{
    std::vector<Operation> all;
    for (const ProductFacts *product : allProducts()) {
        all.push_back(updateOf(packages, product->key, *product));
    }
    all.push_back(updateOf(packages, "legacy", legacyVelk3));
    all.push_back(edidOnlyUpdate(packages));
    all.push_back(tooLongEdid(packages, 512, "65536 bytes of EDID are sent as none"));
    all.push_back(tooLongEdid(packages, 513, "65664 bytes of EDID are sent as 128"));
    for (const Mode mode : {Mode::Soft, Mode::Hard}) {
        for (const ProductFacts *product : allProducts()) {
            all.push_back(repairOf(packages, product->key, *product, mode));
        }
    }
    all.push_back(repairWithoutSandbox(packages));
    all.push_back(repairWithSealedSandbox(packages));
    return all;
}
