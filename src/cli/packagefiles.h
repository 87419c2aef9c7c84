#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The two files of a package's copy. A source for each system.

// A package that somebody has named, open for reading.
class PackageFile
{
public:
    // `path` is as the system has it, in whatever encoding; on Windows UTF-8. Neither waits for the
    // other end of a pipe, nor for anything else.
    explicit PackageFile(const std::string &path);
    ~PackageFile();
    PackageFile(const PackageFile &) = delete;
    PackageFile &operator=(const PackageFile &) = delete;

    bool isOpen() const { return file != -1; }
    // No folder, no device, no pipe.
    bool isRegular() const;
    // Up to `most` bytes into `to`. Returns how many; 0: the end; negative: lastFileError() says.
    std::ptrdiff_t read(char *to, std::size_t most) const;

private:
    std::intptr_t file; // the system's number of it
};

// A file of this process's own, which nobody else changes and which goes with the object.
class PrivateFile
{
public:
    PrivateFile();
    ~PrivateFile();
    PrivateFile(const PrivateFile &) = delete;
    PrivateFile &operator=(const PrivateFile &) = delete;

    bool isOpen() const { return file != -1; }
    // Adds these bytes; false: lastFileError() says why it could not.
    bool write(const char *from, std::size_t length) const;
    // Where it can be opened while this object lives. UTF-8.
    std::string path() const;

private:
    std::intptr_t file;
    std::string name; // where it has one
};

// The system's code for what the last call of this thread here failed with.
int lastFileError();
