#include "packagecopy.h"

#include "cli.h"
#include "package.h"
#include "ziparchive.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

#ifdef __linux__
constexpr const char *s_openFiles = "/proc/self/fd/"; // where /dev/fd would lead, if it is there
#else
constexpr const char *s_openFiles = "/dev/fd/";
#endif

class OpenFile
{
public:
    // Neither waits for the other end of a pipe, nor for anything else.
    explicit OpenFile(const std::string &path)
        : number(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
    {
    }
    ~OpenFile()
    {
        if (number >= 0) {
            close(number);
        }
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    bool isOpen() const { return number >= 0; }
    bool isRegular() const
    {
        struct stat facts = {};
        return fstat(number, &facts) == 0 && S_ISREG(facts.st_mode);
    }
    ssize_t read(char *to, std::size_t most) const
    {
        ssize_t got = 0;
        do {
            got = ::read(number, to, most);
        } while (got < 0 && errno == EINTR);
        return got;
    }

private:
    int number;
};

QString systemText(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// The words with which an update would refuse it. A file that turned up since is not read after
// all.
QString closedText(const std::string &path, int code)
{
    const Zip archive(path);
    return archive ? systemText(code) : QString::fromStdString(archive.errorStr());
}

} // namespace

PackageCopy::PackageCopy(const std::string &path)
{
    const QString failed = copyFrom(path);
    if (!failed.isEmpty()) {
        reason = closed_package(failed);
    }
}

std::string PackageCopy::path() const
{
    return s_openFiles + std::to_string(fileno(copy.get()));
}

QString PackageCopy::copyFrom(const std::string &path)
{
    const OpenFile package(path);
    if (!package.isOpen()) {
        return closedText(path, errno);
    }
    if (!package.isRegular()) {
        return Cli::tr("it is not a file");
    }
    copy.reset(std::tmpfile());
    if (!copy) {
        return Cli::tr("no copy of it can be made: %1").arg(systemText(errno));
    }
    std::array<char, 65536> piece;
    qint64 length = 0;
    for (;;) {
        const ssize_t got = package.read(piece.data(), piece.size());
        if (got < 0) {
            return systemText(errno);
        }
        if (got == 0) {
            break;
        }
        length += got;
        if (length > LongestPackage) {
            return Cli::tr("it is too long");
        }
        if (std::fwrite(piece.data(), 1, std::size_t(got), copy.get()) != std::size_t(got)) {
            return Cli::tr("no copy of it can be made: %1").arg(systemText(errno));
        }
    }
    return std::fflush(copy.get()) == 0
               ? QString()
               : Cli::tr("no copy of it can be made: %1").arg(systemText(errno));
}
