#pragma once

#include "packagefiles.h"

#include <QString>

#include <memory>
#include <string>

// The bytes of a package as they were when the command began, in a file of this process's own.
// What was judged is what each device of several is given, whatever becomes of the
// package meanwhile: somebody may put the next version in its place, and the stick or the share
// that it lies on may go. To compare the file's identity before each device instead would notice
// the one only between two devices, and be no help against the other.
class PackageCopy
{
public:
    // `path`: see PackageFile.
    explicit PackageCopy(const std::string &path);

    // Where the copy can be opened while this object lives. UTF-8.
    std::string path() const;
    // Why there is no copy, as an update would say it (translated); empty: there is one.
    const QString &failure() const { return reason; }

private:
    QString copyFrom(const std::string &path);

    std::unique_ptr<PrivateFile> copy;
    QString reason;
};

// The longest package of which there is a copy, in bytes; many times any that is real. Longer ones
// would fill the disk that the copy lies on.
constexpr qint64 LongestPackage = qint64{256} * 1024 * 1024;
