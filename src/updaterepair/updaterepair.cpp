#include "updaterepair.h"

#include "devicescanner.h"
#include "emptylisthint.h"
#include "focuskeeper.h"
#include "focusmark.h"
#include "images.h"
#include "listselection.h"
#include "ui_updaterepair.h"
#include "updatetask.h"

#include <QApplication>
#include <QKeyEvent>
#include <QTabBar>
#include <QTextDocumentFragment>

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
    init_images();
    ui->setupUi(this);
    if (qApp->devicePixelRatio() > 1) {
        // An icon has a variant for each density of screen; a form loads the plain picture only.
        ui->QuorlinBanner->setPixmap(
            QIcon(QStringLiteral(":/images/banner.png")).pixmap(ui->QuorlinBanner->sizeHint()));
    }
    ui->labelDoNotInterrupt->hide();
    describeForScreenReaders();
    selection = new ListSelection(ui->devicesList);
    focusKeeper = std::make_unique<FocusKeeper>(
        this, QList<QWidget *>{ui->tabWidget->tabBar(), ui->devicesList});
    emptyListHint = new EmptyListHint(ui->devicesList);
    for (QWidget *button : {ui->rescanDevicesButton, ui->firmwareSelectButton}) {
        new FocusMark(button, button);
    }
    new FocusMark(ui->devicesList, ui->devicesList->viewport());
    connectFrontObjects();
    inputStatusTimer.setInterval(s_statusPollInterval);
    inputStatusTimer.start();
    connect(userModeAction, &ConfigDeviceBase::getRequestComplete, this,
            &UpdateRepair::onGetUserModeComplete);
    connect(userModeAction, &ConfigDeviceBase::setRequestComplete, this,
            &UpdateRepair::onSetUserModeComplete);
    connect(userModeAction, &ConfigDeviceBase::error, this, &UpdateRepair::onUserModeError);
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

void UpdateRepair::describeForScreenReaders()
{
    // Tool tips are read out where there is no description, with their mark-up.
    for (QCheckBox *box : ui->tabSettings->findChildren<QCheckBox *>()) {
        box->setAccessibleDescription(
            QTextDocumentFragment::fromHtml(box->toolTip()).toPlainText());
    }
}

// ---- the keyboard

// A dialog presses its default button for Return wherever the focus is. Here that would write a
// device's firmware; Return on the button itself does not come this far.
void UpdateRepair::keyPressEvent(QKeyEvent *event)
{
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isReturn && focusWidget() != ui->firmwareLineEdit) {
        event->ignore();
        return;
    }
    QDialog::keyPressEvent(event);
}

// ---- enabling

void UpdateRepair::setControlsAllowUserAccess(bool allow)
{
    allowUserAccess = allow;
    if (!allow) {
        focusKeeper->hold();
    }
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

// ---- work

// Scans can overlap, and a scan can be asked for during a configuration request; the controls wait
// for the last of them.
void UpdateRepair::unlockWhenIdle()
{
    if (turns.isIdle()) {
        setControlsAllowUserAccess(true);
    }
}

// `show` comes after the unlocking, which enables every page. A load comes last: it locks the
// controls again.
void UpdateRepair::endWork(Turns::Work work, const Show &show)
{
    turns.ended(work);
    unlockWhenIdle();
    show();
    if (allowUserAccess && turns.takeRememberedLoad()) {
        tryLoadDeviceSettings();
    }
    if (allowUserAccess) {
        focusKeeper->giveBack();
    }
}

void UpdateRepair::askConfiguration(const Turns::Send &send)
{
    configTicket = turns.askConfiguration(send);
}

void UpdateRepair::endConfiguration(const Show &show, const Show &showAnswer)
{
    endWork(Turns::Work::Configuration, [this, &show, &showAnswer] {
        if (showAnswer && configTicket.isWanted()) {
            showAnswer();
        }
        if (show) {
            show();
        }
    });
}

// ---- the pages

// Each page that shows what a device holds, and what begins to read it.
void UpdateRepair::tryLoadDeviceSettings()
{
    struct Page
    {
        QWidget *Ui_UpdateRepair::*widget;
        void (UpdateRepair::*load)(const DeviceDescription &);
    };
    static constexpr Page s_pages[] = {
        {&Ui_UpdateRepair::tabSettings, &UpdateRepair::loadSettings},
        {&Ui_UpdateRepair::tabUserMode, &UpdateRepair::loadUserModes},
    };

    if (!allowUserAccess) {
        // What runs has to end first. What it brings may be for a row that is no longer chosen.
        turns.rememberLoad();
        return;
    }
    if (ui->devicesList->currentRow() < 0) {
        return;
    }
    for (const Page &page : s_pages) {
        DeviceDescription desc;
        if (ui->tabWidget->currentWidget() == ui.get()->*page.widget &&
            prepareConfigurationDeviceRequest(desc)) {
            (this->*page.load)(desc);
            return;
        }
    }
}

void UpdateRepair::on_tabWidget_currentChanged(int /*index*/)
{
    tryLoadDeviceSettings();
}
