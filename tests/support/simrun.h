#pragma once

#include "simtranscript.h"

#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

#include <functional>
#include <memory>
#include <vector>

// One run of `capso-sim SCENE -- capso-driver OPERATIONS` in a directory of its own, and everything
// that came of it: what the front objects signalled, what the devices saw, and what they hold.
class SimRun
{
public:
    // The scene's text; its transcript is always a full one. `program` is run instead of
    // capso-driver; it prints its events in the same form.
    SimRun(const QByteArray &scene, const QStringList &operations, const QString &program = {});

    // A variable for the simulator and the driver; call it before start().
    void setEnvironment(const QString &name, const QString &value)
    {
        environment.insert(name, value);
    }

    void start();
    // Waits until the run has ended. False, with the reason in failure(), when it did not end in
    // time or when the simulator was not content with it (its exit code is not 0).
    bool finish();
    // Both.
    bool run()
    {
        start();
        return finish();
    }
    bool isRunning() const { return process.state() != QProcess::NotRunning; }

    // A line of text to compare with what is expected of a front object, in order:
    // "progress 34", "error TEXT", "complete", "device SERIAL", and for the configuration
    // "flags get 226 1 17", "task get 226 0 null", "flags set 227", "flags error 226 TEXT".
    // `operation` counts from 1 over all words of the command line; 0 means all operations.
    QStringList signalsOf(int operation) const;
    QStringList errorsOf(int operation) const;
    // The events of one kind, or of all kinds, with all their fields.
    QVector<QJsonObject> eventsOf(int operation, const QString &kind = {}) const;
    QList<int> progressOf(int operation) const;
    // The rows of a scan, with all fields of the records.
    QVector<QJsonObject> devicesOf(int operation) const;
    // Answers of the simulator to `control` operations.
    QStringList controlAnswers() const;

    SimTranscript transcript() const;
    QByteArray memory(const QString &device, const QString &name) const; // "fx3", "fpga", "edid"
    QJsonObject state(const QString &device) const;

    int exitCode() const { return process.exitCode(); }
    QString failure() const { return reason; }
    QString standardError() const { return QString::fromUtf8(errorOutput); }
    QString directory() const { return folder.path(); }

private:
    void parseEvents(const QByteArray &output);

    QTemporaryDir folder;
    QStringList words;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    QProcess process;
    QVector<QJsonObject> events;
    QByteArray errorOutput;
    QString reason;
};

// Runs many at a time, since each of them spends its time waiting for pauses that the devices need.
class SimBatch
{
public:
    using Check = std::function<void(SimRun &run)>;

    // `title` is put before the reason when the run fails; `check` is called after it.
    void add(const QString &title, const QByteArray &scene, const QStringList &operations,
             const Check &check);
    // Runs all, at most `atOnce` at a time, and then every check, in the order of add(), until the
    // running test has failed.
    void run(int atOnce = 5);

private:
    struct Entry
    {
        QString title;
        std::unique_ptr<SimRun> run;
        Check check;
    };
    std::vector<Entry> entries;
};

// The first difference between two lists of lines, with its surroundings; empty when they are
// equal.
QString firstDifference(const QStringList &actual, const QStringList &expected);

// Fails the running test with the first difference.
#define COMPARE_LINES(actual, expected)                                                            \
    do {                                                                                           \
        const QString difference = firstDifference(actual, expected);                              \
        QVERIFY2(difference.isEmpty(), qPrintable(difference));                                    \
    } while (false)

// Runs it; fails the running test unless the driver and the simulator were content.
#define RUN(simRun) QVERIFY2((simRun).run(), qPrintable((simRun).failure()))
