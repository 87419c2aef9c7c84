#include "packagecopy.h"

#include "cli.h"
#include "package.h"
#include "ziparchive.h"

#include <array>

namespace {

// The words with which an update would refuse it. A file that turned up since is not read after
// all.
QString closedText(const std::string &path, int code)
{
    const Zip archive(path);
    return archive ? qt_error_string(code) : QString::fromStdString(archive.errorStr());
}

QString noCopyText(int code)
{
    return Cli::tr("no copy of it can be made: %1").arg(qt_error_string(code));
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
    return copy->path();
}

QString PackageCopy::copyFrom(const std::string &path)
{
    const PackageFile package(path);
    if (!package.isOpen()) {
        return closedText(path, lastFileError());
    }
    if (!package.isRegular()) {
        return Cli::tr("it is not a file");
    }
    copy = std::make_unique<PrivateFile>();
    if (!copy->isOpen()) {
        return noCopyText(lastFileError());
    }
    std::array<char, 65536> piece;
    qint64 length = 0;
    for (;;) {
        const std::ptrdiff_t got = package.read(piece.data(), piece.size());
        if (got < 0) {
            return qt_error_string(lastFileError());
        }
        if (got == 0) {
            return {};
        }
        length += got;
        if (length > LongestPackage) {
            return Cli::tr("it is too long");
        }
        if (!copy->write(piece.data(), std::size_t(got))) {
            return noCopyText(lastFileError());
        }
    }
}
