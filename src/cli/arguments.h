#pragma once

#include "command.h"
#include "output.h"

#include <QString>

#include <string>
#include <vector>

// What the command line comes to.
struct CommandLine
{
    CommandRun run;       // empty: nothing is to be run, `text` is all there is to say
    Output::Form form{};  // of what the program says, whether it runs a command or not
    bool verbose = false; // the modules may say what they do
    QString text;        // help, the version, or what is wrong with the command line and what helps
    QString error;       // what is wrong alone; empty: nothing
    ExitStatus status{}; // Done with help and version, Usage otherwise
};

// The words of the command line without the program's name, as the system has them, in whatever
// encoding; on Windows UTF-8. What main() was given.
std::vector<std::string> argumentsOf(int argc, char **argv);

// Parses the arguments, the program's name not among them. They are taken for UTF-8.
CommandLine parseCommandLine(std::vector<std::string> arguments);
