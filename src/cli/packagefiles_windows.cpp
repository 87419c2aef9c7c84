#include "packagefiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QString>

#include <algorithm>

#include <windows.h>

namespace {

constexpr const char *s_copies = "capso-cli-copy-*.fw"; // a number in the place of the star

HANDLE handleOf(std::intptr_t file)
{
    return reinterpret_cast<HANDLE>(file);
}

std::wstring nativePath(const QString &path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

// With the meaning for folders, so that one is opened and then found to be none.
std::intptr_t openPackage(const std::string &path)
{
    constexpr DWORD everybody = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return reinterpret_cast<std::intptr_t>(CreateFileW(
        nativePath(QString::fromStdString(path)).c_str(), GENERIC_READ, everybody, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
}

// A program that Windows has ended left its copy behind. Those that are in use cannot be deleted.
void removeOldCopies(const QDir &folder)
{
    for (const QString &name : folder.entryList({QLatin1String(s_copies)}, QDir::Files)) {
        DeleteFileW(nativePath(folder.filePath(name)).c_str());
    }
}

QString newCopy(const QDir &folder)
{
    QString name = QLatin1String(s_copies);
    name.replace(QLatin1Char('*'), QString::number(GetCurrentProcessId()) + QLatin1Char('-') +
                                       QString::number(GetTickCount64()));
    return folder.filePath(name);
}

// The others may read it. To open it for writing and to delete it is refused as long as it is open.
std::intptr_t createPrivate(const QString &path)
{
    return reinterpret_cast<std::intptr_t>(
        CreateFileW(nativePath(path).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                    nullptr, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY, nullptr));
}

} // namespace

PackageFile::PackageFile(const std::string &path) : file(openPackage(path))
{
}

PackageFile::~PackageFile()
{
    if (isOpen()) {
        CloseHandle(handleOf(file));
    }
}

bool PackageFile::isRegular() const
{
    BY_HANDLE_FILE_INFORMATION facts{};
    return GetFileType(handleOf(file)) == FILE_TYPE_DISK &&
           GetFileInformationByHandle(handleOf(file), &facts) != 0 &&
           (facts.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::ptrdiff_t PackageFile::read(char *to, std::size_t most) const
{
    DWORD got = 0;
    return ReadFile(handleOf(file), to, DWORD(most), &got, nullptr) != 0 ? std::ptrdiff_t(got) : -1;
}

// A file that goes by itself when it is closed could not be opened by anybody else who does not
// let it go, which libzip does not.
PrivateFile::PrivateFile()
{
    const QDir folder = QDir::temp();
    removeOldCopies(folder);
    const QString path = newCopy(folder);
    file = createPrivate(path);
    name = path.toStdString();
}

PrivateFile::~PrivateFile()
{
    if (isOpen()) {
        CloseHandle(handleOf(file));
        DeleteFileW(nativePath(QString::fromStdString(name)).c_str());
    }
}

bool PrivateFile::write(const char *from, std::size_t length) const
{
    DWORD written = 0;
    return WriteFile(handleOf(file), from, DWORD(length), &written, nullptr) != 0 &&
           written == length;
}

std::string PrivateFile::path() const
{
    return name;
}

int lastFileError()
{
    return int(GetLastError());
}
