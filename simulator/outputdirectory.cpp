#include "outputdirectory.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace sim {

OutputDirectory::OutputDirectory()
{
    const char *wanted = std::getenv("CAPSO_SIM_DIR");
    if (wanted && *wanted) {
        directory = std::filesystem::absolute(wanted).string();
        std::filesystem::create_directories(directory);
        return;
    }
    std::string pattern = std::filesystem::temp_directory_path().string() + "/capso-sim.XXXXXX";
    if (!mkdtemp(pattern.data())) {
        throw std::runtime_error("cannot make a directory like " + pattern);
    }
    directory = pattern;
    temporary = true;
}

OutputDirectory::~OutputDirectory()
{
    std::error_code ignored;
    if (temporary) {
        std::filesystem::remove_all(directory, ignored);
    }
}

} // namespace sim
