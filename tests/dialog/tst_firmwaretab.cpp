// The Firmware tab: choosing a file, starting an update, following it and learning how it ended.

#include "dialogdriver.h"
#include "sessionhold.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

const char s_file[] = "/tmp/some package.fw";

// A driver with one device listed and selected and a file named.
class ReadyDriver : public DialogDriver
{
public:
    ReadyDriver()
    {
        listDevices({"Grabber"});
        selectRow(0);
        find<QLineEdit>("firmwareLineEdit")->setText(s_file);
        // Hidden or not is asked of the widgets themselves: the dialog need not be on a screen.
        progress = find<QProgressBar>("updateProgress");
        label = find<QLabel>("labelDoNotInterrupt");
    }

    QProgressBar *progress;
    QLabel *label;
};

} // namespace

class TestFirmwareTab : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // The file dialog of the system has no widgets for a test to find.
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        prepareWithoutUsb();
    }
    void updateButtonFollowsTheFileName();
    void chosenFileGoesIntoTheLine();
    void cancelledChoiceLeavesTheLine();
    void updateButtonIsEnabledAtStartAndAsksForADevice();
    void fileIsAskedForWhenADeviceIsSelected();
    void updateLocksTheWholeDialog();
    void progressIsShown();
    void completedUpdateUnlocksAndScans();
    void rescanAfterAnUpdateKeepsItsResultUntilTheNextOne();
    void failedUpdateSaysSoAndStaysLockedUntilItEnds();
    void markUpInAnErrorIsShownAsItIs();
    void failureBeforeAnyProgressIsReadable();
    void failureAtSomeProgressKeepsTheValue();
    void updateMayEndWhileItsErrorIsShown();
    void nextUpdateStartsAfresh();
    void completionWithNoUpdateRunningUnlocksAndScans();
    void sessionIsHeldUntilTheUpdateHasEnded();
    void sessionIsHeldUntilTheUpdateOfAClosedWindowHasEnded();
};

void TestFirmwareTab::updateButtonFollowsTheFileName()
{
    ReadyDriver driver;
    auto *line = driver.find<QLineEdit>("firmwareLineEdit");
    auto *button = driver.find<QPushButton>("updateButton");
    line->clear();
    QVERIFY(!button->isEnabled());
    line->setText("x");
    QVERIFY(button->isEnabled());
    line->setText(" ");
    QVERIFY(button->isEnabled());
}

void TestFirmwareTab::chosenFileGoesIntoTheLine()
{
    QTemporaryDir directory;
    const QString path = directory.filePath("package one.fw");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    QString title;
    QStringList filters;
    const QWidget *parent = nullptr;
    QTimer chooser;
    connect(&chooser, &QTimer::timeout, [&] {
        if (auto *chooserDialog = driver.dialog.findChild<QFileDialog *>()) {
            title = chooserDialog->windowTitle();
            filters = chooserDialog->nameFilters();
            parent = chooserDialog->parentWidget();
            chooserDialog->findChild<QLineEdit *>("fileNameEdit")->setText(path);
            QMetaObject::invokeMethod(chooserDialog, "accept");
            chooser.stop();
        }
    });
    chooser.start(10);
    driver.click("firmwareSelectButton");
    QCOMPARE(driver.find<QLineEdit>("firmwareLineEdit")->text(), path);
    QCOMPARE(title, QString("Select firmware update file"));
    QCOMPARE(filters, (QStringList{"Firmware files (*.fw)", "All (*)"})); // trimmed by the toolkit
    QCOMPARE(parent, &driver.dialog);
    QVERIFY(driver.find<QPushButton>("updateButton")->isEnabled());
}

void TestFirmwareTab::cancelledChoiceLeavesTheLine()
{
    ReadyDriver driver;
    QTimer chooser;
    bool cancelled = false;
    connect(&chooser, &QTimer::timeout, [&] {
        if (auto *chooserDialog = driver.dialog.findChild<QFileDialog *>()) {
            chooserDialog->reject();
            cancelled = true;
            chooser.stop();
        }
    });
    chooser.start(10);
    driver.click("firmwareSelectButton");
    QVERIFY(cancelled);
    QCOMPARE(driver.find<QLineEdit>("firmwareLineEdit")->text(), QString(s_file));
}

