// The status line, which shows the input signal of the chosen device.

#include "updaterepair.h"

#include "displaytexts.h"
#include "ui_updaterepair.h"

#include <cstring>

// Runs only while the controls are unlocked.
void UpdateRepair::onInputStatusTimer()
{
    DeviceDescription desc;
    if (!turns.mayPoll() || !getCurrentDeviceDescription(desc)) {
        return;
    }
    pollTicket = turns.askPoll([this, desc] {
        emit inputStatusAction->getConfigDeviceData(desc, INPUT_STATUS,
                                                    makeConfigDeviceData(sizeof(InputStatusInfo)),
                                                    sizeof(InputStatusInfo), 0, 0);
    });
}

void UpdateRepair::onGetDeviceInputStatusComplete(uint8_t /*request*/,
                                                  QSharedPointer<uint8_t> record, uint16_t /*size*/)
{
    if (pollTicket.isWanted()) {
        showInputStatus(record);
    }
    turns.ended(Turns::Work::Poll);
}

void UpdateRepair::showInputStatus(const QSharedPointer<uint8_t> &record)
{
    if (!record) {
        ui->inputSignalLabel->setText(requestNotSupportedText());
        return;
    }
    InputStatusInfo status;
    std::memcpy(&status, record.data(), sizeof(status));
    // The device's texts are shown as they are, also when they look like mark-up.
    ui->inputSignalLabel->setTextFormat(Qt::PlainText);
    ui->inputSignalLabel->setText(inputStatusText(status));
}
