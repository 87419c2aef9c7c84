#pragma once

#include "configdevicetask.h"
#include "devicedescription.h"
#include "records.h"
#include "turns.h"
#include "vendorrequests.h"

#include <QDialog>
#include <QSharedPointer>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <tuple>

class DeviceScanner;
class EmptyListHint;
class FocusKeeper;
class ListSelection;
class QGroupBox;
class QSpinBox;
class Ui_UpdateRepair;
class UpdateTask;

namespace platform {
class SessionHold;
}

// The program's one window: the list of capture devices, a tab each for updating the firmware, for
// the device's settings and for its user modes, and a line that shows the input signal of the
// selected device.
//
// Everything here runs in the GUI thread and nothing here touches USB: the scanner, the update task
// and the configuration task work on threads of their own and answer with queued signals. Each slot
// asks for work, sends it when it is its turn (see Turns) or shows an answer. The controls are
// locked while a scan, an update or a configuration request has begun and not ended, and the signal
// is polled only while they are not.
//
// The meta-types "DeviceDescription" and "uint8_t" must be registered before a dialog is made.
class UpdateRepair : public QDialog
{
    Q_OBJECT

public:
    explicit UpdateRepair(QWidget *parent = nullptr);
    ~UpdateRepair() override;

protected:
    void keyPressEvent(QKeyEvent *event) override;

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
    void describeForScreenReaders();

    // updaterepair.cpp: the end of a scan or of a configuration request, see Turns
    using Show = std::function<void()>;
    void unlockWhenIdle();
    void endWork(Turns::Work work, const Show &show = nullptr);
    // A configuration request, or a sequence of them: asked for by the first, ended after the last
    // answer. `show` is called once the controls are unlocked, `showAnswer` before it and only if
    // the answer is for the chosen row.
    void askConfiguration(const Turns::Send &send);
    void endConfiguration(const Show &show = nullptr, const Show &showAnswer = nullptr);

    // devicelist.cpp
    void forgetDevices();
    void hintIfNothingIsListed();
    void requestScan();

    // firmwaretab.cpp
    void startUpdate(const DeviceDescription &desc);

    // settingstab.cpp, usermodestab.cpp, inputsignal.cpp
    void loadSettings(const DeviceDescription &desc);
    void showDeviceFlags(uint8_t flags);
    void loadUserModes(const DeviceDescription &desc);
    void sendUserMode(uint16_t index, const Turns::Send &send);
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
    ListSelection *selection = nullptr; // of devicesList, which owns it
    std::unique_ptr<FocusKeeper> focusKeeper;
    EmptyListHint *emptyListHint = nullptr; // of devicesList, which owns it

    Turns turns;
    Turns::Ticket configTicket; // of the configuration request that was asked for last
    Turns::Ticket pollTicket;   // of the last poll

    // While an update runs. A child that is made after the update task and so deleted after it: in
    // a window that is closed, the task still waits for its update.
    platform::SessionHold *sessionHold = nullptr;
};
