#pragma once

#include "exitstatus.h"
#include "filewriter.h"

#include <QJsonObject>
#include <QString>

// What the program says. Results go to standard output, as text or, when that was asked for, as
// JSON; everything else goes to standard error. All of it is UTF-8 whatever the locale says, so
// that a script reads the same on every machine. Main thread, where nothing else is said.
//
// A reader who takes nothing is waited for, and while nothing is under way with a device a signal
// ends the program there. Once a device is written to, nobody is waited for until finish().
class Output
{
public:
    enum class Form {
        Text,
        Json,
    };

    explicit Output(Form form);
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    bool isJson() const { return form == Form::Json; }
    // Standard error is a terminal on which a line can be written anew.
    bool showsProgressLine() const { return errorTerminal; }

    // One result: `text` for people, `object` for scripts, on a line of its own.
    void result(const QString &text, const QJsonObject &object);
    // The part of a result that only people, or only scripts, are given.
    void line(const QString &text);
    void lines(const QString &text); // this program's own, each with its line end
    void object(const QJsonObject &object);

    // Says what went wrong, and in JSON adds it as an object {"error": ..., "status": ...}.
    // Returns the status.
    ExitStatus failure(ExitStatus status, const QString &text, QJsonObject details = {});
    // What went wrong, on standard error alone.
    void error(const QString &text);
    // The same in several lines of this program's own, with the line ends that they have.
    void errorLines(const QString &text);
    // The object of a failure alone, for who has said it to people in another way.
    ExitStatus failureObject(ExitStatus status, const QString &text, QJsonObject details = {});
    // Anything else that a person should know.
    void note(const QString &text);
    // The same, in red on a terminal.
    void warning(const QString &text);
    // Replaces the progress line; an empty text removes it. Only where showsProgressLine().
    void progressLine(const QString &text);
    // A line for who looks for a fault. Any thread, none of which it keeps waiting: where nobody
    // reads, some are left out in the end, and their number is said.
    void diagnostic(const QString &text);

    // From now on nobody is waited for for long: a device is written to. Throws where the system
    // gives no thread to write on, since without one a reader who takes nothing would be waited
    // for.
    void hurry();
    // Waits until everything has been taken, or a signal comes that asks for the end.
    void finish();

    // Whether standard output has refused something: a full disk, a reader that has gone.
    bool hasFailed() const;
    // Notices that the reader of standard output has gone, before the next write would.
    void lookForReader();
    // Says why standard output failed, unless its reader has gone, who will not miss the rest.
    void reportFailure();

private:
    void writeOutput(const QString &text);
    void writeError(const QString &text);
    void settle(FileWriter &file);
    QString coloured(const QString &text) const;

    FileWriter results;
    FileWriter errors;
    Form form;
    bool errorTerminal;
    bool colours;
    bool progressShown = false;
    bool hurried = false;
    bool readerHasGone = false;
};

// The text with a "?" in the place of each character by which a device's or a package's text could
// steer a terminal, or be made to read as another text.
QString printable(const QString &text);
