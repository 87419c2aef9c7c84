#include "command.h"

#include "interrupts.h"
#include "output.h"

#include <exception>

const std::array<const Command *, 7> s_commands{
    &s_listCommand,   &s_updateCommand,  &s_settingsCommand, &s_modesCommand,
    &s_signalCommand, &s_packageCommand, &s_doctorCommand,
};

void Session::beginWriting()
{
    output.hurry();
    wroteDevice = true;
    Interrupts::keep();
}

ExitStatus runSafely(const CommandRun &run, Session &session)
{
    try {
        return run(session);
    } catch (const std::exception &reason) {
        return session.output.failure(ExitStatus::Failed, QString::fromUtf8(reason.what()));
    }
}
