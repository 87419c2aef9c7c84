#pragma once

#include "configdevicetask.h"
#include "devicedescription.h"
#include "devicescanner.h"
#include "dialogview.h"
#include "updatetask.h"

#include <QByteArray>
#include <QStringList>

// Prepares the process: a dialog's workers find no USB, and their signals can be queued. Call it
// from initTestCase().
void prepareWithoutUsb();

// A device record as a scan would report it.
DeviceDescription describedDevice(const QString &productName);

// Bytes as the configuration task hands them over.
ConfigDeviceDataPtr configData(const QByteArray &bytes);

// The dialog, whose first scan has ended, with the test in the place of its workers: what it asks
// of them is written down in `asked`, and the test answers by emitting the front objects' signals.
class DialogDriver : public DialogView
{
public:
    DialogDriver();

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

    // The dialog's object that takes the answers to this request.
    ConfigDeviceAction *actionFor(uint8_t request);

    DeviceScanner *scanner;
    UpdateTask *updateTask;
    ConfigDeviceAction *flags;
    ConfigDeviceAction *inputStatus;
    ConfigDeviceAction *modes;

    // "scan", "start PRODUCT FILE", and of a request the product and what is sent, in the form of
    // requestline.h: "A < e2 v0 i0 1".
    QStringList asked;

private:
    void takeOver(ConfigDeviceAction *action);
};
