#pragma once

#include <QString>

// What libzip calls its errors. The texts, and for a damaged file also the error, differ between
// its versions: a test asks the one that it runs with.

// For one of its codes (ZIP_ER_...). systemCode is what some codes go with: errno for ZIP_ER_OPEN,
// zlib's code for ZIP_ER_ZLIB.
QString libzipText(int code, int systemCode = 0);

// What libzip says when it is to open this file, which it must refuse.
struct LibzipRefusal
{
    int code = 0;       // ZIP_ER_...; 0 if it opens the file
    int systemCode = 0; // the errno that it leaves
};
LibzipRefusal libzipRefusal(const QString &path);

// The same in words; empty if it opens the file.
QString libzipTextOfOpening(const QString &path);
