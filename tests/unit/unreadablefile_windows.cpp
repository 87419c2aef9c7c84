#include "unreadablefile.h"

#include <QDir>

#include <windows.h>

// Open already, and not to be shared.
UnreadableFile::UnreadableFile(const QString &path)
    : handle(CreateFileW(QDir::toNativeSeparators(path).toStdWString().c_str(), GENERIC_READ, 0,
                         nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))
{
    if (handle == INVALID_HANDLE_VALUE) {
        qFatal("no file %s", qPrintable(path));
    }
}

UnreadableFile::~UnreadableFile()
{
    CloseHandle(handle);
}
