#include "standardstreams.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <system_error>
#include <thread>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// Waits until the file takes more. One that others have made non-blocking is as slow as its reader.
void waitForRoom(int file)
{
    pollfd room{file, POLLOUT, 0};
    poll(&room, 1, -1);
}

// While one lives, no signal is delivered to the thread.
class NoSignals
{
public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    NoSignals(const NoSignals &) = delete;
    NoSignals &operator=(const NoSignals &) = delete;

private:
    sigset_t before;
};

} // namespace

int writeAll(int file, const QByteArray &text)
{
    const char *at = text.constData();
    auto left = std::size_t(text.size());
    while (left > 0) {
        const ssize_t written = write(file, at, left);
        if (written < 0 && errno == EAGAIN) {
            waitForRoom(file);
            continue;
        }
        if (written < 0) {
            return errno;
        }
        at += written;
        left -= std::size_t(written);
    }
    return 0;
}

bool meansGoneReader(int code)
{
    return code == EPIPE;
}

bool hasLostReader(int file)
{
    pollfd state{file, 0, 0};
    poll(&state, 1, 0);
    return (state.revents & POLLERR) != 0;
}

bool isCapableTerminal(int file)
{
    const QByteArray type = qgetenv("TERM");
    return isatty(file) == 1 && !type.isEmpty() && type != "dumb";
}

int terminalWidth()
{
    constexpr int usualWidth = 80;
    winsize size{};
    return ioctl(StandardError, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : usualWidth;
}

bool startUninterrupted(const std::function<void()> &work)
{
    const NoSignals masked; // the thread has the mask of whoever starts it
    try {
        std::thread(work).detach();
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}
