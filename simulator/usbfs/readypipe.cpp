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

// Where a node is kept that programs must not find. Unique, since the address may be given to
// another device.
std::string hiddenPath(const std::string &path)
{
    return path + ".hidden";
}

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

} // namespace

ReadyPipe::ReadyPipe(const std::string &nodePath) : path(nodePath)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0666) != 0) {
        fail("cannot create " + path);
    }
    fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || fcntl(fd, F_SETPIPE_SZ, s_smallestBuffer) < 0) {
        fail("cannot open " + path);
    }
    setAccess(true);
    setReady(false);
}

ReadyPipe::~ReadyPipe()
{
    unlink((isMissing ? hiddenPath(path) : path).c_str());
    close(fd);
}

void ReadyPipe::setReady(bool ready)
{
    char byte = 0;
    if (ready == isReady) {
        return;
    }
    isReady = ready;
    const ssize_t moved = ready ? read(fd, &byte, 1) : write(fd, &byte, 1);
    if (moved != 1) {
        fail("the node " + path + " is out of step");
    }
}

void ReadyPipe::setAccess(bool granted)
{
    chmod((isMissing ? hiddenPath(path) : path).c_str(), granted ? 0666 : 0);
}

void ReadyPipe::setMissing(bool missing)
{
    if (missing == isMissing) {
        return;
    }
    isMissing = missing;
    const std::string hidden = hiddenPath(path);
    if (missing) {
        rename(path.c_str(), hidden.c_str());
    } else {
        rename(hidden.c_str(), path.c_str());
    }
}

} // namespace sim
