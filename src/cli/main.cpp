#include "arguments.h"
#include "context.h"
#include "devicedescription.h"
#include "interrupts.h"
#include "qtcompat.h"
#include "standardfiles.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>

namespace {

void discardMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                    const QString & /*text*/)
{
}

// The modules repeat what devices and packages call themselves.
void showMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QString shown = printable(qFormatLogMessage(type, context, text));
    std::fprintf(stderr, "%s\n", qUtf8Printable(shown));
}

// What the modules say of their work goes to Qt's debug stream and to the standard log and error
// streams. It is for whoever looks for a fault, and hides what everybody else has to read.
void silenceModules()
{
    qInstallMessageHandler(discardMessage);
    std::clog.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
}

ExitStatus answer(const CommandLine &line)
{
    if (line.status != ExitStatus::Done) {
        Output output(line.form);
        output.errorLines(line.text);
        return output.failureObject(line.status, line.error);
    }
    const bool said = std::fputs(qUtf8Printable(line.text), stdout) >= 0;
    return said && std::fflush(stdout) == 0 ? ExitStatus::Done : ExitStatus::Failed;
}

ExitStatus run(int argc, char **argv)
{
    const CommandLine line =
        parseCommandLine(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
    if (!line.run) {
        return answer(line);
    }
    if (line.verbose) {
        qInstallMessageHandler(showMessage);
    } else {
        silenceModules();
    }
    const usb::Context context(line.verbose ? usb::Context::Messages::Warnings
                                            : usb::Context::Messages::None);
    int nameOnly = 1; // Qt takes some arguments for its own
    QCoreApplication application(nameOnly, argv);
    Interrupts interrupts;
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");

    Output output(line.form);
    Session session{output, interrupts};
    const ExitStatus status = runSafely(line.run, session);
    output.reportFailure();
    // What was done to a device counts for more than whether anybody could be told.
    return status == ExitStatus::Done && output.hasFailed() && !session.wroteDevice
               ? ExitStatus::Failed
               : status;
}

} // namespace

int main(int argc, char **argv)
{
    holdStandardFiles();
    try {
        return int(run(argc, argv));
    } catch (const std::exception &reason) {
        std::fprintf(stderr, "capso-cli: %s\n", reason.what());
        return int(ExitStatus::Failed);
    }
}
