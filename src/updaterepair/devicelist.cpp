// The device list: scanning, what is listed, and the device that is chosen.

#include "updaterepair.h"

#include "devicescanner.h"
#include "displaytexts.h"
#include "emptylisthint.h"
#include "listselection.h"
#include "literalmessage.h"
#include "qtcompat.h"
#include "ui_updaterepair.h"
#include "usbview.h"

#include <QDebug>
#include <QListWidgetItem>
#include <QMessageBox>
#include <QSignalBlocker>

// ---- scanning

void UpdateRepair::scanDevices()
{
    forgetDevices();
    resetDeviceControls();
    requestScan();
}

void UpdateRepair::on_rescanDevicesButton_clicked()
{
    scanDevices();
}

void UpdateRepair::forgetDevices()
{
    {
        // While it is cleared, the list reports a changed selection with the old row still current.
        const QSignalBlocker quiet(ui->devicesList);
        ui->devicesList->clear();
    }
    emptyListHint->hide();
    turns.listCleared();
    ui->inputSignalLabel->setText(tr("device not selected"));
    setControlsAllowUserAccess(false);
}

void UpdateRepair::requestScan()
{
    turns.askScan([this] { emit scanner->scan(); });
}

void UpdateRepair::onNewDevice(const DeviceDescription &desc)
{
    if (turns.isScanOvertaken()) {
        return; // the scan that was asked for later finds it again
    }
    qDebug() << "New device" << desc.productName;
    auto *item = new QListWidgetItem(deviceRowText(desc));
    item->setData(Qt::UserRole, QVariant::fromValue(desc));
    ui->devicesList->insertItem(ui->devicesList->count(), item);
}

void UpdateRepair::onScanComplete()
{
    endWork(Turns::Work::Scan, [this] { hintIfNothingIsListed(); });
}

void UpdateRepair::hintIfNothingIsListed()
{
    if (!turns.isScanning() && ui->devicesList->count() == 0) {
        emptyListHint->show(emptyListText(usbview::recognisedDevices()));
    }
}

void UpdateRepair::onScanError(const QString &text)
{
    QMessageBox::warning(this, tr("Device Scanning Error"), literalMessage(text));
}

void UpdateRepair::on_devicesList_itemSelectionChanged()
{
    if (!selection->accept()) {
        return;
    }
    turns.rowChosen();
    tryEnableDeviceControls();
    tryLoadDeviceSettings();
    ui->updateProgress->hide();
}

// ---- the chosen device

bool UpdateRepair::getCurrentDeviceDescription(DeviceDescription &desc)
{
    if (ui->devicesList->currentRow() < 0) {
        return false;
    }
    QVariant record = ui->devicesList->currentItem()->data(Qt::UserRole);
    if (record.userType() != qMetaTypeId<DeviceDescription>() &&
        !qtcompat::convert<DeviceDescription>(record)) {
        desc = DeviceDescription();
        return true;
    }
    desc = record.value<DeviceDescription>();
    return true;
}

bool UpdateRepair::prepareConfigurationDeviceRequest(DeviceDescription &desc)
{
    if (!getCurrentDeviceDescription(desc)) {
        QMessageBox::warning(this, tr("Quorlin Updater"),
                             tr("Please select a device from the list"));
        return false;
    }
    setControlsAllowUserAccess(false);
    qDebug() << "Selected device:" << desc.productName;
    return true;
}
