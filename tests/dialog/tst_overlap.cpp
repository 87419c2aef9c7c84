// What happens when something is asked for while something else is still running: a device's
// interface can be claimed only once, and an answer belongs to the device that was asked.

#include "dialogdriver.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>

namespace {

QString readFlagsOf(const char *device)
{
    return QStringLiteral("%1 < e2 v0 i0 1").arg(QLatin1String(device));
}

QString readModeOf(const char *device, int mode)
{
    return QStringLiteral("%1 < b3 v0 i%2 5").arg(QLatin1String(device)).arg(mode);
}

const char s_pollA[] = "A < b2 v0 i0 29";

// "RGB" and "HDMI", 1920x1080, progressive, 60 frames a second.
const char s_signal[] = "52474200 00000000 00000000 48444d49 00000000 60ea0000 8007 3804 00";

// Two devices are listed and the first is selected; the Firmware page is shown.
class ReadyDriver : public DialogDriver
{
public:
    ReadyDriver()
    {
        listDevices({"A", "B"});
        selectRow(0);
        find<QLineEdit>("firmwareLineEdit")->setText("x.fw");
        takeAsked();
    }

    void answerFlags(int byte)
    {
        emit flags->getRequestComplete(226, configData(QByteArray(1, static_cast<char>(byte))), 1);
    }

    void answerMode(const char *bytes)
    {
        emit modes->getRequestComplete(179, configData(QByteArray::fromHex(bytes)), 5);
    }

    void answerPoll()
    {
        emit inputStatus->getRequestComplete(178, configData(QByteArray::fromHex(s_signal)), 29);
    }

    bool isChecked(const char *box) { return find<QCheckBox>(box)->isChecked(); }
};

} // namespace

class TestOverlap : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }

    void selectionDuringAReadIsLoadedAfterwards();
    void selectionThereAndBackLoadsOnce();
    void tabChangeDuringAReadIsLoadedAfterwards();
    void changeToTheFirmwarePageLoadsNothingAfterwards();
    void selectionDuringAWriteIsLoadedAfterwards();
    void selectionDuringAUserModeSequence();
    void selectionDuringAFailingReadIsLoadedAfterwards();
    void answerOfAnotherDeviceFillsNoBoxes();
    void answersOfAnotherDeviceFillNoUserModes();
    void rescanDuringARequestWaitsForIt();
    void rescanDuringAUserModeSequenceWaitsForItsEnd();

    void scanWaitsForThePoll();
    void updateWaitsForThePoll();
    void settingsReadWaitsForThePoll();
    void settingsWriteWaitsForThePollWithTheBoxesAsTheyWere();
    void userModeWriteWaitsForThePoll();
    void failedPollReleasesWhatWaits();
    void answerOfAPollIsNotShownOnceTheListWasCleared();
    void nextPollIsShownAgain();
};

void TestOverlap::selectionDuringAReadIsLoadedAfterwards()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("A")});
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), QStringList());
    driver.answerFlags(0x01);
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("B")});
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerFlags(0x10);
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(!driver.isChecked("reenumerateCheckBox"));
    QVERIFY(driver.isChecked("audioSelectorCheckBox"));
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestOverlap::selectionThereAndBackLoadsOnce()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.takeAsked();
    driver.selectRow(1);
    driver.selectRow(0);
    driver.selectRow(1);
    driver.selectRow(0);
    driver.answerFlags(0x01);
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("A")});
    driver.answerFlags(0x02);
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.isChecked("keepAspectRatioCheckBox"));
    QVERIFY(!driver.isChecked("reenumerateCheckBox"));
}

void TestOverlap::tabChangeDuringAReadIsLoadedAfterwards()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.takeAsked();
    driver.openTab("tabUserMode");
    QCOMPARE(driver.takeAsked(), QStringList());
    driver.answerFlags(0x04);
    QVERIFY(driver.isChecked("performanceModeCheckBox")); // the same device's, so they are right
    QCOMPARE(driver.takeAsked(), QStringList{readModeOf("A", 0)});
}

void TestOverlap::changeToTheFirmwarePageLoadsNothingAfterwards()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.takeAsked();
    driver.openTab("tabFirmware");
    driver.answerFlags(0x04);
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.tabs()->isEnabled());
}

