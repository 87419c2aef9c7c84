#include "output.h"

#include <QByteArray>
#include <QJsonDocument>

#include <cerrno>
#include <cstring>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// Writes all of it; returns 0, or the errno of the write that failed.
int writeAll(int file, const QByteArray &bytes)
{
    const char *at = bytes.constData();
    auto left = std::size_t(bytes.size());
    while (left > 0) {
        const ssize_t written = write(file, at, left);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return errno;
        }
        at += written;
        left -= std::size_t(written);
    }
    return 0;
}

bool isCapableTerminal(int file)
{
    const QByteArray type = qgetenv("TERM");
    return isatty(file) == 1 && !type.isEmpty() && type != "dumb";
}

int terminalWidth()
{
    constexpr int usualWidth = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : usualWidth;
}

} // namespace

QString printable(const QString &text)
{
    QString result = text;
    for (QChar &character : result) {
        if (character.category() == QChar::Other_Control) {
            character = QLatin1Char('?');
        }
    }
    return result;
}

Output::Output(Form outputForm)
    : form(outputForm),
      errorTerminal(isCapableTerminal(STDERR_FILENO)),
      colours(errorTerminal && qEnvironmentVariableIsEmpty("NO_COLOR"))
{
}

void Output::result(const QString &text, const QJsonObject &object)
{
    if (isJson()) {
        this->object(object);
    } else if (!text.isEmpty()) {
        line(text);
    }
}

void Output::line(const QString &text)
{
    if (!isJson()) {
        writeOutput(printable(text) + QLatin1Char('\n'));
    }
}

void Output::object(const QJsonObject &object)
{
    if (isJson()) {
        writeOutput(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) +
                    QLatin1Char('\n'));
    }
}

ExitStatus Output::failure(ExitStatus status, const QString &text, QJsonObject details)
{
    error(text);
    details.insert(QStringLiteral("error"), text);
    details.insert(QStringLiteral("status"), int(status));
    object(details);
    return status;
}

void Output::error(const QString &text)
{
    writeError(QStringLiteral("capso-cli: ") + coloured(printable(text)) + QLatin1Char('\n'));
}

void Output::note(const QString &text)
{
    writeError(printable(text) + QLatin1Char('\n'));
}

void Output::warning(const QString &text)
{
    writeError(coloured(printable(text)) + QLatin1Char('\n'));
}

void Output::progressLine(const QString &text)
{
    if (text.isEmpty() && !progressShown) {
        return;
    }
    progressShown = false; // so that writeError() leaves the line to what follows
    const QString shown = printable(text).left(terminalWidth() - 1);
    writeError(QStringLiteral("\r\033[K") + shown);
    progressShown = !text.isEmpty();
}

void Output::reportFailure()
{
    if (outputError != 0 && outputError != EPIPE) {
        error(QStringLiteral("cannot write standard output: ") +
              QString::fromLocal8Bit(std::strerror(outputError)));
    }
}

void Output::writeOutput(const QString &text)
{
    progressLine({});
    if (outputError == 0) {
        outputError = writeAll(STDOUT_FILENO, text.toUtf8());
    }
}

// What cannot be said cannot be said: a terminal that was lost must not end an update.
void Output::writeError(const QString &text)
{
    progressLine({});
    writeAll(STDERR_FILENO, text.toUtf8());
}

QString Output::coloured(const QString &text) const
{
    return colours ? QStringLiteral("\033[31m") + text + QStringLiteral("\033[0m") : text;
}
