#include "commandline.h"

namespace sim {
namespace {

using Action = CommandLine::Action;

// The arguments, taken one after another.
class Arguments
{
public:
    Arguments(int argc, char **argv) : words(argv + 1, argv + argc) {}

    bool atEnd() const { return at == words.size(); }
    bool isOption() const { return !atEnd() && words[at].rfind("--", 0) == 0; }
    std::string next(const char *what)
    {
        if (atEnd()) {
            throw UsageError(std::string("missing ") + what);
        }
        return words[at++];
    }
    std::vector<std::string> rest()
    {
        std::vector<std::string> left(words.begin() + static_cast<long>(at), words.end());
        at = words.size();
        return left;
    }

private:
    std::vector<std::string> words;
    size_t at = 0;
};

// A word of the shell as a word of a scene: a text that holds blanks, or nothing, is put in quotes.
std::string asSceneWord(const std::string &word)
{
    if (!word.empty() && word.find_first_of(" \t\"#\\") == std::string::npos) {
        return word;
    }
    std::string quoted = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "\"";
}

void readControl(Arguments &arguments, CommandLine &line)
{
    line.action = Action::Control;
    line.scene = arguments.next("directory");
    const std::vector<std::string> words = arguments.rest();
    if (words.empty()) {
        throw UsageError("missing command");
    }
    // One word that holds blanks is a whole command, so that texts can be quoted as in a scene.
    if (words.size() == 1) {
        line.controlCommand = words[0];
    } else {
        for (const std::string &word : words) {
            line.controlCommand += (line.controlCommand.empty() ? "" : " ") + asSceneWord(word);
        }
    }
}

void readOption(Arguments &arguments, CommandLine &line)
{
    const std::string option = arguments.next("option");
    if (option == "--verbose") {
        line.verbose = true;
    } else if (option == "--state") {
        line.stateDirectory = arguments.next("directory");
    } else if (option == "--list-scenes") {
        line.action = Action::ListScenes;
    } else if (option == "--show-scene") {
        line.action = Action::ShowScene;
        line.scene = arguments.next("name of a scene");
    } else if (option == "--check-scene") {
        line.action = Action::CheckScene;
        line.scene = arguments.next("scene");
    } else if (option == "--control") {
        readControl(arguments, line);
    } else {
        throw UsageError("unknown option '" + option + "'");
    }
}

} // namespace

CommandLine parseCommandLine(int argc, char **argv)
{
    Arguments arguments(argc, argv);
    CommandLine line;
    while (arguments.isOption()) {
        readOption(arguments, line);
    }
    if (line.action != Action::Run) {
        if (!arguments.atEnd()) {
            throw UsageError("unexpected argument '" + arguments.next("argument") + "'");
        }
        return line;
    }
    line.scene = arguments.next("scene");
    if (arguments.next("'--' behind the scene") != "--") {
        throw UsageError("there is no '--' behind the scene");
    }
    line.program = arguments.rest();
    if (line.program.empty()) {
        throw UsageError("missing program");
    }
    return line;
}

const char *usageText()
{
    return "usage: capso-sim [--verbose] [--state DIRECTORY] SCENE -- PROGRAM [ARGS]\n"
           "       capso-sim --list-scenes | --show-scene NAME | --check-scene SCENE\n"
           "       capso-sim --control DIRECTORY COMMAND...\n"
           "SCENE is a file, the name of a built-in scene, or - for standard input.\n";
}

} // namespace sim
