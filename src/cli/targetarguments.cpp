#include "targetarguments.h"

#include "output.h"

#include <CLI/CLI.hpp>

#include <memory>

TargetArguments::TargetArguments(const QStringList &words, bool takesAssignments)
{
    for (const QString &word : words) {
        const bool isFirst = !device && allAssignments.empty();
        const auto equals = word.indexOf(QLatin1Char('='));
        if (isFirst && (equals < 0 || !takesAssignments)) {
            device = word;
        } else {
            allAssignments.push_back({word, word.left(equals), word.mid(equals + 1)});
        }
    }
}

Selection TargetArguments::select(const Devices &devices) const
{
    return device ? selectNamed(devices, {*device}) : selectOnly(devices, isRunning);
}

CommandRun declareTarget(CLI::App &app, const char *valueName, const char *valueHelp,
                         const TargetRun &run)
{
    // One list for both: which word is which is for TargetArguments to say.
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::Option *option = app.add_option("DEVICE", *words);
    if (valueName) {
        option->description(std::string("Serial number or port path; may be left out when only one "
                                        "device runs.\n") +
                            valueName + ": " + valueHelp);
        option->option_text(std::string("[") + valueName + " ...]");
        option->expected(0, 1 << 10);
    } else {
        option->description("Serial number or port path; may be left out when only one "
                            "device runs");
        option->expected(0, 1);
    }
    const bool takesAssignments = valueName != nullptr;
    return [words, takesAssignments, run](Session &session) {
        QStringList texts;
        for (const std::string &word : *words) {
            texts += QString::fromStdString(word);
        }
        return run(session, TargetArguments(texts, takesAssignments));
    };
}

ExitStatus withTarget(Session &session, const TargetArguments &arguments, const TargetWork &work)
{
    const Devices devices = findDevices(session);
    const Selection selection = arguments.select(devices);
    if (selection.status != ExitStatus::Done) {
        return report(session.output, selection);
    }
    Configuration configuration;
    return work(configuration, *selection.devices.front());
}

ExitStatus requestFailed(Session &session, const ListedDevice &device, const QString &text,
                         const QJsonObject &details)
{
    return session.output.failure(statusNow(device, session.places),
                                  QStringLiteral("%1: %2").arg(nameOf(device), text), details);
}
