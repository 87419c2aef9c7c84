// The Settings page: what it shows after every kind of answer, and what it writes.

#include "simulateddialog.h"

class TestSimSettings : public SimulatedTest
{
    Q_OBJECT

private slots:
    void boxesShowTheirBits();
    void bitsWithoutABoxAreNotShownAndWrittenAsZero();
    void applyWritesTheBoxes();
    void allFourBoxesMakeTheByte17();
    void eachBoxIsABit();
    void otherPagesSendNothingAndComingBackReadsAgain();
    void selectionReadsTheOtherDevice();
    void controlsAreLockedDuringARead();
    void readAgainAfterAFailure();

    void readRefused();
    void readMetWithSilence();
    void readFromADeviceThatIsGone();
    void readDuringWhichTheDeviceLeaves();
    void readFromADeviceThatCannotBeOpened();
    void readFromADeviceThatIsBusy();
    void readAnsweredWithNothing();
    void readAnsweredWithAnError();
    void writeRefused();
    void writeMetWithSilence();
    void writeToADeviceThatIsGone();
    void writeDuringWhichTheDeviceLeaves();
    void writeToADeviceThatCannotBeOpened();
    void writeToADeviceThatIsBusy();
    void writeOfWhichNothingArrives();

private:
    void failRead(const QStringList &preparations, const QString &text,
                  const QStringList &requests);
    void failWrite(const QStringList &preparations, const QString &text,
                   const QStringList &requests);
};

namespace {

// The boxes 1010 are shown before anything fails.
const char s_scene[] = R"(
allow-denial
device v
    product velk3
    flags 0x05
)";

const QString s_noAccess = "Cannot access USB. Administrative rights may be required.";

} // namespace

SCENE(TestSimSettings, boxesShowTheirBits, "device v\n product velk3\n flags 0x12\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("0101"));
    QCOMPARE(user.boxTexts(), QStringList());
    QCOMPARE(simulation::configRequests("v"), QStringList{"< GET_DEVICE_FLAGS 12"});
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
}

SCENE(TestSimSettings, bitsWithoutABoxAreNotShownAndWrittenAsZero,
      "device v\n product velk3\n flags 0x08\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("0000"));
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("v"),
             (QStringList{"< GET_DEVICE_FLAGS 08", "> SET_DEVICE_FLAGS 00"}));
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x00);
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimSettings, allFourBoxesMakeTheByte17, "device v\n product velk3\n flags 0xFF\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("1111"));
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("v"),
             (QStringList{"< GET_DEVICE_FLAGS ff", "> SET_DEVICE_FLAGS 17"}));
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x17);
}

SCENE(TestSimSettings, applyWritesTheBoxes, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    user.click("reenumerateCheckBox");
    user.click("keepAspectRatioCheckBox");
    QCOMPARE(user.checkBoxes(), QString("0110"));
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x05); // not before Apply
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x06);
    QCOMPARE(user.checkBoxes(), QString("0110"));
    // What was written is not read back.
    QCOMPARE(simulation::configRequests("v"),
             (QStringList{"< GET_DEVICE_FLAGS 05", "> SET_DEVICE_FLAGS 06"}));
}

SCENE(TestSimSettings, eachBoxIsABit, "device v\n product velk3\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    const std::pair<const char *, int> bits[] = {{"reenumerateCheckBox", 0x01},
                                                 {"keepAspectRatioCheckBox", 0x02},
                                                 {"performanceModeCheckBox", 0x04},
                                                 {"audioSelectorCheckBox", 0x10}};
    for (const auto &[box, bit] : bits) {
        user.click(box);
        user.click("updateSettingsButton");
        EVENTUALLY(user.isUnlocked());
        QCOMPARE(simulation::state("v")["flags"].toInt(), bit);
        user.click(box);
    }
}

SCENE(TestSimSettings, otherPagesSendNothingAndComingBackReadsAgain, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QCOMPARE(simulation::configRequests("v"), QStringList());
    QVERIFY(user.openTab(1));
    QVERIFY(user.openTab(0));
    QCOMPARE(simulation::configRequests("v"), QStringList{"< GET_DEVICE_FLAGS 05"});
    simulation::control("set v flags 0x10");
    QVERIFY(user.openTab(1));
    QCOMPARE(simulation::configRequests("v"),
             (QStringList{"< GET_DEVICE_FLAGS 05", "< GET_DEVICE_FLAGS 10"}));
    QCOMPARE(user.checkBoxes(), QString("0001"));
}

SCENE(TestSimSettings, selectionReadsTheOtherDevice, R"(
device a
    product velk3
    serial "A"
    flags 0x01
device b
    product sorn3
    serial "B"
    flags 0x16
)")
{
    SimulatedDialog user;
    user.select("A");
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("1000"));
    user.select("B");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("0111"));
    user.click("reenumerateCheckBox");
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::state("a")["flags"].toInt(), 0x01);
    QCOMPARE(simulation::state("b")["flags"].toInt(), 0x17);
    QCOMPARE(simulation::configRequests("a").size(), 1);
}

SCENE(TestSimSettings, controlsAreLockedDuringARead, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    simulation::control("fault v GET_DEVICE_FLAGS delay 700");
    user.clickTab(1);
    QVERIFY(!user.isUnlocked());
    user.click("updateSettingsButton");
    user.click("performanceModeCheckBox");
    user.clickTab(0);
    QCOMPARE(user.find<QTabWidget>("tabWidget")->currentIndex(), 1);
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("1010"));
    QCOMPARE(simulation::configRequests("v"), QStringList{"< GET_DEVICE_FLAGS 05"});
}

