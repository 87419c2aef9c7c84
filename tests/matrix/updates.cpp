// Updates and repairs, cut at every transfer in every way; then power is cycled, and the same
// program brings the device back to memories that equal the package.

#include "plan.h"

#include <memory>

namespace {

Cell planCell(const std::shared_ptr<const Plan> &plan, const Try &first, const QString &title)
{
    Cell cell = cellOf([plan, first] { return scenarioOf(*plan, first); }, title);
    cell.throughCli = std::make_shared<Cell>(cliCellOf(plan, first, title));
    return cell;
}

Operation operationOf(const QString &name, const std::shared_ptr<const Plan> &plan)
{
    Operation operation{plan->device.runs() ? "update" : "repair", name, {}};
    operation.cells.push_back(planCell(plan, goodTry(plan->device, plan->script), "no fault"));
    addStruckCells(operation, plan->script, [&](std::size_t at, Fault fault, const QString &title) {
        return planCell(plan, struckTry(plan->device, plan->script, at, fault), title);
    });
    return operation;
}

Operation updateOf(const QString &folder, const QString &name, const ProductFacts &product)
{
    return operationOf("update " + name, wholePlan(folder, product, Mode::Normal, name));
}

Operation edidOnlyUpdate(const QString &folder)
{
    auto plan = makePlan(velk3, Mode::Normal, 1);
    plan->images = plan->recovery = Images();
    plan->images.edid = plan->recovery.edid = edidBlocks(2);
    plan->package = plan->recoveryPackage =
        savePackage(folder, "edid-only", makeEdidPackage(velk3, plan->images.edid));
    plan->script = scriptOf(plan->device, plan->images, plan->busyPolls);
    return operationOf("update edid-only", plan);
}

Operation repairOf(const QString &folder, const QString &name, const ProductFacts &product,
                   Mode mode)
{
    return operationOf((mode == Mode::Soft ? "soft repair " : "hard repair ") + name,
                       wholePlan(folder, product, mode, name));
}

// ---- successes that are none, without any fault

// A repair that finds no sandbox to load: nothing is done, and that is called a success.
Operation repairWithNothing(const QString &folder, const QString &name, const QByteArray &package,
                            const Images &images, const char *reason, const char *cliRefusal)
{
    auto plan = makePlan(velk3, Mode::Soft, 0);
    plan->cliRefusal = cliRefusal;
    plan->images = images;
    plan->package = savePackage(folder, name, package);
    plan->recoveryPackage = savePackage(folder, "velk3", makePackage(velk3, plan->recovery));
    Try one = goodTry(plan->device, plan->script);
    one.expected.stage = Stage::Nothing;
    one.expected.differs = reason;
    return {"repair", "soft repair " + name, {planCell(plan, one, "no fault")}};
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
    const Images images = makePlan(velk3, Mode::Soft, 0)->images;
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
    plan->package = savePackage(folder, "edid-" + bytes, makeEdidPackage(velk3, plan->images.edid));
    plan->recoveryPackage = savePackage(folder, "velk3", makePackage(velk3, plan->recovery));
    plan->script = scriptOf(plan->device, plan->images, plan->busyPolls);
    Try one = goodTry(plan->device, plan->script);
    one.expected.differs = reason;
    return {"update", "update with " + bytes + " bytes of EDID", {planCell(plan, one, "no fault")}};
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
