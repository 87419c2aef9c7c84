// What happens when the user asks for something while a device is still busy with something else.
// The devices here are slow. That no request came while another one had the device is looked at
// after every test: its claim would have been refused.

#include "libusbtexts.h"
#include "simulateddialog.h"

#include <QRegularExpression>

#include <libusb.h>

class TestSimOverlap : public SimulatedTest
{
    Q_OBJECT

private slots:
    void selectionDuringAReadLoadsTheOtherDevice();
    void selectionDuringAUserModeSequenceLoadsTheOtherDevice();
    void selectionDuringAWriteWritesTheFirstDevice();
    void selectionDuringAFailingReadLoadsTheOtherDevice();
    void quickChangesOfSelectionEndWithTheSettingsOfTheSelectedDevice();
    void quickChangesOfSelectionEndWithTheModesOfTheSelectedDevice();
    void tabChangeDuringAReadIsLoadedAfterwards();
    void changeToTheFirmwarePageDuringAReadLoadsNothing();
    void rescanDuringAReadWaitsForIt();
    void rescanDuringAWriteOfTheModesWaitsForAllThree();
    void selectionDuringAScanIsLoadedAfterwards();

    void settingsAskedForDuringAPoll();
    void applyDuringAPoll();
    void userModesAskedForDuringAPoll();
    void rescanDuringAPollDoesNotShowItsAnswer();
    void rescanDuringAFailingPollDoesNotShowItsAnswer();
    void updateDuringAPollWaitsForIt();
    void requestDuringASilentPollWaitsForItsEnd();
};

namespace {

const char s_twoDevices[] = R"(
device a
    product velk3
    serial "A"
    flags 0x01
    user-mode 0 10x11 on
    user-mode 1 12x13 on
    user-mode 2 14x15 on
    input 1920x1080p 60000 "ONE" "X"
device b
    product velk3
    serial "B"
    flags 0x16
    user-mode 0 20x21 off
    user-mode 1 22x23 off
    user-mode 2 24x25 off
    input 1280x720p 50000 "TWO" "Y"
)";

const QString s_modesOfA = "10x11 on, 12x13 on, 14x15 on";
const QString s_modesOfB = "20x21 off, 22x23 off, 24x25 off";

// The vendor requests of all devices in the order of their answers, less the numbers and the data:
// "a < e2" reads the flags of device a.
QStringList order(int since)
{
    QStringList lines;
    for (const QString &line : simulation::transcript().since(since).requestsOfAll()) {
        lines.append(line.section(' ', 0, 2));
    }
    return lines;
}

} // namespace

SCENE(TestSimOverlap, selectionDuringAReadLoadsTheOtherDevice, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a GET_DEVICE_FLAGS delay 700");
    const int before = simulation::mark();
    user.clickTab(1);
    QVERIFY(user.list()->isEnabled());
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < e2", "b < e2"}));
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
}

SCENE(TestSimOverlap, selectionDuringAUserModeSequenceLoadsTheOtherDevice, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a USER_MODE every delay 300");
    const int before = simulation::mark();
    user.clickTab(2);
    EVENTUALLY(simulation::configRequests("a").size() == 1);
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before),
             (QStringList{"a < b3", "a < b3", "a < b3", "b < b3", "b < b3", "b < b3"}));
    QCOMPARE(user.userModes(), s_modesOfB);
}

SCENE(TestSimOverlap, selectionDuringAWriteWritesTheFirstDevice, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    QVERIFY(user.openTab(1));
    user.click("keepAspectRatioCheckBox");
    simulation::control("fault a SET_DEVICE_FLAGS delay 700");
    user.click("updateSettingsButton");
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::state("a")["flags"].toInt(), 0x03);
    QCOMPARE(simulation::state("b")["flags"].toInt(), 0x16);
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
    QCOMPARE(simulation::configRequests("b"), QStringList{"< e2 v0 i0 1 16"});
}

