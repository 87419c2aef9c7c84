#include "ziparchive.h"

#include "openarchive.h"

#include <zip.h>

#include <cerrno>
#include <cstddef>

// ZipStat is zip_stat with another face; whoever compares the two in a debugger should see the
// same.
struct ZipStatLayout
{
    static_assert(sizeof(ZipStat) == sizeof(struct zip_stat), "same size as libzip's record");
    static_assert(offsetof(ZipStat, entryName) == offsetof(struct zip_stat, name));
    static_assert(offsetof(ZipStat, uncompressedSize) == offsetof(struct zip_stat, size));
    static_assert(offsetof(ZipStat, entryCrc) == offsetof(struct zip_stat, crc));
    static_assert(offsetof(ZipStat, flags) == offsetof(struct zip_stat, flags));
};

namespace {

std::string errorText(int errorCode, int systemError)
{
    char text[512] = {};
    zip_error_to_str(text, sizeof(text), errorCode, systemError);
    return text;
}

} // namespace

ZipStat::ZipStat(const struct zip_stat &stat)
    : valid(stat.valid),
      entryName(stat.name),
      entryIndex(stat.index),
      uncompressedSize(stat.size),
      compressedSize(stat.comp_size),
      modificationTime(stat.mtime),
      entryCrc(stat.crc),
      compressionMethod(stat.comp_method),
      encryptionMethod(stat.encryption_method),
      flags(stat.flags)
{
}

bool ZipStat::isValid() const
{
    return (valid & (ZIP_STAT_NAME | ZIP_STAT_INDEX | ZIP_STAT_SIZE | ZIP_STAT_CRC)) != 0;
}

std::string ZipStat::name() const
{
    return entryName ? entryName : std::string();
}

bool ZipStat::isNameValid() const
{
    return (valid & ZIP_STAT_NAME) != 0;
}

bool ZipStat::isIndexValid() const
{
    return (valid & ZIP_STAT_INDEX) != 0;
}

bool ZipStat::isSizeValid() const
{
    return (valid & ZIP_STAT_SIZE) != 0;
}

bool ZipStat::isCrcValid() const
{
    return (valid & ZIP_STAT_CRC) != 0;
}

void ZipFile::Closer::operator()(struct zip_file *opened) const
{
    zip_fclose(opened);
}

ZipFile::ZipFile(struct zip_file *opened) : file(opened)
{
}

std::int32_t ZipFile::read(void *buffer, std::uint64_t length)
{
    if (!file) {
        // What a read from an entry that could not be opened is said to fail with.
        errorCode = ZIP_ER_INVAL;
        systemError = ENOENT;
        return -1;
    }
    const auto result = static_cast<std::int32_t>(zip_fread(file.get(), buffer, length));
    if (result < 0) {
        zip_file_error_get(file.get(), &errorCode, &systemError);
    }
    return result;
}

std::string ZipFile::errorStr() const
{
    return errorText(errorCode, systemError);
}

void Zip::Closer::operator()(struct zip *opened) const
{
    if (zip_close(opened) != 0) {
        zip_discard(opened); // a failed close leaves the archive open
    }
}

Zip::Zip(const std::string &path)
{
    open(path);
}

bool Zip::open(const std::string &path)
{
    errorCode = 0;
    systemError = 0;
    if (handle) {
        return false;
    }
    handle.reset(open_archive(path, &errorCode));
    systemError = errno;
    if (handle) {
        openedPath = path;
    }
    return isOpened();
}

bool Zip::close()
{
    if (!handle) {
        return false;
    }
    handle.reset();
    openedPath.clear();
    return true;
}

std::int64_t Zip::count() const
{
    return handle ? zip_get_num_entries(handle.get(), 0) : -1;
}

ZipStat Zip::stat(std::uint64_t index)
{
    if (!handle) {
        return {};
    }
    struct zip_stat stat = {};
    return statResult(zip_stat_index(handle.get(), index, 0, &stat), stat);
}

ZipStat Zip::stat(const std::string &name)
{
    if (!handle) {
        return {};
    }
    struct zip_stat stat = {};
    return statResult(zip_stat(handle.get(), name.c_str(), 0, &stat), stat);
}

std::vector<ZipStat> Zip::stats()
{
    const std::int64_t entries = count();
    if (entries <= 0) {
        return {};
    }
    std::vector<ZipStat> all;
    all.reserve(static_cast<std::size_t>(entries));
    for (std::int64_t index = 0; index < entries; ++index) {
        const ZipStat one = stat(static_cast<std::uint64_t>(index));
        if (!one) {
            return {};
        }
        all.push_back(one);
    }
    return all;
}

ZipFile Zip::fopen(std::uint64_t index)
{
    return handle ? opened(zip_fopen_index(handle.get(), index, 0)) : ZipFile();
}

ZipFile Zip::fopen(const std::string &name)
{
    return handle ? opened(zip_fopen(handle.get(), name.c_str(), 0)) : ZipFile();
}

std::string Zip::errorStr() const
{
    return errorText(errorCode, systemError);
}

ZipStat Zip::statResult(int result, const struct zip_stat &stat)
{
    if (result < 0) {
        fetchError();
        return {};
    }
    return ZipStat(stat);
}

ZipFile Zip::opened(struct zip_file *file)
{
    if (!file) {
        fetchError();
    }
    return ZipFile(file);
}

void Zip::fetchError()
{
    zip_error_get(handle.get(), &errorCode, &systemError);
}