void TestFirmwareTab::updateButtonIsEnabledAtStartAndAsksForADevice()
{
    DialogDriver driver;
    QVERIFY(driver.find<QPushButton>("updateButton")->isEnabledTo(driver.tabs()));
    driver.find<QProgressBar>("updateProgress")->setFormat("Update Error");
    // The tab widget around it is disabled without a device, so the click comes from a program
    // only.
    QMetaObject::invokeMethod(&driver.dialog, "on_updateButton_clicked");
    QCOMPARE(driver.boxTexts(),
             QStringList{"warning|Quorlin Updater|Please select a device from the list|Ok"});
    QCOMPARE(driver.takeAsked(), QStringList());
    // What the bar said of an update before is gone all the same.
    QCOMPARE(driver.find<QProgressBar>("updateProgress")->format(), QString("%p%"));
}

void TestFirmwareTab::fileIsAskedForWhenADeviceIsSelected()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    driver.find<QProgressBar>("updateProgress")->setFormat("Update Error");
    driver.click("updateButton"); // enabled although the line is empty, since nobody has typed yet
    QCOMPARE(driver.boxTexts(),
             QStringList{"warning|Quorlin Updater|Please select the firmware file|Ok"});
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.dialog.isEnabled());
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.find<QProgressBar>("updateProgress")->format(), QString("%p%"));
}

void TestFirmwareTab::updateLocksTheWholeDialog()
{
    ReadyDriver driver;
    driver.progress->setValue(55);
    driver.progress->setFormat("Update Completed");
    QTest::ignoreMessage(QtDebugMsg, "Selected device: \"Grabber\"");
    driver.click("updateButton");
    QCOMPARE(driver.takeAsked(), QStringList{QStringLiteral("start Grabber %1").arg(s_file)});
    QVERIFY(!driver.dialog.isEnabled());
    QVERIFY(!driver.tabs()->isEnabled());
    QVERIFY(!driver.find<QWidget>("rescanDevicesButton")->isEnabled());
    QVERIFY(!driver.list()->isEnabled());
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabledTo(driver.tabs()));
    QVERIFY(!driver.progress->isHidden());
    QVERIFY(!driver.label->isHidden());
    QCOMPARE(driver.label->text(), QString("DO NOT INTERRUPT"));
    QCOMPARE(driver.progress->format(), QString("%p%"));
    QVERIFY(driver.progress->value() < driver.progress->minimum()); // reset
}

void TestFirmwareTab::progressIsShown()
{
    ReadyDriver driver;
    driver.click("updateButton");
    for (const int percent : {1, 2, 34, 98, 100}) {
        emit driver.updateTask->progress(percent);
        QCOMPARE(driver.progress->value(), percent);
        QCOMPARE(driver.progress->text(), QStringLiteral("%1%").arg(percent));
    }
}

