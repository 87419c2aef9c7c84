#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QStringList>
#include <QTemporaryDir>

// One run of capso-sim with the small libusb program, and what it left behind.
class SimRun
{
public:
    // Runs the verbs of sim_usbclient on a scene that is given as text.
    SimRun(const QByteArray &scene, const QStringList &verbs);
    // Runs capso-sim with these arguments; the scene's text goes to its standard input.
    SimRun(const QByteArray &scene, const QStringList &arguments, const QString &simDirectory);

    int exitCode() const { return code; }
    // What the program printed, by lines.
    const QStringList &lines() const { return output; }
    const QString &errors() const { return errorText; }
    // The transcript, all of it or only the events of one kind.
    const QList<QJsonObject> &transcript() const { return entries; }
    QList<QJsonObject> events(const QString &event) const;
    QJsonObject lastTransfer() const;
    QByteArray memory(const QString &device, const QString &file) const;
    QJsonObject state(const QString &device) const;

private:
    void run(const QByteArray &scene, const QStringList &arguments, const QString &simDirectory);
    void readTranscript(const QString &simDirectory);

    QTemporaryDir directory;
    int code = -1;
    QStringList output;
    QString errorText;
    QList<QJsonObject> entries;
};

// A file of the sample packages.
QString packageFile(const QString &name);
QByteArray contentOf(const QString &path);
