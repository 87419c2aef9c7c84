// The Settings page: what it shows after every kind of answer, and what it writes.

#include "simulateddialog.h"

class TestSimSettings : public SimulatedTest
{
    Q_OBJECT

private slots:
    void boxesShowTheirBits();
    void applyWritesTheBoxes();
    void otherPagesSendNothingAndComingBackReadsAgain();
    void selectionReadsTheOtherDevice();
    void controlsAreLockedDuringARead();

    void readFromADeviceThatIsGone();
    void readFromADeviceThatCannotBeOpened();
    void readFromADeviceThatIsBusy();
    void writeToADeviceThatIsGone();
    void writeToADeviceThatCannotBeOpened();
    void writeToADeviceThatIsBusy();

private:
    void failRead(const QString &preparation);
    void failWrite(const QString &preparation);
};

namespace {

// Two boxes are checked before anything fails.
const char s_scene[] = R"(
allow-denial
device v
    product velk3
    flags 0x05
)";

const QString s_noAccessBox =
    "critical|Device Access Error|Cannot access USB. Administrative rights "
    "may be required.|Ok";

} // namespace

SCENE(TestSimSettings, boxesShowTheirBits, "device v\n product velk3\n flags 0x12\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio audioSelector"));
    QCOMPARE(user.boxTexts(), QStringList());
    QCOMPARE(simulation::configRequests("v"), QStringList{"< e2 v0 i0 1 12"});
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
}

SCENE(TestSimSettings, applyWritesTheBoxes, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    user.click("reenumerateCheckBox");
    user.click("keepAspectRatioCheckBox");
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode"));
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x05); // not before Apply
    user.click("updateSettingsButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x06);
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode"));
    // What was written is not read back.
    QCOMPARE(simulation::configRequests("v"), (QStringList{"< e2 v0 i0 1 05", "> e3 v0 i0 1 06"}));
}

SCENE(TestSimSettings, otherPagesSendNothingAndComingBackReadsAgain, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QCOMPARE(simulation::configRequests("v"), QStringList());
    QVERIFY(user.openTab(1));
    QVERIFY(user.openTab(0));
    QCOMPARE(simulation::configRequests("v"), QStringList{"< e2 v0 i0 1 05"});
    simulation::control("set v flags 0x10");
    QVERIFY(user.openTab(1));
    QCOMPARE(simulation::configRequests("v"), (QStringList{"< e2 v0 i0 1 05", "< e2 v0 i0 1 10"}));
    QCOMPARE(user.checkBoxes(), QString("audioSelector"));
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
    QCOMPARE(user.checkBoxes(), QString("reenumerate"));
    user.select("B");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.checkBoxes(), QString("keepAspectRatio performanceMode audioSelector"));
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
    QCOMPARE(user.checkBoxes(), QString("reenumerate performanceMode"));
    QCOMPARE(simulation::configRequests("v"), QStringList{"< e2 v0 i0 1 05"});
}

// ---- failures

// Shows two boxes, then keeps the device from being opened for the next read: one box appears, and
// in the end everything can be used again.
void TestSimSettings::failRead(const QString &preparation)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString("reenumerate performanceMode"));
    QVERIFY(user.openTab(0));
    simulation::control(preparation);
    const int before = simulation::mark();
    QVERIFY(user.openTab(1));
    QCOMPARE(user.boxTexts(), QStringList{s_noAccessBox});
    QCOMPARE(user.checkBoxes(), QString("reenumerate performanceMode"));
    QCOMPARE(simulation::configRequests("v", before), QStringList());
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
    QVERIFY(user.find<QWidget>("updateUserModesButton")->isEnabledTo(&user.dialog));
    QVERIFY(user.openTab(0));
}

// The same for a write.
void TestSimSettings::failWrite(const QString &preparation)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(1));
    user.click("audioSelectorCheckBox");
    simulation::control(preparation);
    const int before = simulation::mark();
    user.click("updateSettingsButton");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.boxTexts(), QStringList{s_noAccessBox});
    // As the user has set them.
    QCOMPARE(user.checkBoxes(), QString("reenumerate performanceMode audioSelector"));
    QCOMPARE(simulation::configRequests("v", before), QStringList());
    QCOMPARE(simulation::state("v")["flags"].toInt(), 0x05);
    QVERIFY(user.find<QWidget>("updateSettingsButton")->isEnabled());
    QVERIFY(user.openTab(0));
}

SCENE(TestSimSettings, readFromADeviceThatIsGone, s_scene)
{
    failRead("unplug v");
}

SCENE(TestSimSettings, readFromADeviceThatCannotBeOpened, s_scene)
{
    failRead("set v access denied");
}

SCENE(TestSimSettings, readFromADeviceThatIsBusy, s_scene)
{
    failRead("fault v claim busy");
}

SCENE(TestSimSettings, writeToADeviceThatIsGone, s_scene)
{
    failWrite("unplug v");
}

SCENE(TestSimSettings, writeToADeviceThatCannotBeOpened, s_scene)
{
    failWrite("set v access denied");
}

SCENE(TestSimSettings, writeToADeviceThatIsBusy, s_scene)
{
    failWrite("fault v claim busy");
}

SIMULATED_DIALOG_TEST_MAIN(TestSimSettings)
#include "tst_dialogsim_settings.moc"