void TestOverlap::selectionDuringAWriteIsLoadedAfterwards()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.answerFlags(0x00);
    driver.takeAsked();
    driver.click("updateSettingsButton");
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), QStringList{"A > e3 v0 i0 1 00"});
    emit driver.flags->setRequestComplete(227);
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("B")});
}

void TestOverlap::selectionDuringAUserModeSequence()
{
    ReadyDriver driver;
    driver.openTab("tabUserMode");
    driver.answerMode("01 00 02 00 00");
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), (QStringList{readModeOf("A", 0), readModeOf("A", 1)}));
    driver.answerMode("03 00 04 00 00");
    driver.answerMode("05 00 06 00 00");
    QCOMPARE(driver.takeAsked(), (QStringList{readModeOf("A", 2), readModeOf("B", 0)}));
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerMode("07 00 08 00 01");
    driver.answerMode("09 00 0a 00 01");
    driver.answerMode("0b 00 0c 00 01");
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.find<QSpinBox>("userMode1Width")->value(), 7);
    QCOMPARE(driver.find<QSpinBox>("userMode2Width")->value(), 9);
    QCOMPARE(driver.find<QSpinBox>("userMode3Height")->value(), 12);
    QVERIFY(!driver.find<QGroupBox>("userMode3")->isChecked());
}

void TestOverlap::selectionDuringAFailingReadIsLoadedAfterwards()
{
    ReadyDriver driver;
    driver.openTab("tabUserMode");
    driver.selectRow(1);
    driver.takeAsked();
    emit driver.modes->error(179, "no");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.takeAsked(), QStringList{readModeOf("B", 0)});
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabledTo(driver.tabs()));
}

// The second device refuses to be read; Apply must not write the first one's settings into it.
void TestOverlap::answerOfAnotherDeviceFillsNoBoxes()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.answerFlags(0x00);
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.selectRow(1);
    driver.answerFlags(0xFF); // A's
    emit driver.flags->error(226, "no");
    emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.checkBoxes(), QString());
}

void TestOverlap::answersOfAnotherDeviceFillNoUserModes()
{
    ReadyDriver driver;
    driver.openTab("tabUserMode");
    driver.answerMode("01 00 02 00 00");
    driver.selectRow(1);
    driver.answerMode("03 00 04 00 00"); // A's, as the next
    driver.answerMode("05 00 06 00 00");
    emit driver.modes->error(179, "no");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.find<QSpinBox>("userMode1Width")->value(), 1);
    for (const char *mode : {"userMode2", "userMode3"}) {
        QVERIFY(!driver.find<QGroupBox>(mode)->isChecked());
        for (const char *size : {"Width", "Height"}) {
            QCOMPARE(driver.find<QSpinBox>((QByteArray(mode) + size).constData())->value(), 0);
        }
    }
}

void TestOverlap::rescanDuringARequestWaitsForIt()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.takeAsked();
    driver.click("rescanDevicesButton");
    QCOMPARE(driver.list()->count(), 0);
    QCOMPARE(driver.statusLine(), QString("device not selected"));
    QCOMPARE(driver.takeAsked(), QStringList()); // a scan could not open the device now
    driver.answerFlags(0xFF);
    QVERIFY(!driver.tabs()->isEnabled());
    QVERIFY(!driver.isChecked("reenumerateCheckBox"));
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->newDevice(describedDevice("A"));
    driver.selectRow(0);
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->complete();
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("A")});
    driver.answerFlags(0x01);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestOverlap::rescanDuringAUserModeSequenceWaitsForItsEnd()
{
    ReadyDriver driver;
    driver.openTab("tabUserMode");
    driver.answerMode("01 00 02 00 00");
    driver.answerMode("03 00 04 00 00");
    driver.answerMode("05 00 06 00 00");
    driver.takeAsked();
    driver.find<QSpinBox>("userMode3Width")->setValue(77);
    driver.click("updateUserModesButton");
    driver.click("rescanDevicesButton");
    emit driver.modes->setRequestComplete(179);
    emit driver.modes->setRequestComplete(179);
    QCOMPARE(driver.takeAsked(),
             (QStringList{"A > b3 v0 i0 5 0100020000", "A > b3 v0 i1 5 0300040000",
                          "A > b3 v0 i2 5 4d00060000"}));
    emit driver.modes->setRequestComplete(179);
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->complete();
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestOverlap::scanWaitsForThePoll()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.click("rescanDevicesButton");
    QCOMPARE(driver.takeAsked(), QStringList{s_pollA});
    QCOMPARE(driver.list()->count(), 0);
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerPoll();
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->newDevice(describedDevice("A"));
    QCOMPARE(driver.list()->count(), 1);
}

