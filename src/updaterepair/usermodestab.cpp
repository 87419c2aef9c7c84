// The User Modes tab.

#include "updaterepair.h"

#include "literalmessage.h"
#include "ui_updaterepair.h"

#include <QDebug>
#include <QMessageBox>

#include <cstring>

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

// The first request of the sequence waits for its turn; the others have it.
void UpdateRepair::sendUserMode(uint16_t index, const Turns::Send &send)
{
    if (index == 0) {
        askConfiguration(send);
    } else {
        send();
    }
}

// ---- reading

void UpdateRepair::loadUserModes(const DeviceDescription &desc)
{
    prepareUserModeRequest(desc);
    sendUserMode(userModeIndex, [this, desc, index = userModeIndex] {
        userModeAction->requestConfigDeviceData<UserMode>(desc, USER_MODE, index, 0);
    });
}

void UpdateRepair::onGetUserModeComplete(uint8_t /*request*/, QSharedPointer<uint8_t> record,
                                         uint16_t /*size*/)
{
    if (userModeError || !record) {
        endConfiguration([this] {
            // After an error the page does not show what the device holds.
            ui->tabUserMode->setEnabled(!userModeError);
        });
        return;
    }
    UserMode mode;
    std::memcpy(&mode, record.data(), sizeof(mode));
    showUserMode(mode);
    if (userModeIndex == s_lastUserMode) {
        endConfiguration();
        return;
    }
    ++userModeIndex;
    emit userModeAction->getConfigDeviceData(userModeDevice, USER_MODE,
                                             makeConfigDeviceData(sizeof(UserMode)),
                                             sizeof(UserMode), userModeIndex, 0);
}

void UpdateRepair::showUserMode(const UserMode &mode)
{
    if (!configTicket.isWanted()) {
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
    sendUserMode(index, [this, desc = userModeDevice, index, record] {
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
    endConfiguration();
}

void UpdateRepair::onUserModeError(uint8_t /*request*/, const QString &text)
{
    qDebug() << "Setting/getting user mode error" << text;
    userModeError = true;
    // A failed read shows itself: its page is disabled.
    if (userModeStoring) {
        QMessageBox::critical(this, tr("Device Access Error"), literalMessage(text));
    }
}
