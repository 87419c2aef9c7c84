#pragma once

#include "messageboxes.h"
#include "simulatedtest.h"
#include "simulation.h"
#include "updaterepair.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>

class DeviceScanner;

// The dialog, shown, as its user has it: what is clicked here is clicked with the mouse, so that a
// control that is disabled does not react. Message boxes are noted and closed by their Ok.
class SimulatedDialog
{
public:
    // Waits for the end of the first scan.
    SimulatedDialog();

    // Finds a widget by its object name; the test ends when there is none.
    template<typename Widget> Widget *find(const char *objectName)
    {
        auto *widget = dialog.findChild<Widget *>(QLatin1String(objectName));
        if (!widget) {
            qFatal("no widget %s", objectName);
        }
        return widget;
    }

    QListWidget *list() { return find<QListWidget>("devicesList"); }
    QStringList rows();
    // The row of the device with this serial number; -1 if there is none.
    int rowOf(const QString &serial);
    QString statusLine() { return find<QLabel>("inputSignalLabel")->text(); }
    // Whether the tabs can be used.
    bool isUnlocked() { return find<QTabWidget>("tabWidget")->isEnabled(); }
    // The boxes of the Settings page that are checked, in the words of flagboxes.h.
    QString checkBoxes();
    // "1280x720 on, 0x0 off, ..." for the three user modes.
    QString userModes();
    // The red label, empty when it is not visible; the bar's text likewise.
    QString warning();
    QString barText();
    // The boxes so far, e.g. "critical|Update Error|the text|Ok".
    QStringList boxTexts() const;

    void click(const char *objectName);
    void clickRow(int row);
    // Clicks the row of the device with this serial number.
    void select(const QString &serial);
    // Clicks a tab: 0 Firmware, 1 Settings, 2 User Modes.
    void clickTab(int tab);
    // Shows a page although the tabs are locked; the mouse could not do that.
    void showTab(int tab);
    void typePackage(const QString &fileName);
    void setUserMode(int mode, int width, int height, bool on);

    // Whether this comes true while the event loop runs.
    bool waitUntil(const std::function<bool()> &condition);
    // Opens the page and waits for its content.
    bool openTab(int tab);
    bool waitForScan(int number) // the first is number 1
    {
        return waitUntil([this, number] { return scansEnded >= number; });
    }
    // Waits until a status poll has begun (the device is open and has not answered). Make polls
    // slow before.
    bool waitForPollUnderWay(const QString &device);

    UpdateRepair dialog;
    MessageBoxes boxes;
    int scansAsked = 1;
    int scansEnded = 0;
    QList<int> progress; // the values that the bar took

private:
    DeviceScanner *scanner;
};
