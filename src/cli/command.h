#pragma once

#include "exitstatus.h"
#include "usbview.h"

#include <array>
#include <functional>

namespace CLI { // NOLINT(readability-identifier-naming): CLI11's name
class App;
}

class Interrupts;
class Output;

// What every command is given to work with.
struct Session
{
    Output &output;
    Interrupts &interrupts;
    // Something was written to a device. The exit status then tells of the device, whether or not
    // standard output took the result.
    bool wroteDevice = false;
    usbview::Places places = {}; // where the system shows its USB devices

    // To be called before. Neither a signal nor a reader who takes nothing stops it from now on;
    // throws where the system gives no thread to keep that.
    void beginWriting();
};

// Does what the command line asks for.
using CommandRun = std::function<ExitStatus(Session &)>;

// Runs it. What it throws, as where memory runs out, is a failure like any other.
ExitStatus runSafely(const CommandRun &run, Session &session);

// One command: a row of s_commands, and a file of its own.
struct Command
{
    const char *name;
    const char *summary;  // one line
    const char *examples; // what --help shows at its end
    // Declares the command's own arguments; what comes back runs the command with what was parsed
    // into them.
    CommandRun (*declare)(CLI::App &arguments);
};

extern const Command s_listCommand;
extern const Command s_updateCommand;
extern const Command s_settingsCommand;
extern const Command s_modesCommand;
extern const Command s_signalCommand;
extern const Command s_packageCommand;
extern const Command s_doctorCommand;

// In the order in which --help lists them.
extern const std::array<const Command *, 7> s_commands;
