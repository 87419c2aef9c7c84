// The Settings page of a device that cannot be opened: it is gone, denied, or claimed by another
// program.

#include "simulateddialog.h"

class TestSimSettings : public SimulatedTest
{
    Q_OBJECT

private slots:
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
