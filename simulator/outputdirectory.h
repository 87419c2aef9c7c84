#pragma once

#include <string>

namespace sim {

// Where the simulator writes: what CAPSO_SIM_DIR names, or else a temporary directory that is
// removed at the end.
class OutputDirectory
{
public:
    // Throws std::runtime_error.
    OutputDirectory();
    ~OutputDirectory();
    OutputDirectory(const OutputDirectory &) = delete;
    OutputDirectory &operator=(const OutputDirectory &) = delete;

    // Absolute.
    const std::string &path() const { return directory; }

private:
    std::string directory;
    bool temporary = false;
};

} // namespace sim
