#include "simrun.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

namespace {

// Far more than any run takes: the machine may be busy with sixteen others, and
// sanitizers are slow. Less than the 300 seconds after which Qt Test ends the program.
constexpr int s_finishMs = 240 * 1000;

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString lineOf(const QJsonObject &event)
{
    const QString name = event["event"].toString();
    const QString front = event["front"].toString();
    const int request = event["request"].toInt();
    if (name == "progress") {
        return QString("progress %1").arg(event["value"].toInt());
    }
    if (name == "newDevice") {
        return "device " + event["serialNumber"].toString();
    }
    if (name == "error" && front.isEmpty()) {
        return "error " + event["text"].toString();
    }
    if (name == "error") {
        return QString("%1 error %2 ").arg(front).arg(request) + event["text"].toString();
    }
    if (name == "getRequestComplete") {
        const QString data = event["data"].isNull() ? "null" : event["data"].toString();
        return QString("%1 get %2 %3 ").arg(front).arg(request).arg(event["size"].toInt()) + data;
    }
    if (name == "setRequestComplete") {
        return QString("%1 set %2").arg(front).arg(request);
    }
    return name;
}

} // namespace

SimRun::SimRun(const QByteArray &scene, const QStringList &operations, const QString &program)
    : folder("/tmp/capso-XXXXXX")
{
    QFile file(folder.filePath("scene"));
    if (!file.open(QIODevice::WriteOnly)) {
        qFatal("cannot write %s", qPrintable(file.fileName()));
    }
    file.write("transcript full\n" + scene);
    words =
        QStringList{file.fileName(), "--", program.isEmpty() ? CAPSO_DRIVER : program} + operations;
}

void SimRun::start()
{
    environment.insert("CAPSO_SIM_DIR", folder.filePath("out"));
    environment.insert("LC_ALL", "C.UTF-8");
    // The simulator's preload comes before the sanitizer's, and the sanitizer is told not to mind.
    const QString options = environment.value("ASAN_OPTIONS");
    environment.insert("ASAN_OPTIONS", "verify_asan_link_order=0:" + options);
    process.setProcessEnvironment(environment);
    process.start(CAPSO_SIM, words);
}

bool SimRun::finish()
{
    const bool ended =
        process.state() == QProcess::NotRunning || process.waitForFinished(s_finishMs);
    if (!ended) {
        process.terminate();
        process.waitForFinished(10 * 1000);
    }
    errorOutput = process.readAllStandardError();
    parseEvents(process.readAllStandardOutput());
    if (!ended) {
        reason = "did not end in time\n" + standardError();
    } else if (process.error() == QProcess::FailedToStart) {
        reason = process.errorString();
    } else if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        reason = QString("exit code %1\n").arg(process.exitCode()) + standardError();
    }
    return reason.isEmpty();
}

void SimRun::parseEvents(const QByteArray &output)
{
    for (const QByteArray &line : output.split('\n')) {
        if (!line.isEmpty()) {
            events.append(QJsonDocument::fromJson(line).object());
        }
    }
}

QStringList SimRun::signalsOf(int operation) const
{
    QStringList lines;
    for (const QJsonObject &event : events) {
        if ((operation == 0 || event["op"] == operation) && event["event"] != "control") {
            lines.append(lineOf(event));
        }
    }
    return lines;
}

QStringList SimRun::errorsOf(int operation) const
{
    QStringList texts;
    for (const QJsonObject &event : events) {
        if (event["op"] == operation && event["event"] == "error") {
            texts.append(event["text"].toString());
        }
    }
    return texts;
}

QVector<QJsonObject> SimRun::eventsOf(int operation, const QString &kind) const
{
    QVector<QJsonObject> found;
    for (const QJsonObject &event : events) {
        if (event["op"] == operation && (kind.isEmpty() || event["event"] == kind)) {
            found.append(event);
        }
    }
    return found;
}

QList<int> SimRun::progressOf(int operation) const
{
    QList<int> values;
    for (const QJsonObject &event : events) {
        if (event["op"] == operation && event["event"] == "progress") {
            values.append(event["value"].toInt());
        }
    }
    return values;
}

QVector<QJsonObject> SimRun::devicesOf(int operation) const
{
    QVector<QJsonObject> rows;
    for (const QJsonObject &event : events) {
        if (event["op"] == operation && event["event"] == "newDevice") {
            QJsonObject row = event;
            for (const char *own : {"n", "op", "event"}) {
                row.remove(QLatin1String(own));
            }
            rows.append(row);
        }
    }
    return rows;
}

QStringList SimRun::controlAnswers() const
{
    QStringList answers;
    for (const QJsonObject &event : events) {
        if (event["event"] == "control") {
            answers.append(event["answer"].toString());
        }
    }
    return answers;
}

SimTranscript SimRun::transcript() const
{
    return SimTranscript::fromFile(folder.filePath("out/transcript.jsonl"));
}

QByteArray SimRun::memory(const QString &device, const QString &name) const
{
    return readFile(folder.filePath("out/memory/" + device + '/' + name + ".bin"));
}

QJsonObject SimRun::state(const QString &device) const
{
    const QString path = folder.filePath("out/memory/" + device + "/state.json");
    return QJsonDocument::fromJson(readFile(path)).object();
}

void SimBatch::add(const QString &title, const QByteArray &scene, const QStringList &operations,
                   const Check &check)
{
    entries.push_back({title, std::make_unique<SimRun>(scene, operations), check});
}

void SimBatch::run(int atOnce)
{
    // QProcess notices the end of a child in the event loop or when it is waited for; waiting for
    // the oldest one keeps the others going, since they need nobody.
    std::vector<SimRun *> running;
    for (Entry &entry : entries) {
        if (int(running.size()) == atOnce) {
            running.front()->finish();
            running.erase(running.begin());
        }
        entry.run->start();
        running.push_back(entry.run.get());
    }
    for (SimRun *last : running) {
        last->finish();
    }
    for (Entry &entry : entries) {
        QVERIFY2(entry.run->failure().isEmpty(),
                 qPrintable(entry.title + ": " + entry.run->failure()));
        entry.check(*entry.run);
        if (QTest::currentTestFailed()) {
            qWarning("in: %s", qPrintable(entry.title));
            return;
        }
    }
}

QString firstDifference(const QStringList &actual, const QStringList &expected)
{
    int at = 0;
    while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) {
        at += 1;
    }
    if (at == actual.size() && at == expected.size()) {
        return {};
    }
    const auto around = [at](const QStringList &lines) {
        const int from = qMax(0, at - 3);
        return lines.mid(from, at - from + 4).join("\n      ");
    };
    return QString(
               "differs at line %1 (%2 lines, %3 expected)\n   is\n      %4\n   expected\n      %5")
        .arg(at + 1)
        .arg(actual.size())
        .arg(expected.size())
        .arg(around(actual), around(expected));
}
