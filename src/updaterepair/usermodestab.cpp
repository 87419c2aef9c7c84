// The User Modes tab, and the status line that shows the input signal.

#include "updaterepair.h"

#include "displaytexts.h"
#include "ui_updaterepair.h"

#include <QDebug>
#include <QMessageBox>

#include <cstring>
#include <utility>

static constexpr uint16_t s_lastUserMode = 2;

UpdateRepair::UserModeWidgets UpdateRepair::userModeWidgets(uint16_t index)
{
    switch (index) {
    case 0:
        return {ui->userMode1Height, ui->userMode1Width, ui->userMode1};
    case 1:
        return {ui->userMode2Height, ui->userMode2Width, ui->userMode2};
    case 2:
        return {ui->userMode3Height, ui->userMode3Width, ui->userMode3};
    default:
        return {nullptr, nullptr, nullptr};
    }
}

// A sequence of three reads or three writes, each sent when the one before it has been answered.
void UpdateRepair::prepareUserModeRequest(const DeviceDescription &desc)
{
    userModeIndex = 0;
    userModeError = false;
    userModeStoring = false;
    userModeDevice = desc;
}

// ---- reading

void UpdateRepair::requestFirstUserMode()
{
    sendWhenStatusAnswered([this, desc = userModeDevice, index = userModeIndex] {
        userModeAction->requestConfigDeviceData<UserMode>(desc, USER_MODE, index, 0);
    });
}

void UpdateRepair::onGetUserModeComplete(uint8_t /*request*/, QSharedPointer<uint8_t> record,
                                         uint16_t /*size*/)
{
    if (userModeError || !record) {
        endConfigRequest();
        // What the page shows is not what the device holds.
        if (userModeError) {
            ui->tabUserMode->setEnabled(false);
        }
        loadIfRemembered();
        return;
    }
    UserMode mode;
    std::memcpy(&mode, record.data(), sizeof(mode));
    showUserMode(mode);
    if (userModeIndex == s_lastUserMode) {
        endConfigRequest();
        loadIfRemembered();
        return;
    }
    ++userModeIndex;
    emit userModeAction->getConfigDeviceData(userModeDevice, USER_MODE,
                                             makeConfigDeviceData(sizeof(UserMode)),
                                             sizeof(UserMode), userModeIndex, 0);
}

void UpdateRepair::showUserMode(const UserMode &mode)
{
    if (configAnswerStale) {
        return;
    }
    const auto [height, width, group] = userModeWidgets(userModeIndex);
    group->setChecked(mode.disabled == 0);
    width->setValue(mode.width);
    height->setValue(mode.height);
}

// ---- writing

void UpdateRepair::on_updateUserModesButton_clicked()
{
    DeviceDescription desc;
    if (!prepareConfigurationDeviceRequest(desc)) {
        return;
    }
    prepareUserModeRequest(desc);
    userModeStore(0);
}

void UpdateRepair::userModeStore(uint16_t index)
{
    userModeStoring = true;
    const auto [height, width, group] = userModeWidgets(index);
    UserMode mode;
    mode.width = static_cast<quint16>(width->value());
    mode.height = static_cast<quint16>(height->value());
    mode.disabled = group->isChecked() ? 0 : 1;
    const ConfigDeviceDataPtr record = makeConfigDeviceData(sizeof(mode));
    std::memcpy(record.data(), &mode, sizeof(mode));
    sendWhenStatusAnswered([this, desc = userModeDevice, index, record] {
        emit userModeAction->setConfigDeviceData(desc, USER_MODE, record, sizeof(UserMode), index,
                                                 0);
    });
}

void UpdateRepair::onSetUserModeComplete(uint8_t /*request*/)
{
    if (!userModeError && userModeIndex != s_lastUserMode) {
        ++userModeIndex;
        userModeStore(userModeIndex);
        return;
    }
    endConfigRequest();
    loadIfRemembered();
}

void UpdateRepair::onUserModeError(uint8_t /*request*/, const QString &text)
{
    qDebug() << "Setting/getting user mode error" << text;
    userModeError = true;
    // A failed read shows itself: its page is disabled.
    if (userModeStoring) {
        QMessageBox::critical(this, tr("Device Access Error"), text);
    }
}

// ---- the input signal

// Runs only while the controls are unlocked, so no poll starts during a scan, an update or a
// configuration request.
void UpdateRepair::onInputStatusTimer()
{
    DeviceDescription desc;
    if (statusPollRunning || !getCurrentDeviceDescription(desc)) {
        return;
    }
    statusPollRunning = true;
    statusAnswerStale = false;
    emit inputStatusAction->getConfigDeviceData(desc, INPUT_STATUS,
                                                makeConfigDeviceData(sizeof(InputStatusInfo)),
                                                sizeof(InputStatusInfo), 0, 0);
}

void UpdateRepair::onGetDeviceInputStatusComplete(uint8_t /*request*/,
                                                  QSharedPointer<uint8_t> record, uint16_t /*size*/)
{
    statusPollRunning = false;
    if (!std::exchange(statusAnswerStale, false)) {
        showInputStatus(record);
    }
    sendPending();
}

void UpdateRepair::showInputStatus(const QSharedPointer<uint8_t> &record)
{
    if (!record) {
        ui->inputSignalLabel->setText(tr("request not supported"));
        return;
    }
    InputStatusInfo status;
    std::memcpy(&status, record.data(), sizeof(status));
    // The device's texts are shown as they are, also when they look like mark-up.
    ui->inputSignalLabel->setTextFormat(Qt::PlainText);
    ui->inputSignalLabel->setText(inputStatusText(status));
}
