#include "simulation.h"

#include "simcontrol.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {

QString directory()
{
    return qEnvironmentVariable("CAPSO_SIM_DIR");
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qPrintable(path));
    }
    return file.readAll();
}

} // namespace

QString simulation::control(const QString &command)
{
    const QByteArray answer = sendControlCommand(command.toUtf8());
    if (answer != "ok" && !answer.startsWith("ok ")) {
        qFatal("the simulator answers '%s' to '%s'", answer.constData(), qPrintable(command));
    }
    return QString::fromUtf8(answer.mid(3));
}

QJsonObject simulation::state(const QString &device)
{
    return QJsonDocument::fromJson(control("state " + device).toUtf8()).object();
}

QByteArray simulation::memory(const QString &device, const QString &image)
{
    control("dump");
    return contentOf(directory() + "/memory/" + device + '/' + image + ".bin");
}

QByteArray simulation::packagedImage(const QString &package, const QString &image)
{
    return contentOf(CAPSO_PACKAGES "/" + package + '/' + image + ".bin");
}

QString simulation::packageFile(const QString &package)
{
    return CAPSO_PACKAGES "/" + package + ".fw";
}

SimTranscript simulation::transcript()
{
    return SimTranscript::fromFile(directory() + "/transcript.jsonl");
}

int simulation::mark()
{
    return transcript().size();
}

QStringList simulation::requests(const QString &device, int since)
{
    return transcript().since(since).requests(device);
}

QStringList simulation::configRequests(const QString &device, int since)
{
    // Reading and writing the flags, and either with a user mode.
    static const QRegularExpression s_config("^. (e2|e3|b3) ");
    return requests(device, since).filter(s_config);
}

int simulation::countEvents(const QString &device, const QString &event, int since)
{
    return transcript().since(since).count(device, event);
}
