#include "unreadablefile.h"

#include <QFile>

// A link to itself; permissions would not stop root.
UnreadableFile::UnreadableFile(const QString &path)
{
    if (!QFile::link(path, path)) {
        qFatal("no link %s", qPrintable(path));
    }
}

UnreadableFile::~UnreadableFile() = default;
