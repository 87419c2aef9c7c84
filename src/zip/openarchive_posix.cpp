#include "openarchive.h"

#include <zip.h>

struct zip *open_archive(const std::string &path, int *error)
{
    return zip_open(path.c_str(), 0, error);
}
