#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct CommandLine
{
    enum class Action { Run, ListScenes, ShowScene, CheckScene, Control };
    Action action = Action::Run;
    std::string scene; // or, for Control, the directory
    std::vector<std::string> program;
    std::string controlCommand;
    std::string stateDirectory; // empty: the devices are not kept
    bool verbose = false;
};

// Throws UsageError.
CommandLine parseCommandLine(int argc, char **argv);
const char *usageText();

} // namespace sim
