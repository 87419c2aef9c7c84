#pragma once

#include "configdevicetask.h"
#include "devicedescription.h"
#include "records.h"
#include "vendorrequests.h"

#include <QDialog>
#include <QSharedPointer>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

class DeviceScanner;
class QGroupBox;
class QSpinBox;
class Ui_UpdateRepair;
class UpdateTask;

// The program's one window: the list of capture devices, a tab each for updating the firmware, for
// the device's settings and for its user modes, and a line that shows the input signal of the
// selected device.
//
// Everything here runs in the GUI thread and nothing here touches USB: the scanner, the update task
// and the configuration task work on threads of their own and answer with queued signals. A
// device's interface can be claimed by one of them at a time, so the dialog never has two of them
// at work on the same device: the controls are locked while a scan, an update or a configuration
// request is running, and the signal is polled only while they are not. A request that is asked for
// while a poll is unanswered is sent when the answer is there, and so is a scan that is asked for
// during a configuration request.
//
// The meta-types "DeviceDescription" and "uint8_t" must be registered before a dialog is made.
class UpdateRepair : public QDialog
{
    Q_OBJECT

public:
    explicit UpdateRepair(QWidget *parent = nullptr);
    ~UpdateRepair() override;

private slots:
    void on_firmwareSelectButton_clicked();
    void on_rescanDevicesButton_clicked();
    void on_updateButton_clicked();
    void on_tabWidget_currentChanged(int index);
    void on_updateSettingsButton_clicked();
    void on_devicesList_itemSelectionChanged();
    void on_firmwareLineEdit_textChanged();
    void on_updateUserModesButton_clicked();
    void onNewDevice(const DeviceDescription &desc);
    void onScanComplete();
    void onScanError(const QString &text);
    void onUpdateProgress(int progress);
    void onUpdateComplete();
    void onUpdateError(const QString &text);
    void onGetDeviceFlagsComplete(uint8_t request, QSharedPointer<uint8_t> data, uint16_t size);
    void onSetDeviceFlagsComplete(uint8_t request);
    void onDeviceFlagsError(uint8_t request, const QString &text);
    void onGetDeviceInputStatusComplete(uint8_t request, QSharedPointer<uint8_t> data,
                                        uint16_t size);
    void onGetUserModeComplete(uint8_t request, QSharedPointer<uint8_t> data, uint16_t size);
    void onSetUserModeComplete(uint8_t request);
    void onUserModeError(uint8_t request, const QString &text);
    void onInputStatusTimer();

private:
    using DeviceFlagsAction =
        ConfigDeviceActionBase<uint8_t, GET_DEVICE_FLAGS, SET_DEVICE_FLAGS, 0, 0>;
    using InputStatusAction = ConfigDeviceActionBase<InputStatusInfo, INPUT_STATUS, 0, 0, 0>;
    using UserModeAction = ConfigDeviceActionBase<UserMode, USER_MODE, USER_MODE, 0, 0>;
    using UserModeWidgets = std::tuple<QSpinBox *, QSpinBox *, QGroupBox *>; // height, width, group

    // Starts a scan and hides the progress of an earlier update.
    void scanDevices();
    // Unlocks or locks the tabs and, with them, the polling of the input signal.
    void setControlsAllowUserAccess(bool allow);
    void tryEnableDeviceControls();
    void resetDeviceControls();
    // Fetches the record of the current row; false, and desc untouched, when there is no such row.
    bool getCurrentDeviceDescription(DeviceDescription &desc);
    // The same for a configuration request, for which it locks the controls. Without a row it says
    // so to the user and returns false.
    bool prepareConfigurationDeviceRequest(DeviceDescription &desc);
    void prepareSettingsRequest();
    // Reads what the current tab shows from the current row's device. While the controls are locked
    // it only remembers that it was asked.
    void tryLoadDeviceSettings();
    void prepareUserModeRequest(const DeviceDescription &desc);
    // The widgets of user mode 0, 1 or 2; three null pointers for any other index.
    UserModeWidgets userModeWidgets(uint16_t index);
    void userModeStore(uint16_t index);

    void connectFrontObjects();
    void selectCurrentRow(int row);

    // updaterepair.cpp: whose turn it is
    void unlockWhenNothingRuns();
    void endConfigRequest();
    void loadIfRemembered();
    void sendWhenStatusAnswered(std::function<void()> send);
    void sendPending();

    // firmwaretab.cpp
    void forgetDevices();
    void requestScan();
    void startUpdate(const DeviceDescription &desc);

    // settingstab.cpp, usermodestab.cpp
    void requestDeviceFlags(const DeviceDescription &desc);
    void showDeviceFlags(uint8_t flags);
    void requestFirstUserMode();
    void showUserMode(const UserMode &mode);
    void showInputStatus(const QSharedPointer<uint8_t> &record);

    std::unique_ptr<Ui_UpdateRepair> ui;
    DeviceScanner *scanner;
    UpdateTask *updateTask;
    ConfigDeviceTask *configTask;
    DeviceFlagsAction *deviceFlagsAction;
    InputStatusAction *inputStatusAction;
    UserModeAction *userModeAction;
    bool allowUserAccess = false;  // no scan, update or configuration request is running
    bool deviceFlagsError = false; // the flags request that is running has failed
    bool updateError = false;      // the update that is running has failed
    bool userModeError = false;    // a user mode request of the running sequence has failed
    bool userModeStoring = false;  // the sequence writes; only then are its failures shown
    uint16_t userModeIndex = 0;    // the mode whose request is under way
    DeviceDescription userModeDevice;
    QTimer inputStatusTimer;

    // What has been asked for and has not ended yet, sent or not.
    int scansRunning = 0;
    bool updateRunning = false;
    bool configRequestRunning = false;
    bool statusPollRunning = false;

    // What has been asked for and not been sent, since a poll or, for a scan, a configuration
    // request has the device.
    std::vector<std::function<void()>> pendingRequests;
    int pendingScans = 0;

    bool loadRemembered = false;    // a tab or a row was chosen while the controls were locked
    bool configAnswerStale = false; // another row was chosen since the request was made
    bool statusAnswerStale = false; // the list was cleared since the poll was sent
};
