#include "simrun.h"

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

namespace {

constexpr int s_patienceMs = 60000;

} // namespace

SimRun::SimRun(const QByteArray &scene, const QStringList &verbs)
{
    run(scene, QStringList{"-", "--", SIM_USBCLIENT} + verbs, directory.path());
}

SimRun::SimRun(const QByteArray &scene, const QStringList &arguments, const QString &simDirectory)
{
    run(scene, arguments, simDirectory);
}

void SimRun::run(const QByteArray &scene, const QStringList &arguments, const QString &simDirectory)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("CAPSO_SIM_DIR", simDirectory);
    process.setProcessEnvironment(environment);
    process.start(CAPSO_SIM, arguments);
    process.write(scene);
    process.closeWriteChannel();
    if (!process.waitForFinished(s_patienceMs)) {
        process.kill();
        process.waitForFinished(s_patienceMs);
    }
    code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    output = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    errorText = QString::fromUtf8(process.readAllStandardError());
    readTranscript(simDirectory);
}

void SimRun::readTranscript(const QString &simDirectory)
{
    const QByteArray text = contentOf(simDirectory + "/transcript.jsonl");
    for (const QByteArray &line : text.split('\n')) {
        if (line.isEmpty()) {
            continue;
        }
        QJsonParseError error;
        entries.append(QJsonDocument::fromJson(line, &error).object());
        if (error.error != QJsonParseError::NoError) {
            qFatal("the transcript holds a line that is no JSON: %s", line.constData());
        }
    }
}

QList<QJsonObject> SimRun::events(const QString &event) const
{
    QList<QJsonObject> found;
    for (const QJsonObject &entry : entries) {
        if (entry.value("event").toString() == event) {
            found.append(entry);
        }
    }
    return found;
}

QJsonObject SimRun::lastTransfer() const
{
    QJsonObject last;
    for (const QJsonObject &entry : entries) {
        if (entry.contains("transfer")) {
            last = entry;
        }
    }
    return last;
}

QByteArray SimRun::memory(const QString &device, const QString &file) const
{
    return contentOf(directory.filePath("memory/" + device + "/" + file));
}

QJsonObject SimRun::state(const QString &device) const
{
    return QJsonDocument::fromJson(memory(device, "state.json")).object();
}

QString packageFile(const QString &name)
{
    return QStringLiteral(SIM_PACKAGES "/") + name;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
