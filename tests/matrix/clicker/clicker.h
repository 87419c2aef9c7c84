#pragma once

#include "eventlog.h"
#include "simulateddialog.h"

#include <QStringList>

class ConfigDeviceTask;
class UpdateTask;

// Uses the dialog as a person would, one operation after another, and logs everything that the
// front objects signal and everything that the person sees.
//
// Between two operations no event is handled, so that no status poll slips in: the next poll of a
// selected device is due two seconds after the controls were unlocked.
class Clicker : public QObject
{
    Q_OBJECT

public:
    Clicker();

    // Runs the operations that the words name. Returns 0, or 3 when a word is unknown or something
    // does not end.
    int run(QStringList words);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void listenToScanner();
    void listenToUpdate();
    void listenToConfig();

    // Each of these returns false when it did not end.
    bool runOperation(const QString &operation, QStringList &words);
    bool rescan();
    bool update(const QString &serial, const QString &package);
    bool select(const QString &serial);
    bool openTab(int tab);
    bool awaitPoll();
    static bool awaitMode(const QString &device, const QString &mode);
    bool applyFlags(const QString &boxes);
    bool applyModes(const QStringList &modes);

    bool waitFor(const std::function<bool()> &condition);
    void logWhatIsSeen();

    EventLog log;
    SimulatedDialog user;
    int updatesEnded = 0;
    int pollsAnswered = 0;
    int boxesLogged = 0;
};
