#pragma once

#include <string>

struct zip;

// zip_open() with flags 0 for a path in UTF-8, whatever encoding the system's own paths have. Null
// on failure, with libzip's code in `error` and, if a call of the system failed, its code in errno.
struct zip *open_archive(const std::string &path, int *error);
