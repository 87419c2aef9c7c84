#include "interrupts.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array<int, 4> s_signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// A handler may do next to nothing: it keeps the signal and wakes the event loop through a pipe.
std::array<int, 2> s_pipe{-1, -1};
volatile std::sig_atomic_t s_last = 0; // the signal that came last, 0: none

void wake()
{
    const int keptError = errno;
    const char byte = 0;
    const ssize_t written = write(s_pipe[1], &byte, sizeof(byte));
    static_cast<void>(written); // a full pipe wakes as well
    errno = keptError;
}

extern "C" void noteSignal(int number)
{
    s_last = number;
    wake();
}

extern "C" void noteStop(int /*number*/)
{
    wake();
}

void handle(int number, void (*handler)(int))
{
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

bool isIgnored(int number)
{
    struct sigaction action = {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

Interrupts::Interrupts()
{
    // A reader of standard output that goes away, or a terminal that objects to being written to
    // from the background, or a limit on the size of the file that the output goes to, must not end
    // or stop an update.
    handle(SIGPIPE, SIG_IGN);
    handle(SIGTTOU, SIG_IGN);
    handle(SIGXFSZ, SIG_IGN);
    if (pipe(s_pipe.data()) != 0) {
        return; // then the signals end the program at once, as they do by default
    }
    for (const int end : s_pipe) {
        fcntl(end, F_SETFL, O_NONBLOCK);
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    notifier = std::make_unique<QSocketNotifier>(s_pipe[0], QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (read(s_pipe[0], &byte, sizeof(byte)) == sizeof(byte)) {
            emit interrupted();
        }
    });
    for (const int number : s_signals) {
        if (!isIgnored(number)) {
            handle(number, noteSignal);
        }
    }
}

// The handlers and their pipe stay for what is left of the process: a signal that comes while the
// modules end must not take the place of the exit status, which tells what became of the devices.
Interrupts::~Interrupts() = default;

bool Interrupts::came() const
{
    return s_last != 0;
}

void Interrupts::safePoint() const
{
    if (s_last != 0) {
        handle(s_last, SIG_DFL);
        raise(s_last);
    }
}

Interrupts::NoStop::NoStop()
{
    if (s_pipe[1] >= 0 && !isIgnored(SIGTSTP)) {
        handle(SIGTSTP, noteStop);
    }
}

Interrupts::NoStop::~NoStop()
{
    if (!isIgnored(SIGTSTP)) {
        handle(SIGTSTP, SIG_DFL);
    }
}
