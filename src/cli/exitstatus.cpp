#include "exitstatus.h"

#include <algorithm>

ExitStatus combined(const std::vector<ExitStatus> &statuses)
{
    if (statuses.empty()) {
        return ExitStatus::Done;
    }
    const ExitStatus first = statuses.front();
    const auto isFirst = [first](ExitStatus status) { return status == first; };
    if (std::all_of(statuses.begin(), statuses.end(), isFirst)) {
        return first;
    }
    const auto isDone = [](ExitStatus status) { return status == ExitStatus::Done; };
    return std::any_of(statuses.begin(), statuses.end(), isDone) ? ExitStatus::SomeFailed
                                                                 : ExitStatus::Failed;
}
