#include "readypipe.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr int s_smallestBuffer = 4096; // one slot: one byte fills it

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

} // namespace

ReadyPipe::ReadyPipe(const std::string &nodePath) : path(nodePath)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0666) != 0)
        fail("cannot create " + path);
    fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || fcntl(fd, F_SETPIPE_SZ, s_smallestBuffer) < 0)
        fail("cannot open " + path);
    setAccess(true);
    setReady(false);
}

ReadyPipe::~ReadyPipe()
{
    removeNode();
    close(fd);
}

void ReadyPipe::setReady(bool ready)
{
    char byte = 0;
    if (ready == isReady)
        return;
    isReady = ready;
    const ssize_t moved = ready ? read(fd, &byte, 1) : write(fd, &byte, 1);
    if (moved != 1)
        fail("the node " + path + " is out of step");
}

void ReadyPipe::setAccess(bool granted)
{
    if (!path.empty())
        chmod(path.c_str(), granted ? 0666 : 0);
}

void ReadyPipe::removeNode()
{
    if (!path.empty())
        unlink(path.c_str());
    path.clear();
}

} // namespace sim
