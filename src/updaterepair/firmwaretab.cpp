// The Firmware tab.

#include "updaterepair.h"

#include "displaytexts.h"
#include "literalmessage.h"
#include "sessionhold.h"
#include "ui_updaterepair.h"
#include "updatetask.h"

#include <QDebug>
#include <QFileDialog>
#include <QMessageBox>

#include <utility>

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
    setControlsAllowUserAccess(false);
    DeviceDescription desc;
    getCurrentDeviceDescription(desc);
    qDebug() << "Selected device:" << desc.productName;
    startUpdate(desc);
}

void UpdateRepair::startUpdate(const DeviceDescription &desc)
{
    updateError = false;
    sessionHold = new platform::SessionHold(winId(), sessionHoldText(), this);
    setEnabled(false);
    ui->updateProgress->show();
    ui->labelDoNotInterrupt->setText(doNotInterruptText());
    ui->labelDoNotInterrupt->show();
    ui->updateProgress->reset();
    turns.askUpdate([this, desc, fileName = ui->firmwareLineEdit->text()] {
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
    ui->updateProgress->setFormat(updateErrorText());
    if (ui->updateProgress->value() < ui->updateProgress->minimum()) {
        ui->updateProgress->setValue(0); // a bar that stands before its beginning shows no text
    }
    ui->labelDoNotInterrupt->setText(callSupportText());
    updateError = true;
    QMessageBox::critical(this, updateErrorText(), literalMessage(text));
}

// The device may have come back under another name or address, so the list is read anew; the end of
// that scan loads the page and gives the focus back. The progress bar stays, so that the user still
// reads how the update ended.
void UpdateRepair::onUpdateComplete()
{
    turns.ended(Turns::Work::Update);
    delete std::exchange(sessionHold, nullptr);
    if (!updateError) {
        ui->updateProgress->setFormat(updateCompletedText());
        ui->labelDoNotInterrupt->hide();
    }
    unlockWhenIdle();
    setEnabled(true);
    forgetDevices();
    requestScan();
}
