#include "packagefiles.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

#ifdef __linux__
constexpr const char *s_openFiles = "/proc/self/fd/"; // where /dev/fd would lead, if it is there
#else
constexpr const char *s_openFiles = "/dev/fd/";
#endif

// A file that has no name.
std::intptr_t openNameless()
{
    std::FILE *stream = std::tmpfile();
    if (!stream) {
        return -1;
    }
    const int file = fcntl(fileno(stream), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int kept = errno;
    std::fclose(stream);
    errno = kept;
    return file;
}

} // namespace

PackageFile::PackageFile(const std::string &path)
    : file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
}

PackageFile::~PackageFile()
{
    if (isOpen()) {
        close(int(file));
    }
}

bool PackageFile::isRegular() const
{
    struct stat facts = {};
    fstat(int(file), &facts);
    return S_ISREG(facts.st_mode);
}

std::ptrdiff_t PackageFile::read(char *to, std::size_t most) const
{
    return ::read(int(file), to, most); // no signal cuts it short: none is handled meanwhile
}

PrivateFile::PrivateFile() : file(openNameless())
{
}

PrivateFile::~PrivateFile()
{
    if (isOpen()) {
        close(int(file));
    }
}

bool PrivateFile::write(const char *from, std::size_t length) const
{
    while (length > 0) {
        const ssize_t written = ::write(int(file), from, length);
        if (written < 0) {
            return false;
        }
        from += written;
        length -= std::size_t(written);
    }
    return true;
}

std::string PrivateFile::path() const
{
    return s_openFiles + std::to_string(file);
}

int lastFileError()
{
    return errno;
}
