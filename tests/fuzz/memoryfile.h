#pragma once

#include "fuzzing.h"

#include <QString>

#include <cstddef>

#include <sys/mman.h>
#include <unistd.h>

// A file in memory, with a path.
class MemoryFile
{
public:
    MemoryFile(const void *bytes, std::size_t size) : descriptor(memfd_create("package", 0))
    {
        require(descriptor >= 0, "there is a file in memory");
        const auto *at = static_cast<const char *>(bytes);
        while (size > 0) {
            const ssize_t written = write(descriptor, at, size);
            require(written > 0, "the package can be written");
            at += written;
            size -= std::size_t(written);
        }
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(descriptor); }

private:
    int descriptor;
};
