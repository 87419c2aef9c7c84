// The Settings tab: four of the bits of the device flags byte.

#include "updaterepair.h"

#include "literalmessage.h"
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

void UpdateRepair::prepareSettingsRequest()
{
    deviceFlagsError = false;
}

void UpdateRepair::loadSettings(const DeviceDescription &desc)
{
    prepareSettingsRequest();
    askConfiguration([this, desc] {
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
    askConfiguration([this, desc, record] {
        emit deviceFlagsAction->setConfigDeviceData(desc, SET_DEVICE_FLAGS, record, 1, 0, 0);
    });
}

void UpdateRepair::onGetDeviceFlagsComplete(uint8_t /*request*/, QSharedPointer<uint8_t> record,
                                            uint16_t /*size*/)
{
    if (deviceFlagsError || !record) {
        endConfiguration();
        return;
    }
    endConfiguration([this] { ui->tabSettings->setEnabled(true); },
                     [this, record] { showDeviceFlags(*record); });
}

void UpdateRepair::showDeviceFlags(uint8_t flags)
{
    for (const FlagBox &box : s_flagBoxes) {
        (ui.get()->*box.checkBox)->setChecked((flags & box.flag) != 0);
    }
}

void UpdateRepair::onSetDeviceFlagsComplete(uint8_t /*request*/)
{
    endConfiguration([this] { ui->tabSettings->setEnabled(true); });
}

void UpdateRepair::onDeviceFlagsError(uint8_t /*request*/, const QString &text)
{
    qDebug() << "Setting/getting flags error" << text;
    deviceFlagsError = true;
    QMessageBox::critical(this, tr("Device Access Error"), literalMessage(text));
}