SCENE(TestSimOverlap, selectionDuringAFailingReadLoadsTheOtherDevice, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a GET_DEVICE_FLAGS silence");
    user.clickTab(1);
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
    QCOMPARE(user.boxTexts(),
             QStringList{"critical|Device Access Error|Error retreiving config device data: "
                         "req=226, status: " +
                         libusbText(LIBUSB_ERROR_TIMEOUT) + "|Ok"});
}

SCENE(TestSimOverlap, quickChangesOfSelectionEndWithTheSettingsOfTheSelectedDevice, s_twoDevices)
{
    SimulatedDialog user;
    simulation::control("set a latency 45");
    simulation::control("set b latency 20");
    user.select("A");
    QVERIFY(user.openTab(1));
    int pause = 0;
    for (const char *device : {"B", "A", "B", "A", "A", "B", "A", "B", "A", "B", "A", "B"}) {
        user.select(device);
        QTest::qWait(pause);
        pause = (pause + 17) % 80;
    }
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
    user.select("A");
    user.select("B");
    user.select("A");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("reenumerate"));
    user.click("performanceModeCheckBox");
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::state("a")["flags"].toInt(), 0x05);
    QCOMPARE(simulation::state("b")["flags"].toInt(), 0x16);
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, quickChangesOfSelectionEndWithTheModesOfTheSelectedDevice, s_twoDevices)
{
    SimulatedDialog user;
    simulation::control("set a latency 30");
    simulation::control("set b latency 15");
    user.select("A");
    QVERIFY(user.openTab(2));
    int pause = 10;
    for (const char *device : {"B", "A", "B", "A", "B", "A", "B", "A", "B"}) {
        user.select(device);
        QTest::qWait(pause);
        pause = (pause + 40) % 130;
    }
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.userModes(), s_modesOfB);
    user.select("A");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.userModes(), s_modesOfA);
    user.setUserMode(0, 99, 98, true);
    const int before = simulation::mark();
    user.click("updateUserModesButton");
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("a", before),
             (QStringList{"> b3 v0 i0 5 6300620000", "> b3 v0 i1 5 0c000d0000",
                          "> b3 v0 i2 5 0e000f0000"}));
    QCOMPARE(simulation::configRequests("b", before).filter("> "), QStringList());
    QCOMPARE(user.userModes(), s_modesOfB);
}

SCENE(TestSimOverlap, tabChangeDuringAReadIsLoadedAfterwards, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a GET_DEVICE_FLAGS delay 500");
    const int before = simulation::mark();
    user.clickTab(1);
    user.showTab(2);
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < e2", "a < b3", "a < b3", "a < b3"}));
    QCOMPARE(user.userModes(), s_modesOfA);
    QCOMPARE(user.checkBoxes(), QString("reenumerate"));
}

SCENE(TestSimOverlap, changeToTheFirmwarePageDuringAReadLoadsNothing, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a GET_DEVICE_FLAGS delay 500");
    user.clickTab(1);
    user.showTab(0);
    EVENTUALLY(user.isUnlocked());
    QTest::qWait(300);
    QVERIFY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("a"), QStringList{"< e2 v0 i0 1 01"});
}

SCENE(TestSimOverlap, rescanDuringAReadWaitsForIt, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a GET_DEVICE_FLAGS delay 700");
    const int before = simulation::mark();
    user.clickTab(1);
    QVERIFY(user.find<QWidget>("rescanDevicesButton")->isEnabled());
    user.click("rescanDevicesButton");
    QCOMPARE(user.rows(), QStringList());
    QCOMPARE(user.statusLine(), QString("device not selected"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows().size(), 2); // the device that was read is there
    QStringList answered = order(before);
    QCOMPARE(answered.takeFirst(), QString("a < e2"));
    answered.sort();
    QCOMPARE(answered, (QStringList{"a < c8", "b < c8"}));
    // Nobody is selected, so the boxes are nobody's.
    QCOMPARE(user.checkBoxes(), QString(""));
    QVERIFY(!user.isUnlocked());
    user.select("B");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
}

SCENE(TestSimOverlap, rescanDuringAWriteOfTheModesWaitsForAllThree, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    QVERIFY(user.openTab(2));
    simulation::control("fault a USER_MODE every delay 250");
    const int before = simulation::mark();
    user.click("updateUserModesButton");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QStringList answered = order(before);
    QCOMPARE(answered.mid(0, 3), (QStringList{"a > b3", "a > b3", "a > b3"}));
    QCOMPARE(answered.size(), 5);
    QCOMPARE(user.rows().size(), 2);
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, selectionDuringAScanIsLoadedAfterwards, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    QVERIFY(user.openTab(1));
    simulation::control("fault a FX3_STATUS delay 700");
    simulation::control("fault b FX3_STATUS delay 700");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitUntil([&] { return user.list()->count() > 0; }));
    const QString expected =
        user.rowOf("A") == 0 ? "reenumerate" : "keepAspectRatio performanceMode audioSelector";
    user.clickRow(0);
    QCOMPARE(user.scansEnded, 1);
    QVERIFY(!user.isUnlocked());
    const int before = simulation::mark();
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), expected);
    QCOMPARE(order(before).filter("< e2").size(), 1);
    QCOMPARE(order(before).indexOf(QRegularExpression(".* < e2")), order(before).size() - 1);
}