void TestOverlap::updateWaitsForThePoll()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.click("updateButton");
    QCOMPARE(driver.takeAsked(), QStringList{s_pollA});
    QVERIFY(!driver.dialog.isEnabled());
    QCOMPARE(driver.find<QLabel>("labelDoNotInterrupt")->text(), QString("DO NOT INTERRUPT"));
    // What was asked for is what is sent.
    driver.find<QLineEdit>("firmwareLineEdit")->setText("other.fw");
    driver.answerPoll();
    QCOMPARE(driver.takeAsked(), QStringList{"start A x.fw"});
    QVERIFY(!driver.dialog.isEnabled());
    emit driver.updateTask->complete();
    QVERIFY(driver.dialog.isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
}

void TestOverlap::settingsReadWaitsForThePoll()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.openTab("tabSettings");
    QVERIFY(!driver.tabs()->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList{s_pollA});
    driver.answerPoll();
    QCOMPARE(driver.statusLine(), QString("HDMI 1920x1080p@60, RGB"));
    QCOMPARE(driver.takeAsked(), QStringList{readFlagsOf("A")});
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerFlags(0x01);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestOverlap::settingsWriteWaitsForThePollWithTheBoxesAsTheyWere()
{
    ReadyDriver driver;
    driver.openTab("tabSettings");
    driver.answerFlags(0x03);
    driver.pollNow();
    driver.takeAsked();
    driver.click("updateSettingsButton");
    driver.find<QCheckBox>("audioSelectorCheckBox")->setChecked(true);
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), QStringList());
    driver.answerPoll();
    QCOMPARE(driver.takeAsked(), QStringList{"A > e3 v0 i0 1 03"});
}

void TestOverlap::userModeWriteWaitsForThePoll()
{
    ReadyDriver driver;
    driver.openTab("tabUserMode");
    driver.answerMode("01 00 02 00 00");
    driver.answerMode("03 00 04 00 00");
    driver.answerMode("05 00 06 00 00");
    driver.pollNow();
    driver.takeAsked();
    driver.click("updateUserModesButton");
    QCOMPARE(driver.takeAsked(), QStringList());
    driver.answerPoll();
    QCOMPARE(driver.takeAsked(), QStringList{"A > b3 v0 i0 5 0100020000"});
}

void TestOverlap::failedPollReleasesWhatWaits()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.openTab("tabUserMode");
    driver.takeAsked();
    emit driver.inputStatus->error(178, "no");
    QCOMPARE(driver.takeAsked(), QStringList()); // the completion follows
    emit driver.inputStatus->getRequestComplete(178, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.takeAsked(), QStringList{readModeOf("A", 0)});
    QCOMPARE(driver.statusLine(), QString("request not supported"));
}

void TestOverlap::answerOfAPollIsNotShownOnceTheListWasCleared()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.click("rescanDevicesButton");
    driver.answerPoll();
    QCOMPARE(driver.statusLine(), QString("device not selected"));

    ReadyDriver failing;
    failing.pollNow();
    failing.click("rescanDevicesButton");
    emit failing.inputStatus->getRequestComplete(178, ConfigDeviceDataPtr(), 0);
    QCOMPARE(failing.statusLine(), QString("device not selected"));
}

void TestOverlap::nextPollIsShownAgain()
{
    ReadyDriver driver;
    driver.pollNow();
    driver.click("rescanDevicesButton");
    driver.answerPoll();
    emit driver.scanner->newDevice(describedDevice("A"));
    emit driver.scanner->complete();
    driver.selectRow(0);
    driver.pollNow();
    driver.answerPoll();
    QCOMPARE(driver.statusLine(), QString("HDMI 1920x1080p@60, RGB"));
}

QTEST_MAIN(TestOverlap)
#include "tst_overlap.moc"
