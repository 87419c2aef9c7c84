#include "plan.h"

#include <QDir>

namespace {

constexpr int s_imageSize = 4100; // two blocks

// Two sections; the first goes out in two pieces.
Images imagesOf(const ProductFacts &product)
{
    Images images = makeImages(product, s_imageSize, s_imageSize);
    images.sections = {{0x40008000, patternBytes(4160, 31)}, {0x40013000, patternBytes(8, 32)}};
    images.entry = 0x40008000;
    return images;
}

} // namespace

std::shared_ptr<Plan> makePlan(const ProductFacts &product, Mode mode, int busyPolls)
{
    auto plan = std::make_shared<Plan>(DeviceModel(product, mode));
    plan->busyPolls = busyPolls;
    plan->images = plan->recovery = imagesOf(product);
    return plan;
}

std::shared_ptr<Plan> wholePlan(const QString &folder, const ProductFacts &product, Mode mode,
                                const QString &name)
{
    auto plan = makePlan(product, mode, mode == Mode::Normal ? 1 : 0);
    plan->package = plan->recoveryPackage =
        savePackage(folder, name, makePackage(product, plan->images));
    plan->script = scriptOf(plan->device, plan->images, plan->busyPolls);
    return plan;
}

QString savePackage(const QString &folder, const QString &name, const QByteArray &package)
{
    const QString path = QDir(folder).filePath(name);
    writeFile(path, package);
    return path;
}

Scenario scenarioOf(const Plan &plan, Try first)
{
    first.images = plan.images;
    first.package = plan.package;
    const DeviceModel then = deviceBeforeNext(plan.device, first);
    Try rescue = goodTry(then, scriptOf(then, plan.recovery, plan.busyPolls));
    rescue.images = plan.recovery;
    rescue.package = plan.recoveryPackage;
    return {plan.device, deviceWords(plan.busyPolls), {first, rescue}};
}
