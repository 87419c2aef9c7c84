#include "arguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <regex>
#include <sstream>

namespace {

constexpr const char *s_about =
    "Updates, repairs and configures USB capture devices from the command line.\n"
    "DEVICE is a serial number or a bus and port path (1-2.3), as 'capso-cli list' shows it.";

constexpr const char *s_exitStatuses =
    "Exit status:\n"
    "  0  done (also: nothing to list, nothing left to update)\n"
    "  1  a device or a package failed\n"
    "  2  wrong use\n"
    "  3  no such device, or not exactly one\n"
    "  4  no right to open the device, or another program holds it\n"
    "  5  some of several failed\n"
    "Where all of several failed, it is 1 unless all have the same one.\n"
    "\n"
    "'capso-cli COMMAND --help' tells more of a command, capso-cli(1) of all.";

struct CommonOptions
{
    bool json = false;
    bool verbose = false;
};

void addCommonOptions(CLI::App &app, CommonOptions &options)
{
    app.add_flag("--json", options.json, "Print results as JSON, for scripts");
    app.add_flag("--verbose", options.verbose, "Say on standard error what is done, and how");
}

// Help and version end the parsing as an error does; both have an exit code of 0.
CommandLine ended(const CLI::App &app, const CLI::ParseError &reason)
{
    std::ostringstream output;
    std::ostringstream errors;
    app.exit(reason, output, errors);
    CommandLine result;
    const bool asked = reason.get_exit_code() == 0;
    result.status = asked ? ExitStatus::Done : ExitStatus::Usage;
    result.text = QString::fromStdString(asked ? output.str() : errors.str());
    result.error = asked ? QString() : QString::fromUtf8(reason.what());
    return result;
}

// Where the parsing has ended before it came to the option, whoever gave it reads JSON all the
// same.
Output::Form formOf(const std::vector<std::string> &arguments)
{
    // CLI11 takes a flag with a value as well: "--json=true", "--json=1", and what denies it.
    const std::regex asked("--json(=(?!(false|off|no|disable|0|f|n|-)$).*)?", std::regex::icase);
    const auto asksForJson = [&asked](const std::string &word) {
        return std::regex_match(word, asked);
    };
    return std::any_of(arguments.begin(), arguments.end(), asksForJson) ? Output::Form::Json
                                                                        : Output::Form::Text;
}

// A script's variable that is not set leaves a word empty, which must not pass for one left out.
// The others are words that CLI11 makes lists of, empty ones among them, or takes the next word
// for.
void refuseEmptyWords(const std::vector<std::string> &arguments)
{
    for (const std::string &word : arguments) {
        if (word.empty()) {
            throw CLI::ValidationError("an argument is empty", CLI::ExitCodes::ValidationError);
        }
        const bool isList = word.front() == '[' && word.back() == ']';
        const bool isOptionOfNothing = word.rfind("--", 0) == 0 && word.back() == '=';
        if (isList || isOptionOfNothing || word == "{}") {
            throw CLI::ValidationError("'" + word + "' is no argument",
                                       CLI::ExitCodes::ValidationError);
        }
    }
}

} // namespace

CommandLine parseCommandLine(std::vector<std::string> arguments)
{
    CLI::App app(s_about, "capso-cli");
    app.allow_windows_style_options(false); // "/velk3.fw" is a package's path there, too
    CommonOptions options;
    addCommonOptions(app, options);
    app.set_version_flag("--version", std::string("capso-cli " CAPSO_VERSION), "Print the version");
    app.set_help_flag("-h,--help", "Print this help");
    app.footer(s_exitStatuses);
    app.require_subcommand(0, 1); // CLI11's own demand for one hides a command that is misspelt

    CommandLine result;
    const Output::Form form = formOf(arguments);
    for (const Command *command : s_commands) {
        CLI::App *its = app.add_subcommand(command->name, command->summary);
        const CommandRun run = command->declare(*its);
        addCommonOptions(*its, options);
        its->footer(std::string("Examples:\n") + command->examples);
        its->callback([&result, run] { result.run = run; });
    }
    try {
        refuseEmptyWords(arguments);
        std::reverse(arguments.begin(), arguments.end()); // CLI11 takes them from the end
        app.parse(std::move(arguments));
        if (!result.run) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::ParseError &reason) {
        result = ended(app, reason);
    }
    result.form = options.json ? Output::Form::Json : form;
    result.verbose = options.verbose;
    return result;
}
