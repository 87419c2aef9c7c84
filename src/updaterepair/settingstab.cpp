// The Settings tab: four of the bits of the device flags byte.

#include "updaterepair.h"

#include "ui_updaterepair.h"

#include <QDebug>
#include <QMessageBox>

namespace {

struct FlagBox
{
    DeviceFlag flag;
    QCheckBox *Ui_UpdateRepair::*checkBox;
};

// The other bits have no box: they are not shown, and written as 0.
constexpr FlagBox s_flagBoxes[] = {
    {UseInputResolution, &Ui_UpdateRepair::reenumerateCheckBox},
    {KeepAspectRatio, &Ui_UpdateRepair::keepAspectRatioCheckBox},
    {PerformanceMode, &Ui_UpdateRepair::performanceModeCheckBox},
    {AudioSelector, &Ui_UpdateRepair::audioSelectorCheckBox},
};

} // namespace

// ---- loading either configuration tab

void UpdateRepair::tryLoadDeviceSettings()
{
    if (!allowUserAccess) {
        // The answer that is under way is for what was chosen before; what is chosen now follows
        // it.
        loadRemembered = true;
        return;
    }
    if (ui->devicesList->currentRow() < 0) {
        return;
    }
    const QWidget *page = ui->tabWidget->currentWidget();
    if (page != ui->tabSettings && page != ui->tabUserMode) {
        return;
    }
    DeviceDescription desc;
    if (!prepareConfigurationDeviceRequest(desc)) {
        return;
    }
    if (page == ui->tabSettings) {
        prepareSettingsRequest();
        requestDeviceFlags(desc);
    } else {
        prepareUserModeRequest(desc);
        requestFirstUserMode();
    }
}

void UpdateRepair::on_tabWidget_currentChanged(int /*index*/)
{
    tryLoadDeviceSettings();
}

// ---- the flags

void UpdateRepair::prepareSettingsRequest()
{
    deviceFlagsError = false;
}

void UpdateRepair::requestDeviceFlags(const DeviceDescription &desc)
{
    sendWhenStatusAnswered([this, desc] {
        emit deviceFlagsAction->getConfigDeviceData(desc, GET_DEVICE_FLAGS, makeConfigDeviceData(1),
                                                    1, 0, 0);
    });
}

void UpdateRepair::on_updateSettingsButton_clicked()
{
    DeviceDescription desc;
    if (!prepareConfigurationDeviceRequest(desc)) {
        return;
    }
    prepareSettingsRequest();
    uint8_t flags = 0;
    for (const FlagBox &box : s_flagBoxes) {
        if ((ui.get()->*box.checkBox)->isChecked()) {
            flags |= box.flag;
        }
    }
    const ConfigDeviceDataPtr record = makeConfigDeviceData(sizeof(flags));
    *record = flags;
    sendWhenStatusAnswered([this, desc, record] {
        emit deviceFlagsAction->setConfigDeviceData(desc, SET_DEVICE_FLAGS, record, 1, 0, 0);
    });
}

void UpdateRepair::onGetDeviceFlagsComplete(uint8_t /*request*/, QSharedPointer<uint8_t> record,
                                            uint16_t /*size*/)
{
    endConfigRequest();
    if (!deviceFlagsError && record) {
        showDeviceFlags(*record);
        ui->tabSettings->setEnabled(true);
    }
    loadIfRemembered();
}

void UpdateRepair::showDeviceFlags(uint8_t flags)
{
    if (configAnswerStale) {
        return;
    }
    for (const FlagBox &box : s_flagBoxes) {
        (ui.get()->*box.checkBox)->setChecked((flags & box.flag) != 0);
    }
}

void UpdateRepair::onSetDeviceFlagsComplete(uint8_t /*request*/)
{
    endConfigRequest();
    ui->tabSettings->setEnabled(true);
    loadIfRemembered();
}

void UpdateRepair::onDeviceFlagsError(uint8_t /*request*/, const QString &text)
{
    qDebug() << "Setting/getting flags error" << text;
    deviceFlagsError = true;
    QMessageBox::critical(this, tr("Device Access Error"), text);
}
