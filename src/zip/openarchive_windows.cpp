#include "openarchive.h"

#include <zip.h>

#include <cerrno>

#include <windows.h>

// zip_open() takes a path for the code page of the process, which has not the letters of every
// file's name.

namespace {

std::wstring wide(const std::string &utf8)
{
    const auto length = static_cast<int>(utf8.size());
    std::wstring text(utf8.size(), L'\0'); // never more units than bytes
    text.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), length)));
    return text;
}

// What libzip adds to one of Windows' codes that it has no errno for.
constexpr int s_unknown = 10000;

// A file that is not there. libzip knows one of Windows' codes for that.
bool is_absent(int code)
{
    switch (code - s_unknown) {
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
        return true;
    default:
        return false;
    }
}

// The errno of what libzip says that the system's call failed with.
int errno_of(int code)
{
    switch (code - s_unknown) {
    case ERROR_SHARING_VIOLATION: // another program has the file open, and wants it for itself
    case ERROR_LOCK_VIOLATION:
        return EACCES;
    case ERROR_NOT_READY: // a drive without a disk
        return ENODEV;
    default:
        return code;
    }
}

// Gives the codes to the caller as zip_open() does.
void report(zip_error_t &failure, int *error)
{
    const int code = zip_error_code_system(&failure);
    if (zip_error_code_zip(&failure) == ZIP_ER_NOENT || is_absent(code)) {
        *error = ZIP_ER_NOENT;
        errno = ENOENT;
    } else {
        *error = zip_error_code_zip(&failure);
        errno = errno_of(code);
    }
    zip_error_fini(&failure);
}

} // namespace

struct zip *open_archive(const std::string &path, int *error)
{
    zip_error_t failure;
    zip_error_init(&failure);
    zip_source_t *source = zip_source_win32w_create(wide(path).c_str(), 0, -1, &failure);
    if (source == nullptr) {
        report(failure, error);
        return nullptr;
    }
    struct zip *archive = zip_open_from_source(source, 0, &failure);
    if (archive == nullptr) {
        zip_source_free(source);
        report(failure, error);
        return nullptr;
    }
    zip_error_fini(&failure);
    return archive;
}
