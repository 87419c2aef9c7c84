#include "standardstreams.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
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

void startUninterrupted(const std::function<void()> &work)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread(work).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
