#include "standardfiles.h"

#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int s_afterStandard = STDERR_FILENO + 1;

bool isClosed(int file)
{
    return fcntl(file, F_GETFD) == -1;
}

// Moves the end of a pipe out of the standard files' places.
int moved(int end)
{
    const int result = fcntl(end, F_DUPFD_CLOEXEC, s_afterStandard);
    close(end);
    return result;
}

} // namespace

// A pipe needs no file system, and its ends refuse to be used the wrong way round.
void holdStandardFiles()
{
    std::array<bool, s_afterStandard> closed{};
    bool any = false;
    for (int file = 0; file < s_afterStandard; ++file) {
        closed[std::size_t(file)] = isClosed(file);
        any = any || closed[std::size_t(file)];
    }
    if (!any) {
        return;
    }
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        std::abort(); // nothing is safe without, and nobody could be told
    }
    const int reading = moved(ends[0]);
    const int writing = moved(ends[1]);
    for (int file = 0; file < s_afterStandard; ++file) {
        if (closed[std::size_t(file)]) {
            dup2(file == STDIN_FILENO ? writing : reading, file);
        }
    }
    close(reading);
    close(writing);
}

void divertPrinting(bool /*shown*/)
{
}
