#include "arguments.h"
#include "context.h"
#include "devicedescription.h"
#include "interrupts.h"
#include "processstartup.h"
#include "qtcompat.h"
#include "standardfiles.h"

#include <QByteArray>
#include <QCoreApplication>

#include <cstdio>
#include <exception>
#include <iostream>
#include <mutex>
#include <optional>
#include <streambuf>

namespace {

void discardMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                    const QString & /*text*/)
{
}

// What the modules and the libraries say is said on whatever thread is at work with a device, which
// must not wait for a reader.
Output *s_output = nullptr;

void showMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    s_output->diagnostic(qFormatLogMessage(type, context, text));
}

void showLibusbMessage(const char *text)
{
    s_output->diagnostic(QString::fromUtf8(text).trimmed());
}

// The standard log and error streams, line by line.
class Lines : public std::streambuf
{
protected:
    std::streamsize xsputn(const char *text, std::streamsize length) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        line.append(text, int(length));
        for (int end = 0; (end = line.indexOf('\n')) >= 0;) {
            s_output->diagnostic(QString::fromUtf8(line.left(end)));
            line.remove(0, end + 1);
        }
        return length;
    }
    int overflow(int character) override
    {
        const char byte = char(character);
        xsputn(&byte, 1);
        return character;
    }

private:
    std::mutex mutex;
    QByteArray line; // what has no end yet
};

// For as long as one lives the modules are heard.
class Audience
{
public:
    Audience()
    {
        qInstallMessageHandler(showMessage);
        log = std::clog.rdbuf(&logLines);
        errors = std::cerr.rdbuf(&errorLines);
    }
    ~Audience()
    {
        qInstallMessageHandler(nullptr);
        std::clog.rdbuf(log);
        std::cerr.rdbuf(errors);
    }
    Audience(const Audience &) = delete;
    Audience &operator=(const Audience &) = delete;

private:
    Lines logLines;
    Lines errorLines;
    std::streambuf *log;
    std::streambuf *errors;
};

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
    Output output(Output::Form::Text);
    output.lines(line.text);
    output.reportFailure();
    return output.hasFailed() ? ExitStatus::Failed : ExitStatus::Done;
}

ExitStatus run(int argc, char **argv)
{
    const CommandLine line = parseCommandLine(argumentsOf(argc, argv));
    if (!line.run) {
        return answer(line);
    }
    divertPrinting(line.verbose);
    Output output(line.form);
    s_output = &output;
    std::optional<Audience> audience;
    if (line.verbose) {
        audience.emplace();
    } else {
        silenceModules();
    }
    const usb::Context context(line.verbose ? usb::Context::Messages::Warnings
                                            : usb::Context::Messages::None,
                               showLibusbMessage);
    int nameOnly = 1; // Qt takes some arguments for its own
    QCoreApplication application(nameOnly, argv);
    Interrupts interrupts;
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");

    Session session{output, interrupts};
    const ExitStatus status = runSafely(line.run, session);
    output.finish();
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
    platform::prepare_process();
    try {
        return int(run(argc, argv));
    } catch (const std::exception &reason) {
        std::fprintf(stderr, "capso-cli: %s\n", reason.what());
        return int(ExitStatus::Failed);
    }
}
