// What happens when the user asks for something while a device is still busy with something else.
// The devices here are slow. That no request came while another one had the device is looked at
// after every test: its claim would have been refused. One test for each pair that can meet; every
// order of them is in the tables of the dialog's own tests, which need no device.

#include "simulateddialog.h"

class TestSimOverlap : public SimulatedTest
{
    Q_OBJECT

private slots:
    void quickChangesOfSelectionEndWithTheSettingsOfTheSelectedDevice();
    void quickChangesOfSelectionEndWithTheModesOfTheSelectedDevice();
    void rescanDuringAReadWaitsForIt();
    void applyDuringAPoll();
    void rescanDuringAPollDoesNotShowItsAnswer();
    void updateDuringAPollWaitsForIt();
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

SIMULATED_DIALOG_TEST_MAIN(TestSimOverlap)
#include "tst_dialogsim_overlap.moc"