void TestFirmwareTab::completedUpdateUnlocksAndScans()
{
    ReadyDriver driver;
    driver.click("updateButton");
    emit driver.updateTask->progress(100);
    driver.takeAsked();
    emit driver.updateTask->complete();
    QVERIFY(driver.dialog.isEnabled());
    QVERIFY(driver.label->isHidden());
    QCOMPARE(driver.progress->text(), QString("Update Completed"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));

    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    QCOMPARE(driver.list()->count(), 0);
    QCOMPARE(driver.statusLine(), QString("device not selected"));
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->newDevice(describedDevice("Grabber"));
    emit driver.scanner->complete();
    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestFirmwareTab::rescanAfterAnUpdateKeepsItsResultUntilTheNextOne()
{
    ReadyDriver driver;
    driver.click("updateButton");
    emit driver.updateTask->progress(100);
    emit driver.updateTask->complete();
    QVERIFY(!driver.progress->isHidden());
    emit driver.scanner->newDevice(describedDevice("Grabber"));
    emit driver.scanner->complete();
    QVERIFY(!driver.progress->isHidden());
    QCOMPARE(driver.progress->text(), QString("Update Completed"));
    driver.selectRow(0);
    QVERIFY(driver.progress->isHidden());

    driver.click("updateButton");
    emit driver.updateTask->complete();
    emit driver.scanner->complete();
    QVERIFY(!driver.progress->isHidden());
    driver.click("rescanDevicesButton");
    QVERIFY(driver.progress->isHidden());
}

void TestFirmwareTab::failedUpdateSaysSoAndStaysLockedUntilItEnds()
{
    ReadyDriver driver;
    driver.click("updateButton");
    driver.takeAsked();
    QTest::ignoreMessage(QtDebugMsg, "Update error \"flash %1 failed\"");
    emit driver.updateTask->error("flash %1 failed");
    QCOMPARE(driver.boxTexts(), QStringList{"critical|Update Error|flash %1 failed|Ok"});
    QVERIFY(!driver.dialog.isEnabled());
    QCOMPARE(driver.label->text(), QString("Do not disconnect. Retry. Call Support."));
    QCOMPARE(driver.progress->text(), QString("Update Error"));
    QCOMPARE(driver.takeAsked(), QStringList());

    emit driver.updateTask->complete();
    QVERIFY(driver.dialog.isEnabled());
    QCOMPARE(driver.progress->text(), QString("Update Error"));
    QVERIFY(!driver.progress->isHidden());
    QVERIFY(!driver.label->isHidden());
    QCOMPARE(driver.label->text(), QString("Do not disconnect. Retry. Call Support."));
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
}

// A package may call its product anything, and the message quotes it.
void TestFirmwareTab::markUpInAnErrorIsShownAsItIs()
{
    ReadyDriver driver;
    driver.click("updateButton");
    emit driver.updateTask->error("Unsupported product: '<b>velk3</b>'");
    QCOMPARE(driver.boxes.shown.at(0).readableText(),
             QString("Unsupported product: '<b>velk3</b>'"));
}

void TestFirmwareTab::failureBeforeAnyProgressIsReadable()
{
    ReadyDriver driver;
    driver.click("updateButton");
    QCOMPARE(driver.progress->text(), QString()); // a bar before its beginning shows nothing
    emit driver.updateTask->error("no");
    QCOMPARE(driver.progress->value(), 0);
    QCOMPARE(driver.progress->text(), QString("Update Error"));
}

void TestFirmwareTab::failureAtSomeProgressKeepsTheValue()
{
    ReadyDriver driver;
    driver.click("updateButton");
    emit driver.updateTask->progress(42);
    emit driver.updateTask->error("no");
    QCOMPARE(driver.progress->value(), 42);
    QCOMPARE(driver.progress->text(), QString("Update Error"));
}

void TestFirmwareTab::updateMayEndWhileItsErrorIsShown()
{
    ReadyDriver driver;
    driver.click("updateButton");
    driver.takeAsked();
    driver.boxes.whileOpen = [&driver] {
        emit driver.updateTask->complete();
        emit driver.scanner->newDevice(describedDevice("Grabber"));
        emit driver.scanner->complete();
    };
    emit driver.updateTask->error("no");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    QVERIFY(driver.dialog.isEnabled());
    QCOMPARE(driver.progress->text(), QString("Update Error"));
    QCOMPARE(driver.list()->count(), 1);
    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestFirmwareTab::nextUpdateStartsAfresh()
{
    ReadyDriver driver;
    driver.click("updateButton");
    emit driver.updateTask->error("no");
    emit driver.updateTask->complete();
    emit driver.scanner->newDevice(describedDevice("Grabber"));
    emit driver.scanner->complete();
    driver.selectRow(0);
    driver.click("updateButton");
    QCOMPARE(driver.label->text(), QString("DO NOT INTERRUPT"));
    QCOMPARE(driver.progress->format(), QString("%p%"));
    emit driver.updateTask->progress(100);
    emit driver.updateTask->complete();
    QCOMPARE(driver.progress->text(), QString("Update Completed"));
    QVERIFY(driver.label->isHidden());
}

void TestFirmwareTab::completionWithNoUpdateRunningUnlocksAndScans()
{
    ReadyDriver driver;
    emit driver.updateTask->complete();
    QVERIFY(driver.dialog.isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->newDevice(describedDevice("Grabber"));
    emit driver.scanner->complete();
    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestFirmwareTab::sessionIsHeldUntilTheUpdateHasEnded()
{
    ReadyDriver driver;
    QVERIFY(!driver.dialog.findChild<platform::SessionHold *>());
    driver.click("updateButton");
    QVERIFY(driver.dialog.findChild<platform::SessionHold *>());
    emit driver.updateTask->error("no");
    QVERIFY(driver.dialog.findChild<platform::SessionHold *>());
    emit driver.updateTask->complete();
    QVERIFY(!driver.dialog.findChild<platform::SessionHold *>());
}

// The task is gone only when the device is written.
void TestFirmwareTab::sessionIsHeldUntilTheUpdateOfAClosedWindowHasEnded()
{
    QStringList gone;
    {
        ReadyDriver driver;
        driver.click("updateButton");
        auto *hold = driver.dialog.findChild<platform::SessionHold *>();
        QVERIFY(hold);
        connect(driver.updateTask, &QObject::destroyed, [&gone] { gone += "update task"; });
        connect(hold, &QObject::destroyed, [&gone] { gone += "hold"; });
    }
    QCOMPARE(gone, (QStringList{"update task", "hold"}));
}

QTEST_MAIN(TestFirmwareTab)
#include "tst_firmwaretab.moc"
