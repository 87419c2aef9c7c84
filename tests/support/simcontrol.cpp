#include "simcontrol.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace {

// A plain socket: some tests have no application object, which Qt's need.
int connectToSimulator()
{
    const QByteArray path = qgetenv("CAPSO_SIM_DIR") + "/control";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::size_t(path.size()) >= sizeof(address.sun_path)) {
        return -1;
    }
    std::memcpy(address.sun_path, path.constData(), std::size_t(path.size()));

    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    void *const generic = &address;
    if (socket >= 0 && ::connect(socket, static_cast<sockaddr *>(generic), sizeof(address)) != 0) {
        ::close(socket);
        return -1;
    }
    return socket;
}

} // namespace

QByteArray sendControlCommand(const QByteArray &command)
{
    const int socket = connectToSimulator();
    if (socket < 0) {
        return {};
    }
    const QByteArray line = command + '\n';
    QByteArray answer;
    if (::send(socket, line.constData(), std::size_t(line.size()), MSG_NOSIGNAL) == line.size()) {
        char byte = 0;
        while (::recv(socket, &byte, 1, 0) == 1 && byte != '\n') {
            answer += byte;
        }
    }
    ::close(socket);
    return answer;
}
