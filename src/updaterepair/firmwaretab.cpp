// The device list and the Firmware tab.

#include "updaterepair.h"

#include "devicescanner.h"
#include "displaytexts.h"
#include "ui_updaterepair.h"
#include "updatetask.h"

#include <QDebug>
#include <QFileDialog>
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
    statusAnswerStale = statusPollRunning;
    configAnswerStale = configRequestRunning;
    ui->inputSignalLabel->setText(tr("device not selected"));
    setControlsAllowUserAccess(false);
}

void UpdateRepair::requestScan()
{
    ++scansRunning;
    ++pendingScans;
    sendPending();
}

void UpdateRepair::onNewDevice(const DeviceDescription &desc)
{
    if (scansRunning > 1) {
        return; // found by a scan that a later one has overtaken: that one finds it again
    }
    qDebug() << "New device" << desc.productName;
    auto *item = new QListWidgetItem(deviceRowText(desc));
    item->setData(Qt::UserRole, QVariant::fromValue(desc));
    ui->devicesList->insertItem(ui->devicesList->count(), item);
}

void UpdateRepair::onScanComplete()
{
    if (scansRunning > 0) {
        --scansRunning;
    }
    unlockWhenNothingRuns();
    loadIfRemembered();
}

void UpdateRepair::onScanError(const QString &text)
{
    QMessageBox::warning(this, tr("Device Scanning Error"), text);
}

void UpdateRepair::on_devicesList_itemSelectionChanged()
{
    configAnswerStale = configRequestRunning;
    tryEnableDeviceControls();
    tryLoadDeviceSettings();
    ui->updateProgress->hide();
}

// ---- updating

void UpdateRepair::on_firmwareSelectButton_clicked()
{
    const QString fileName =
        QFileDialog::getOpenFileName(this, tr("Select firmware update file"), QString(),
                                     QStringLiteral("Firmware files (*.fw);; All (*)"));
    if (!fileName.isEmpty()) {
        ui->firmwareLineEdit->setText(fileName);
    }
}

void UpdateRepair::on_firmwareLineEdit_textChanged()
{
    ui->updateButton->setEnabled(!ui->firmwareLineEdit->text().isEmpty());
}

void UpdateRepair::on_updateButton_clicked()
{
    ui->updateProgress->setFormat(QStringLiteral("%p%"));
    if (ui->devicesList->currentRow() < 0) {
        QMessageBox::warning(this, tr("Quorlin Updater"),
                             tr("Please select a device from the list"));
        return;
    }
    if (ui->firmwareLineEdit->text().isEmpty()) {
        QMessageBox::warning(this, tr("Quorlin Updater"), tr("Please select the firmware file"));
        return;
    }
    updateRunning = true;
    setControlsAllowUserAccess(false);
    DeviceDescription desc;
    getCurrentDeviceDescription(desc);
    qDebug() << "Selected device:" << desc.productName;
    startUpdate(desc);
}

void UpdateRepair::startUpdate(const DeviceDescription &desc)
{
    updateError = false;
    setEnabled(false);
    ui->updateProgress->show();
    ui->labelDoNotInterrupt->setText(tr("DO NOT INTERRUPT"));
    ui->labelDoNotInterrupt->show();
    ui->updateProgress->reset();
    sendWhenStatusAnswered([this, desc, fileName = ui->firmwareLineEdit->text()] {
        emit updateTask->start(desc, fileName);
    });
}

void UpdateRepair::onUpdateProgress(int progress)
{
    ui->updateProgress->setValue(progress);
}

void UpdateRepair::onUpdateError(const QString &text)
{
    qDebug() << "Update error" << text;
    ui->updateProgress->setFormat(tr("Update Error"));
    if (ui->updateProgress->value() < ui->updateProgress->minimum()) {
        ui->updateProgress->setValue(0); // a bar that stands before its beginning shows no text
    }
    ui->labelDoNotInterrupt->setText(tr("Do not disconnect. Retry. Call Support."));
    updateError = true;
    QMessageBox::critical(this, tr("Update Error"), literalMessage(text));
}

// The device may have come back under another name or address, so the list is read anew. The
// progress bar stays, so that the user still reads how the update ended.
void UpdateRepair::onUpdateComplete()
{
    updateRunning = false;
    if (!updateError) {
        ui->updateProgress->setFormat(tr("Update Completed"));
        ui->labelDoNotInterrupt->hide();
    }
    unlockWhenNothingRuns();
    setEnabled(true);
    forgetDevices();
    requestScan();
}
