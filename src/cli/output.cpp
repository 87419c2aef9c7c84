#include "output.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QStringList>

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// Waits until the file takes more. One that others have made non-blocking is as slow as its reader.
void waitForRoom(int file)
{
    pollfd room{file, POLLOUT, 0};
    poll(&room, 1, -1);
}

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
        if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            waitForRoom(file);
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

// Whether a terminal obeys the character instead of showing it: the control characters, and those
// of Unicode that are there for the layout, by which a text can be made to read as another one (the
// marks of writing direction among them).
bool steers(uint character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

// The text with `replacement` in the place of each character that steers.
template<typename Replacement>
QString withoutSteering(const QString &text, const Replacement &replacement)
{
    QString result;
    result.reserve(text.size());
    for (int i = 0; i < int(text.size()); ++i) {
        const QChar first = text.at(i);
        const bool isPair =
            first.isHighSurrogate() && i + 1 < int(text.size()) && text.at(i + 1).isLowSurrogate();
        const QString character = text.mid(i, isPair ? 2 : 1);
        const uint code =
            isPair ? QChar::surrogateToUcs4(first, text.at(i + 1)) : uint(first.unicode());
        result += steers(code) ? replacement(character) : character;
        i += isPair ? 1 : 0;
    }
    return result;
}

// As JSON writes any character that it does not want to show.
QString escaped(const QString &character)
{
    QString result;
    for (const QChar unit : character) {
        result += QStringLiteral("\\u%1").arg(unit.unicode(), 4, 16, QLatin1Char('0'));
    }
    return result;
}

} // namespace

QString printable(const QString &text)
{
    return withoutSteering(text, [](const QString &) { return QStringLiteral("?"); });
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

void Output::lines(const QString &text)
{
    if (!isJson()) {
        writeOutput(text);
    }
}

void Output::object(const QJsonObject &object)
{
    if (isJson()) {
        // Such characters stand nowhere but in strings.
        const QString text =
            QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
        writeOutput(withoutSteering(text, escaped) + QLatin1Char('\n'));
    }
}

ExitStatus Output::failure(ExitStatus status, const QString &text, QJsonObject details)
{
    error(text);
    return failureObject(status, text, details);
}

ExitStatus Output::failureObject(ExitStatus status, const QString &text, QJsonObject details)
{
    details.insert(QStringLiteral("error"), text);
    details.insert(QStringLiteral("status"), int(status));
    object(details);
    return status;
}

void Output::error(const QString &text)
{
    writeError(QStringLiteral("capso-cli: ") + coloured(printable(text)) + QLatin1Char('\n'));
}

void Output::errorLines(const QString &text)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString &line : lines) {
        line = printable(line);
    }
    writeError(QStringLiteral("capso-cli: ") + lines.join(QLatin1Char('\n')));
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

void Output::lookForReader()
{
    pollfd file{STDOUT_FILENO, 0, 0};
    if (outputError == 0 && poll(&file, 1, 0) == 1 && (file.revents & POLLERR) != 0) {
        outputError = EPIPE;
    }
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