// ---- during a poll

SCENE(TestSimOverlap, settingsAskedForDuringAPoll, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a INPUT_STATUS every delay 800");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.clickTab(1);
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < b2", "a < e2"}));
    QCOMPARE(user.checkBoxes(), QString("reenumerate"));
    QCOMPARE(user.statusLine(), QString("ONE 1920x1080p@60, X"));
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, applyDuringAPoll, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    QVERIFY(user.openTab(1));
    user.click("audioSelectorCheckBox");
    simulation::control("fault a INPUT_STATUS every delay 800");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.click("updateSettingsButton");
    user.select("B"); // is read when the first has been written
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < b2", "a > e3", "b < e2"}));
    QCOMPARE(simulation::state("a")["flags"].toInt(), 0x11);
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, userModesAskedForDuringAPoll, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a INPUT_STATUS every delay 800");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.clickTab(2);
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < b2", "a < b3", "a < b3", "a < b3"}));
    QCOMPARE(user.userModes(), s_modesOfA);
    QVERIFY(user.find<QWidget>("tabUserMode")->isEnabled());
}

SCENE(TestSimOverlap, rescanDuringAPollDoesNotShowItsAnswer, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a INPUT_STATUS every delay 800");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(order(before).first(), QString("a < b2"));
    QCOMPARE(user.rows().size(), 2);
    QCOMPARE(user.statusLine(), QString("device not selected"));
    user.select("B");
    EVENTUALLY_EQUAL(user.statusLine(), QString("TWO 1280x720p@50, Y"));
}

SCENE(TestSimOverlap, rescanDuringAFailingPollDoesNotShowItsAnswer, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a INPUT_STATUS silence");
    QVERIFY(user.waitForPollUnderWay("a"));
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.statusLine(), QString("device not selected"));
    QCOMPARE(user.rows().size(), 2);
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, updateDuringAPollWaitsForIt, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    user.typePackage(simulation::packageFile("velk3"));
    simulation::control("fault a INPUT_STATUS every delay 800");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.click("updateButton");
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(!user.dialog.isEnabled());
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.barText(), QString("Update Completed"));
    QCOMPARE(order(before).mid(0, 2), (QStringList{"a < b2", "a > c5"}));
    QCOMPARE(simulation::memory("a", "fx3"), simulation::packagedImage("velk3", "fx3"));
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimOverlap, requestDuringASilentPollWaitsForItsEnd, s_twoDevices)
{
    SimulatedDialog user;
    user.select("A");
    simulation::control("fault a INPUT_STATUS silence");
    QVERIFY(user.waitForPollUnderWay("a"));
    const int before = simulation::mark();
    user.clickTab(1);
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(order(before), (QStringList{"a < b2", "a < e2"}));
    QCOMPARE(user.checkBoxes(), QString("reenumerate"));
    QCOMPARE(user.statusLine(), QString("request not supported"));
    QCOMPARE(user.boxTexts(), QStringList());
}

SIMULATED_DIALOG_TEST_MAIN(TestSimOverlap)
#include "tst_dialogsim_overlap.moc"
