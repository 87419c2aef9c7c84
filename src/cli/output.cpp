#include "output.h"

#include "interrupts.h"
#include "standardstreams.h"
#include "thread.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QStringList>

#include <chrono>

namespace {

// How long what is said of a device at work waits for its reader: long enough that the lines of
// both files keep their order where they come to one terminal.
constexpr std::chrono::milliseconds s_politeness{100};

// How often it is looked whether somebody wants the waiting to end.
constexpr std::chrono::milliseconds s_glance{50};

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
    : results(StandardOutput),
      errors(StandardError),
      form(outputForm),
      errorTerminal(isCapableTerminal(StandardError)),
      colours(errorTerminal && qEnvironmentVariableIsEmpty("NO_COLOR"))
{
}

// Of what is said at the very end, when nothing can fail any more.
Output::~Output()
{
    errors.waitIfLive(s_politeness);
}

void Output::result(const QString &text, const QJsonObject &object)
{
    if (isJson()) {
        this->object(object);
    } else {
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
    const QString shown = printable(text).left(terminalWidth() - 1);
    errors.addIfRoom((QStringLiteral("\r\033[K") + shown).toUtf8());
    settle(errors);
    progressShown = !text.isEmpty();
}

void Output::diagnostic(const QString &text)
{
    errors.addIfRoom((printable(text) + QLatin1Char('\n')).toUtf8());
}

void Output::hurry()
{
    requireThread(results.start() && errors.start());
    hurried = true;
}

void Output::finish()
{
    const int signalsBefore = Interrupts::count();
    const auto isWritten = [this] { return results.waitFor(s_glance) && errors.waitFor(s_glance); };
    while (!isWritten() && Interrupts::count() == signalsBefore) {
    }
}

bool Output::hasFailed() const
{
    return readerHasGone || results.error() != 0;
}

void Output::lookForReader()
{
    readerHasGone = hasLostReader(StandardOutput);
}

void Output::reportFailure()
{
    const int failure = results.error();
    if (failure != 0 && !meansGoneReader(failure)) {
        error(QStringLiteral("cannot write standard output: ") + qt_error_string(failure));
    }
}

void Output::writeOutput(const QString &text)
{
    progressLine({});
    results.add(text.toUtf8());
    settle(results);
}

// What cannot be said cannot be said: a terminal that was lost must not end an update.
void Output::writeError(const QString &text)
{
    progressLine({});
    errors.add(text.toUtf8());
    settle(errors);
}

void Output::settle(FileWriter &file)
{
    if (hurried) {
        file.waitIfLive(s_politeness);
    } else {
        file.wait();
    }
}

QString Output::coloured(const QString &text) const
{
    return colours ? QStringLiteral("\033[31m") + text + QStringLiteral("\033[0m") : text;
}
