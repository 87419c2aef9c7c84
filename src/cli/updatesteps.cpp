#include "updatesteps.h"

#include "cli.h"
#include "package.h"

#include <algorithm>

namespace {

// Where the images begin: after the checks, or once the sandbox runs.
constexpr int s_checked = 2;
constexpr int s_sandboxRuns = 15;

} // namespace

UpdateSteps::UpdateSteps(const Package &package, quint32 mode)
{
    const bool hasImages = package.missing.isEmpty();
    const int count = (hasImages ? 2 : 0) + (package.edidPresent ? 1 : 0);
    int at = mode == DeviceMode::Normal ? s_checked : s_sandboxRuns;
    const int share = (100 - at) / std::max(count, 1);

    steps.push_back({0, Cli::tr("checking")});
    if (mode != DeviceMode::Normal) {
        steps.push_back({s_checked, Cli::tr("sandbox")});
    }
    if (hasImages) {
        steps.push_back({at, Cli::tr("microcode")});
        steps.push_back({at + share, Cli::tr("bitstream")});
        at += 2 * share;
    }
    if (package.edidPresent) {
        steps.push_back({at, Cli::tr("EDID")});
    }
    steps.push_back({100, Cli::tr("done")});
}

QString UpdateSteps::at(int percent) const
{
    QString name;
    for (const Step &step : steps) {
        if (step.from <= percent) {
            name = step.name;
        }
    }
    return name;
}
