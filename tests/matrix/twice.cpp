#include "twice.h"

#include "plan.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

namespace {

using Kind = std::pair<int, bool>; // its code, and whether it reads

struct Pair
{
    std::shared_ptr<const Plan> plan;
    std::size_t firstAt;
    Fault first;
    bool atOnce; // no power cycle before the rescue
    std::size_t secondAt;
    Fault second;
    Kind firstRequest;
    Kind secondRequest;
};

Try withPackage(Try one, const Plan &plan, bool atOnce)
{
    one.images = plan.images;
    one.package = plan.package;
    one.atOnce = atOnce;
    return one;
}

Try firstTry(const Plan &plan, std::size_t at, Fault fault, bool atOnce)
{
    return withPackage(struckTry(plan.device, plan.script, at, fault), plan, atOnce);
}

Scenario scenarioOf(const Pair &pair)
{
    const Plan &plan = *pair.plan;
    const auto scriptFor = [&plan](const DeviceModel &device) {
        return scriptOf(device, plan.images, plan.busyPolls);
    };
    const Try first = firstTry(plan, pair.firstAt, pair.first, pair.atOnce);
    const DeviceModel rescued = deviceBeforeNext(plan.device, first);
    const Try second = withPackage(
        struckTry(rescued, scriptFor(rescued), pair.secondAt, pair.second), plan, pair.atOnce);
    const DeviceModel again = deviceBeforeNext(rescued, second);
    const Try last = withPackage(goodTry(again, scriptFor(again)), plan, false);
    return {plan.device, deviceWords(plan.busyPolls), {first, second, last}};
}

Operation operationOf(const QString &title, const std::vector<const Pair *> &pairs)
{
    Operation operation{"twice", title, {}};
    for (const Pair *pair : pairs) {
        const Plan &plan = *pair->plan;
        const DeviceModel rescued =
            deviceBeforeNext(plan.device, firstTry(plan, pair->firstAt, pair->first, pair->atOnce));
        const QString name = QString("%1 %2, %3, %4, %5")
                                 .arg(plan.device.sceneMode(), plan.device.product().key,
                                      cellTitle(plan.script, pair->firstAt, pair->first),
                                      pair->atOnce ? "at once" : "then",
                                      cellTitle(scriptOf(rescued, plan.images, plan.busyPolls),
                                                pair->secondAt, pair->second));
        operation.cells.push_back(cellOf([pair] { return scenarioOf(*pair); }, name));
        operation.cells.back().request = pair->secondRequest.first;
        operation.cells.back().in = pair->secondRequest.second;
        operation.cells.back().fault = pair->second;
    }
    return operation;
}

// Whether what follows can be foretold: RAM keeps what was written to it until power is cycled, so
// that a piece of which half arrives may be whole all the same.
bool isForetold(const Step &second, Fault fault, bool powerCycled)
{
    return powerCycled || second.role != Role::PieceWrite || fault != Fault::Short;
}

} // namespace

struct TwiceMatrix::Content
{
    // All rescues of a first try that has failed.
    void addRescues(const std::shared_ptr<const Plan> &plan, std::size_t at, Fault fault,
                    bool atOnce)
    {
        const Try first = firstTry(*plan, at, fault, atOnce);
        const bool away = first.expected.gone || first.expected.left;
        if (first.expected.errors.isEmpty() || (atOnce && away)) {
            return;
        }
        const bool powerCycled = !atOnce && !first.expected.left;
        const Step &begun = plan->script.steps[at];
        const DeviceModel rescued = deviceBeforeNext(plan->device, first);
        const Script &script = rescued.runs() ? updateOf(plan) : repairOf(plan);
        for (std::size_t i = 0; i < script.steps.size(); ++i) {
            const Step &step = script.steps[i];
            for (const Fault second : s_faults) {
                if (applies(step, second) && fails(script, rescued.runs(), i, second) &&
                    isForetold(step, second, powerCycled)) {
                    pairs.push_back({plan,
                                     at,
                                     fault,
                                     atOnce,
                                     i,
                                     second,
                                     {begun.request.code, begun.in},
                                     {step.request.code, step.in}});
                }
            }
        }
    }

    void add(const std::shared_ptr<const Plan> &plan)
    {
        for (std::size_t at = 0; at < plan->script.steps.size(); ++at) {
            for (const Fault fault : s_faults) {
                if (applies(plan->script.steps[at], fault)) {
                    addRescues(plan, at, fault, false);
                    addRescues(plan, at, fault, true);
                }
            }
        }
    }

    // The scripts are the same for all devices of a plan.
    const Script &updateOf(const std::shared_ptr<const Plan> &plan)
    {
        return scriptFor(plan, Mode::Normal);
    }
    const Script &repairOf(const std::shared_ptr<const Plan> &plan)
    {
        return scriptFor(plan, Mode::Soft);
    }
    const Script &scriptFor(const std::shared_ptr<const Plan> &plan, Mode mode)
    {
        const auto made = scripts.find({plan.get(), mode});
        if (made != scripts.end()) {
            return made->second;
        }
        const DeviceModel device(plan->device.product(), mode);
        return scripts[{plan.get(), mode}] = scriptOf(device, plan->images, plan->busyPolls);
    }

    // Whether that fault fails the try.
    bool fails(const Script &script, bool runs, std::size_t at, Fault fault)
    {
        const auto key = std::make_tuple(&script, at, fault);
        const auto known = failures.find(key);
        if (known != failures.end()) {
            return known->second;
        }
        return failures[key] = !expectUpdate(script, !runs, at, fault).errors.isEmpty();
    }

    std::vector<Pair> pairs;
    std::map<std::pair<const Plan *, Mode>, Script> scripts;
    std::map<std::tuple<const Script *, std::size_t, Fault>, bool> failures;
};

TwiceMatrix::TwiceMatrix(const QString &packages) : content(std::make_unique<Content>())
{
    content->add(wholePlan(packages, velk3, Mode::Normal, "velk3"));
    content->add(wholePlan(packages, velk3, Mode::Soft, "velk3"));
    content->add(wholePlan(packages, velk3_4k, Mode::Hard, "velk3_4k"));
}

TwiceMatrix::~TwiceMatrix() = default;

int TwiceMatrix::size() const
{
    return int(content->pairs.size());
}

int TwiceMatrix::requestPairs() const
{
    std::map<std::pair<Kind, Kind>, int> kinds;
    for (const Pair &pair : content->pairs) {
        kinds[{pair.firstRequest, pair.secondRequest}] += 1;
    }
    return int(kinds.size());
}

Operation TwiceMatrix::sample(unsigned seed, int least) const
{
    std::map<std::pair<Kind, Kind>, std::vector<const Pair *>> kinds;
    for (const Pair &pair : content->pairs) {
        kinds[{pair.firstRequest, pair.secondRequest}].push_back(&pair);
    }
    // The engine's numbers are the same everywhere; a distribution's are not.
    std::mt19937 random(seed);
    std::vector<const Pair *> chosen;
    for (const auto &[kind, pairs] : kinds) {
        chosen.push_back(pairs[random() % pairs.size()]);
    }
    while (int(chosen.size()) < least) {
        const Pair *pair = &content->pairs[random() % content->pairs.size()];
        if (std::find(chosen.begin(), chosen.end(), pair) == chosen.end()) {
            chosen.push_back(pair);
        }
    }
    return operationOf("twice", chosen);
}

Operation TwiceMatrix::part(int from, int to) const
{
    std::vector<const Pair *> chosen;
    for (int i = from; i < to; ++i) {
        chosen.push_back(&content->pairs[std::size_t(i)]);
    }
    return operationOf("twice", chosen);
}
