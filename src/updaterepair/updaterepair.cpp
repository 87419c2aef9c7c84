#include "updaterepair.h"

#include "devicescanner.h"
#include "qtcompat.h"
#include "ui_updaterepair.h"
#include "updatetask.h"

#include <QApplication>
#include <QDebug>
#include <QMessageBox>

#include <utility>

static constexpr int s_statusPollInterval = 2000; // ms

UpdateRepair::UpdateRepair(QWidget *parent)
    : QDialog(parent),
      ui(std::make_unique<Ui_UpdateRepair>()),
      scanner(new DeviceScanner(this)),
      updateTask(new UpdateTask(this)),
      configTask(new ConfigDeviceTask(this)),
      deviceFlagsAction(new DeviceFlagsAction(configTask, this)),
      inputStatusAction(new InputStatusAction(configTask, this)),
      userModeAction(new UserModeAction(configTask, this))
{
    ui->setupUi(this);
    if (qApp->devicePixelRatio() > 1) {
        // An icon has a variant for each density of screen; a form loads the plain picture only.
        ui->QuorlinBanner->setPixmap(
            QIcon(QStringLiteral(":/images/banner.png")).pixmap(ui->QuorlinBanner->sizeHint()));
    }
    ui->labelDoNotInterrupt->hide();
    connectFrontObjects();
    inputStatusTimer.setInterval(s_statusPollInterval);
    inputStatusTimer.start();
    connect(userModeAction, &ConfigDeviceBase::getRequestComplete, this,
            &UpdateRepair::onGetUserModeComplete);
    connect(userModeAction, &ConfigDeviceBase::setRequestComplete, this,
            &UpdateRepair::onSetUserModeComplete);
    connect(userModeAction, &ConfigDeviceBase::error, this, &UpdateRepair::onUserModeError);
    connect(ui->devicesList, &QListWidget::currentRowChanged, this,
            &UpdateRepair::selectCurrentRow);
    ui->updateProgress->hide();
    tryEnableDeviceControls();
    scanDevices();
}

UpdateRepair::~UpdateRepair()
{
    ui.reset();
}

void UpdateRepair::connectFrontObjects()
{
    connect(scanner, &DeviceScanner::newDevice, this, &UpdateRepair::onNewDevice);
    connect(scanner, &DeviceScanner::complete, this, &UpdateRepair::onScanComplete);
    connect(scanner, &DeviceScanner::error, this, &UpdateRepair::onScanError);
    connect(updateTask, &UpdateTask::progress, this, &UpdateRepair::onUpdateProgress);
    connect(updateTask, &UpdateTask::complete, this, &UpdateRepair::onUpdateComplete);
    connect(updateTask, &UpdateTask::error, this, &UpdateRepair::onUpdateError);
    connect(deviceFlagsAction, &ConfigDeviceBase::getRequestComplete, this,
            &UpdateRepair::onGetDeviceFlagsComplete);
    connect(deviceFlagsAction, &ConfigDeviceBase::setRequestComplete, this,
            &UpdateRepair::onSetDeviceFlagsComplete);
    connect(deviceFlagsAction, &ConfigDeviceBase::error, this, &UpdateRepair::onDeviceFlagsError);
    // The poll's error() stays unconnected: a box every two seconds would help nobody.
    connect(inputStatusAction, &ConfigDeviceBase::getRequestComplete, this,
            &UpdateRepair::onGetDeviceInputStatusComplete);
    connect(&inputStatusTimer, &QTimer::timeout, this, &UpdateRepair::onInputStatusTimer);
}

// ---- enabling

void UpdateRepair::setControlsAllowUserAccess(bool allow)
{
    allowUserAccess = allow;
    tryEnableDeviceControls();
    if (allow) {
        inputStatusTimer.start();
    } else {
        inputStatusTimer.stop();
    }
}

void UpdateRepair::tryEnableDeviceControls()
{
    ui->tabWidget->setEnabled(allowUserAccess && ui->devicesList->currentRow() >= 0);
    ui->tabUserMode->setEnabled(true);
}

void UpdateRepair::resetDeviceControls()
{
    ui->updateProgress->hide();
}

// ---- the selected device

// A list that gets the focus by the keyboard makes its first row current without selecting it.
// Every request goes to the current row, so that row must be the one that the user sees
// highlighted.
void UpdateRepair::selectCurrentRow(int row)
{
    if (row >= 0 && ui->devicesList->selectedItems().isEmpty()) {
        ui->devicesList->setCurrentRow(row, QItemSelectionModel::Select);
    }
}

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
    configRequestRunning = true;
    configAnswerStale = false;
    setControlsAllowUserAccess(false);
    qDebug() << "Selected device:" << desc.productName;
    return true;
}

// ---- whose turn it is

// Scans can overlap, and a scan can be asked for during a configuration request; the controls wait
// for the last of them.
void UpdateRepair::unlockWhenNothingRuns()
{
    if (scansRunning == 0 && !updateRunning && !configRequestRunning) {
        setControlsAllowUserAccess(true);
    }
}

void UpdateRepair::endConfigRequest()
{
    configRequestRunning = false;
    unlockWhenNothingRuns();
    sendPending();
}

// The last thing that the end of a request does: it locks the controls again.
void UpdateRepair::loadIfRemembered()
{
    if (allowUserAccess && std::exchange(loadRemembered, false)) {
        tryLoadDeviceSettings();
    }
}

// Sends an update or configuration request at once, or when the poll that is under way has been
// answered: until then the device's interface is claimed.
void UpdateRepair::sendWhenStatusAnswered(std::function<void()> send)
{
    pendingRequests.push_back(std::move(send));
    sendPending();
}

void UpdateRepair::sendPending()
{
    if (statusPollRunning) {
        return;
    }
    for (const auto &send : std::exchange(pendingRequests, {})) {
        send();
    }
    // A scan opens every device, so it could not probe the one that a configuration request holds
    // and would leave it out of the list.
    if (!configRequestRunning) {
        while (pendingScans > 0) {
            --pendingScans;
            emit scanner->scan();
        }
    }
}