SCENE(TestSimSettings, readAgainAfterAFailure, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    simulation::control("fault v GET_DEVICE_FLAGS stall");
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("0000"));
    QVERIFY(user.openTab(0));
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("1010"));
    QCOMPARE(user.boxTexts().size(), 1);
}

// ---- failures

// Shows 1010, then lets the next read fail: with the text one box appears, without one there is
// none. In the end everything can be used again.
void TestSimSettings::failRead(const QStringList &preparations, const QString &text,
                               const QStringList &requests)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("1010"));
    QVERIFY(user.openTab(0));
    for (const QString &command : preparations) {
        simulation::control(command);
    }
    const int before = simulation::mark();
    QVERIFY(user.openTab(1));
    QCOMPARE(user.boxTexts(), text.isEmpty()
                                  ? QStringList()
                                  : QStringList{"critical|Device Access Error|" + text + "|Ok"});
    QCOMPARE(user.checkBoxes(), QString(text.isEmpty() ? "0000" : "1010"));
    QCOMPARE(simulation::configRequests("v", before), requests);
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
    QVERIFY(user.find<QWidget>("updateUserModesButton")->isEnabledTo(&user.dialog));
    QVERIFY(user.openTab(0));
}

// The same for a write.
void TestSimSettings::failWrite(const QStringList &preparations, const QString &text,
                                const QStringList &requests)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    user.click("audioSelectorCheckBox");
    for (const QString &command : preparations) {
        simulation::control(command);
    }
    const int before = simulation::mark();
    user.click("updateSettingsButton");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.boxTexts(), text.isEmpty()
                                  ? QStringList()
                                  : QStringList{"critical|Device Access Error|" + text + "|Ok"});
    QCOMPARE(user.checkBoxes(), QString("1011")); // as the user has set them
    QCOMPARE(simulation::configRequests("v", before), requests);
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x05);
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
    QVERIFY(user.openTab(0));
}

SCENE(TestSimSettings, readRefused, s_scene)
{
    failRead({"fault v GET_DEVICE_FLAGS stall"},
             "Error retreiving config device data: req=226, status: Pipe error",
             {"< GET_DEVICE_FLAGS stall"});
}

SCENE(TestSimSettings, readMetWithSilence, s_scene)
{
    failRead({"fault v GET_DEVICE_FLAGS silence"},
             "Error retreiving config device data: req=226, status: Operation timed out",
             {"< GET_DEVICE_FLAGS cancelled"});
}

SCENE(TestSimSettings, readFromADeviceThatIsGone, s_scene)
{
    failRead({"unplug v"}, s_noAccess, {});
}

SCENE(TestSimSettings, readDuringWhichTheDeviceLeaves, s_scene)
{
    failRead({"fault v GET_DEVICE_FLAGS disconnect"},
             "Error retreiving config device data: req=226, status: No such device (it may have "
             "been disconnected)",
             {"< GET_DEVICE_FLAGS no-device"});
}

SCENE(TestSimSettings, readFromADeviceThatCannotBeOpened, s_scene)
{
    failRead({"set v access denied"}, s_noAccess, {});
}

SCENE_REFUSING_CLAIMS(TestSimSettings, readFromADeviceThatIsBusy, s_scene)
{
    failRead({"fault v claim busy"}, s_noAccess, {});
}

// Nothing is not an error: the record that was asked for has no bit set then.
SCENE(TestSimSettings, readAnsweredWithNothing, s_scene)
{
    failRead({"fault v GET_DEVICE_FLAGS short 0"}, QString(), {"< GET_DEVICE_FLAGS"});
}

SCENE(TestSimSettings, readAnsweredWithAnError, s_scene)
{
    failRead({"fault v GET_DEVICE_FLAGS protocol"},
             "Error retreiving config device data: req=226, status: Input/Output Error",
             {"< GET_DEVICE_FLAGS protocol"});
}

SCENE(TestSimSettings, writeRefused, s_scene)
{
    failWrite({"fault v SET_DEVICE_FLAGS stall"}, "Error setting device flags: Pipe error",
              {"> SET_DEVICE_FLAGS 15 stall"});
}

SCENE(TestSimSettings, writeMetWithSilence, s_scene)
{
    failWrite({"fault v SET_DEVICE_FLAGS silence"},
              "Error setting device flags: Operation timed out",
              {"> SET_DEVICE_FLAGS 15 cancelled"});
}

SCENE(TestSimSettings, writeToADeviceThatIsGone, s_scene)
{
    failWrite({"unplug v"}, s_noAccess, {});
}

SCENE(TestSimSettings, writeDuringWhichTheDeviceLeaves, s_scene)
{
    failWrite({"fault v SET_DEVICE_FLAGS disconnect"},
              "Error setting device flags: No such device (it may have been disconnected)",
              {"> SET_DEVICE_FLAGS 15 no-device"});
}

SCENE(TestSimSettings, writeToADeviceThatCannotBeOpened, s_scene)
{
    failWrite({"set v access denied"}, s_noAccess, {});
}

SCENE_REFUSING_CLAIMS(TestSimSettings, writeToADeviceThatIsBusy, s_scene)
{
    failWrite({"fault v claim busy"}, s_noAccess, {});
}

SCENE(TestSimSettings, writeOfWhichNothingArrives, s_scene)
{
    failWrite({"fault v SET_DEVICE_FLAGS short 0"}, QString(), {"> SET_DEVICE_FLAGS 15"});
}

SIMULATED_DIALOG_TEST_MAIN(TestSimSettings)
#include "tst_dialogsim_settings.moc"
