#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

struct zip;
struct zip_file;
struct zip_stat;

// Reading of ZIP archives: libzip's handles and out-parameters as objects that test as booleans and
// carry their last error. Nothing throws on a failure of libzip; nothing writes to an archive. No
// object may be used by two threads at once.

// What the archive says of one entry: a copy of libzip's zip_stat. A default one is invalid. The
// archive is somebody else's file: no number in here can be trusted.
class ZipStat
{
public:
    ZipStat() = default;
    explicit ZipStat(const struct zip_stat &stat);

    // True when any of name, index, size or CRC is known.
    bool isValid() const;
    explicit operator bool() const { return isValid(); }

    // Good only while the archive is open.
    std::string name() const;
    bool isNameValid() const;
    std::uint64_t index() const { return entryIndex; }
    bool isIndexValid() const;
    std::uint64_t size() const { return uncompressedSize; } // bytes
    bool isSizeValid() const;
    std::uint32_t crc() const { return entryCrc; }
    bool isCrcValid() const;

private:
    friend struct ZipStatLayout;

    std::uint64_t valid = 0; // libzip's mask of the fields that are known
    const char *entryName = nullptr;
    std::uint64_t entryIndex = 0;
    std::uint64_t uncompressedSize = 0;
    [[maybe_unused]] std::uint64_t compressedSize = 0;
    [[maybe_unused]] std::time_t modificationTime = 0;
    std::uint32_t entryCrc = 0;
    [[maybe_unused]] std::uint16_t compressionMethod = 0;
    [[maybe_unused]] std::uint16_t encryptionMethod = 0;
    [[maybe_unused]] std::uint32_t flags = 0;
};

// One entry, opened for reading. It must not outlive the archive that opened it.
class ZipFile
{
public:
    // Takes ownership; null makes an empty object, from which nothing can be read.
    explicit ZipFile(struct zip_file *opened = nullptr);

    bool isValid() const { return file != nullptr; }
    explicit operator bool() const { return isValid(); }

    // Reads at most `length` bytes. Returns how many were read, 0 at the end of the entry, or a
    // negative value with the reason in error() and errorStr().
    std::int32_t read(void *buffer, std::uint64_t length);

    int error() const { return errorCode; } // a libzip code, 0 = none
    std::string errorStr() const;

private:
    struct Closer
    {
        void operator()(struct zip_file *file) const;
    };

    std::unique_ptr<struct zip_file, Closer> file;
    std::int32_t errorCode = 0;
    std::int32_t systemError = 0;
};

// An open archive, or a closed one.
class Zip
{
public:
    Zip() = default;
    explicit Zip(const std::string &path); // as open()

    // Opens an existing archive; `path` is UTF-8. Returns whether it is open now. When one is open
    // already, that one stays as it is, the error is cleared and the answer is false.
    bool open(const std::string &path);
    // Returns false when the archive is closed already.
    bool close();

    bool isOpened() const { return handle != nullptr; }
    explicit operator bool() const { return isOpened(); }
    const std::string &fileName() const { return openedPath; } // empty while closed

    std::int64_t count() const; // of entries; -1 when closed

    // Entry names are matched exactly: case and directory count. Both are invalid on failure.
    ZipStat stat(std::uint64_t index);
    ZipStat stat(const std::string &name);
    // Of all entries in the order of their indices, or of none if any of them fails.
    std::vector<ZipStat> stats();

    // Empty when the entry cannot be opened; the reason is in the archive's error().
    ZipFile fopen(std::uint64_t index);
    ZipFile fopen(const std::string &name);

    int error() const { return errorCode; } // a libzip code, 0 = none
    std::string errorStr() const;

private:
    struct Closer
    {
        void operator()(struct zip *handle) const;
    };

    ZipStat statResult(int result, const struct zip_stat &stat);
    ZipFile opened(struct zip_file *file);
    void fetchError();

    std::unique_ptr<struct zip, Closer> handle;
    std::int32_t errorCode = 0;
    std::int32_t systemError = 0;
    std::string openedPath;
};
