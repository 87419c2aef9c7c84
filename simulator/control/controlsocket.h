#pragma once

#include <functional>
#include <map>
#include <string>

namespace sim {

// The socket through which tests and people change the scene while a program runs: lines in, lines
// out.
class ControlSocket
{
public:
    // Listens at directory/control. handle returns the answer to a line. Throws std::runtime_error.
    ControlSocket(const std::string &directory,
                  std::function<std::string(const std::string &)> handle);
    ~ControlSocket();
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

private:
    static int onConnection(int fd, unsigned condition, void *self);
    static int onInput(int fd, unsigned condition, void *self);
    bool readFrom(int client);
    void answerLines(int client, std::string &text);

    struct Client
    {
        unsigned source = 0;
        std::string input; // the beginning of a line
    };
    std::string path;
    std::function<std::string(const std::string &)> handle;
    int listener = -1;
    unsigned listenerSource = 0;
    std::map<int, Client> clients;
};

// Sends one command to the simulator that works in directory, prints its answer and returns an exit
// code: 0 for "ok", 1 for an error.
int sendControlCommand(const std::string &directory, const std::string &command);

} // namespace sim
