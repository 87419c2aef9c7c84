#include "controlsocket.h"

#include <glib-unix.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr int s_backlog = 8;

// A socket address is short; the way through /proc keeps it so, however long the directory's path
// is.
sockaddr_un addressIn(int directory)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/control", directory);
    return address;
}

// Binds or connects a new socket; -1 on failure.
int openSocket(const std::string &directory, int (*attach)(int, const sockaddr *, socklen_t))
{
    const int folder = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) {
        return -1;
    }
    const sockaddr_un address = addressIn(folder);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (attach(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        fd = -1;
    }
    const int error = errno;
    close(folder);
    errno = error;
    return fd;
}

} // namespace

ControlSocket::ControlSocket(const std::string &directory,
                             std::function<std::string(const std::string &)> handler)
    : path(directory + "/control"), handle(std::move(handler))
{
    unlink(path.c_str());
    listener = openSocket(directory, &bind);
    if (listener < 0 || listen(listener, s_backlog) != 0) {
        throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
    }
    listenerSource = g_unix_fd_add(
        listener, G_IO_IN,
        [](int fd, GIOCondition condition, void *self) {
            return onConnection(fd, condition, self);
        },
        this);
}

ControlSocket::~ControlSocket()
{
    for (const auto &[fd, client] : clients) {
        g_source_remove(client.source);
        close(fd);
    }
    g_source_remove(listenerSource);
    close(listener);
    unlink(path.c_str());
}

int ControlSocket::onConnection(int fd, unsigned, void *self)
{
    auto *control = static_cast<ControlSocket *>(self);
    const int client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) {
        return G_SOURCE_CONTINUE;
    }
    control->clients[client].source = g_unix_fd_add(
        client, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
        [](int input, GIOCondition condition, void *owner) {
            return onInput(input, condition, owner);
        },
        self);
    return G_SOURCE_CONTINUE;
}

int ControlSocket::onInput(int fd, unsigned, void *self)
{
    auto *control = static_cast<ControlSocket *>(self);
    if (control->readFrom(fd)) {
        return G_SOURCE_CONTINUE;
    }
    control->clients.erase(fd);
    close(fd);
    return G_SOURCE_REMOVE;
}

// False when the client is gone.
bool ControlSocket::readFrom(int client)
{
    char buffer[4096];
    const ssize_t size = read(client, buffer, sizeof buffer);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return true;
    }
    if (size <= 0) {
        return false;
    }
    std::string &input = clients[client].input;
    input.append(buffer, static_cast<size_t>(size));
    answerLines(client, input);
    return true;
}

void ControlSocket::answerLines(int client, std::string &text)
{
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
        const std::string answer = handle(text.substr(0, end)) + "\n";
        text.erase(0, end + 1);
        (void)send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
}

int sendControlCommand(const std::string &directory, const std::string &command)
{
    const int fd = openSocket(directory, &connect);
    if (fd < 0) {
        std::fprintf(stderr, "capso-sim: no simulator works in %s: %s\n", directory.c_str(),
                     std::strerror(errno));
        return 1;
    }
    const std::string line = command + "\n";
    std::string answer;
    char byte = 0;
    if (send(fd, line.data(), line.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(line.size())) {
        while (read(fd, &byte, 1) == 1 && byte != '\n') {
            answer += byte;
        }
    }
    close(fd);
    std::puts(answer.c_str());
    return answer.rfind("ok", 0) == 0 ? 0 : 1;
}

} // namespace sim
