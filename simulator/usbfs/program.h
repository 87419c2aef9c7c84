#pragma once

#include "timer.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sim {

// The program under test, running with umockdev's preload.
class Program
{
public:
    struct Setting
    {
        std::string testBedRoot;
        std::string outputDirectory;
        bool giveUpRootAccess = false; // so that a node without rights is closed to root too
    };

    // onEnd receives the exit code: the program's own, 128+n when signal n ended it.
    explicit Program(std::function<void(int)> whenEnded) : onEnd(std::move(whenEnded)) {}

    // Starts it. When it cannot be run, it ends with 126 or 127 as a shell says.
    void start(const std::vector<std::string> &command, const Setting &setting);
    // SIGTERM, and SIGKILL if that does not end it within five seconds.
    void end();

private:
    static void onExit(int pid, int status, void *self);

    std::function<void(int)> onEnd;
    pid_t pid = 0;
    Timer escalation;
};

} // namespace sim
