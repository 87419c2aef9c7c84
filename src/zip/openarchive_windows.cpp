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

// A file that is not there. libzip knows one of Windows' three codes for that.
bool is_absent(const zip_error_t &failure)
{
    constexpr int unknown = 10000; // what libzip adds to a code that it has no errno for
    const int code = zip_error_code_system(&failure);
    return zip_error_code_zip(&failure) == ZIP_ER_NOENT || code == unknown + ERROR_PATH_NOT_FOUND ||
           code == unknown + ERROR_INVALID_NAME;
}

// Gives the codes to the caller as zip_open() does.
void report(zip_error_t &failure, int *error)
{
    if (is_absent(failure)) {
        *error = ZIP_ER_NOENT;
        errno = ENOENT;
    } else {
        *error = zip_error_code_zip(&failure);
        errno = zip_error_code_system(&failure);
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
