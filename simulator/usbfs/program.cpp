#include "program.h"

#include <glib.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/capability.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr const char *s_preload = "libumockdev-preload.so.0";
constexpr unsigned s_patienceMs = 5000;
constexpr int s_notRunnable = 126;
constexpr int s_notFound = 127;

// In front of what is there already.
void prepend(const char *variable, const std::string &value)
{
    const char *old = std::getenv(variable);
    const std::string joined = old && *old ? value + ":" + old : value;
    setenv(variable, joined.c_str(), 1);
}

void setEnvironment(const Program::Setting &setting)
{
    prepend("LD_PRELOAD", s_preload);
    setenv("UMOCKDEV_DIR", setting.testBedRoot.c_str(), 1);
    setenv("CAPSO_SIM_DIR", setting.outputDirectory.c_str(), 1);
    // A program built with AddressSanitizer would refuse to start behind another preloaded library.
    prepend("ASAN_OPTIONS", "verify_asan_link_order=0");
}

[[noreturn]] void runProgram(const std::vector<std::string> &command,
                             const Program::Setting &setting)
{
    setEnvironment(setting);
    // The preload sleeps for "no time at all" after each ioctl, which the kernel's timer slack
    // makes long.
    prctl(PR_SET_TIMERSLACK, 1);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (setting.giveUpRootAccess) {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    }
    std::signal(SIGINT, SIG_DFL);
    std::vector<char *> arguments;
    for (const std::string &word : command) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    std::fprintf(stderr, "capso-sim: cannot run %s: %s\n", arguments[0], std::strerror(error));
    _exit(error == ENOENT ? s_notFound : s_notRunnable);
}

} // namespace

void Program::start(const std::vector<std::string> &command, const Setting &setting)
{
    pid = fork();
    if (pid < 0) {
        throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    if (pid == 0) {
        runProgram(command, setting);
    }
    g_child_watch_add(pid, &Program::onExit, this);
}

void Program::end()
{
    if (pid <= 0) {
        return;
    }
    kill(pid, SIGTERM);
    escalation.start(s_patienceMs, [this] {
        if (pid > 0) {
            kill(pid, SIGKILL);
        }
    });
}

void Program::onExit(int, int status, void *self)
{
    auto *program = static_cast<Program *>(self);
    program->pid = 0;
    program->escalation.cancel();
    program->onEnd(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

} // namespace sim
