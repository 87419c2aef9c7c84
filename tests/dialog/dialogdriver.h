#pragma once

#include "configdevicetask.h"
#include "devicedescription.h"
#include "devicescanner.h"
#include "messageboxes.h"
#include "updaterepair.h"
#include "updatetask.h"

#include <QByteArray>
#include <QStringList>

class QListWidget;
class QTabWidget;

// Prepares the process: a dialog's workers find no USB, and their signals can be queued. Call it
// from initTestCase().
void prepareWithoutUsb();

// A device record as a scan would report it.
DeviceDescription describedDevice(const QString &productName);

// Bytes as the configuration task hands them over.
ConfigDeviceDataPtr configData(const QByteArray &bytes);

// The real dialog, whose first scan has ended, with the test in the place of its workers: what it
// asks of them is written down in `asked`, and the test answers by emitting the front objects'
// signals.
class DialogDriver
{
public:
    DialogDriver();

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
    QTabWidget *tabs() { return find<QTabWidget>("tabWidget"); }
    QString statusLine();
    void click(const char *objectName);
    // Shows the page of that object name.
    void openTab(const char *objectName);
    // Makes the row current and selects it, as a click does.
    void selectRow(int row);
    // Scans once and reports devices of these names.
    void listDevices(const QStringList &productNames);
    // What the timer does every two seconds.
    void pollNow();
    // What was asked since the last call.
    QStringList takeAsked();

    UpdateRepair dialog;
    DeviceScanner *scanner;
    UpdateTask *updateTask;
    ConfigDeviceAction *flags = nullptr;
    ConfigDeviceAction *inputStatus = nullptr;
    ConfigDeviceAction *userModes = nullptr;
    MessageBoxes boxes;

    // "scan", "start PRODUCT FILE", "get REQUEST PRODUCT size N index N value N" and
    // "set REQUEST PRODUCT size N index N value N BYTES".
    QStringList asked;

private:
    void takeOver(ConfigDeviceAction *action);
};
