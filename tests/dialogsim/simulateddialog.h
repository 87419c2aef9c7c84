#pragma once

#include "dialogview.h"
#include "simulatedtest.h"
#include "simulation.h"

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
// control that is disabled does not react.
class SimulatedDialog : public DialogView
{
public:
    // Waits for the end of the first scan.
    SimulatedDialog();

    // The row of the device with this serial number; -1 if there is none.
    int rowOf(const QString &serial);

    void click(const char *objectName);
    void clickRow(int row);
    // Clicks the row of the device with this serial number.
    void select(const QString &serial);
    // Clicks a tab: 0 Firmware, 1 Settings, 2 User Modes.
    void clickTab(int tab);
    // Shows a page although the tabs are locked; the mouse could not do that.
    void showTab(int tab);
    void typePackage(const QString &fileName);

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

    int scansAsked = 1;
    int scansEnded = 0;
    QList<int> progress; // the values that the bar took

private:
    DeviceScanner *scanner;
};
