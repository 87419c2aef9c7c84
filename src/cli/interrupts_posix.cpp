#include "interrupts.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::array<int, 4> s_signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// A handler may do next to nothing: it keeps the signal and wakes the event loop through a pipe.
std::array<int, 2> s_pipe{-1, -1};
volatile std::sig_atomic_t s_last = 0; // the signal that came last, 0: none
volatile std::sig_atomic_t s_count = 0;
volatile std::sig_atomic_t s_stopWanted = 0; // Ctrl+Z came, and is to have its way later

// How many reasons there are to keep the signals. Main thread.
int s_reasons = 0;

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
    s_count = s_count + 1;
    wake();
}

// Of an update.
extern "C" void noteStop(int /*number*/)
{
    s_count = s_count + 1;
    wake();
}

// Of anything shorter.
extern "C" void delayStop(int /*number*/)
{
    s_stopWanted = 1;
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
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// The system's own way to end the program reaches it where a handler does not, as in a read from a
// share that has gone.
void handleAll(void (*handler)(int))
{
    for (const int number : s_signals) {
        if (!isIgnored(number)) {
            handle(number, handler);
        }
    }
}

// The program goes on here once somebody continues it.
void stopIfWanted()
{
    if (isIgnored(SIGTSTP)) {
        return;
    }
    handle(SIGTSTP, SIG_DFL);
    if (s_stopWanted != 0) {
        s_stopWanted = 0;
        raise(SIGTSTP);
    }
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
        throw std::system_error(errno, std::generic_category(), "no pipe for the signals");
    }
    for (const int end : s_pipe) {
        fcntl(end, F_SETFL, O_NONBLOCK);
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    auto *notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (read(s_pipe[0], &byte, sizeof(byte)) == sizeof(byte)) {
            emit interrupted();
        }
    });
}

// The pipe stays for what is left of the process: a signal that comes while the modules end must
// not take the place of the exit status, which tells what became of the devices.
Interrupts::~Interrupts()
{
    keep();
}

int Interrupts::count()
{
    return s_count;
}

void Interrupts::keep()
{
    if (s_reasons++ == 0) {
        handleAll(noteSignal);
    }
}

Interrupts::Busy::Busy()
{
    keep();
    if (!isIgnored(SIGTSTP)) {
        handle(SIGTSTP, delayStop);
    }
}

Interrupts::Busy::~Busy()
{
    stopIfWanted();
    if (--s_reasons > 0) {
        return;
    }
    handleAll(SIG_DFL);
    if (s_last != 0) {
        raise(s_last);
    }
}

Interrupts::NoStop::NoStop()
{
    if (!isIgnored(SIGTSTP)) {
        handle(SIGTSTP, noteStop);
    }
}

Interrupts::NoStop::~NoStop()
{
    if (!isIgnored(SIGTSTP)) {
        handle(SIGTSTP, SIG_DFL);
    }
}
