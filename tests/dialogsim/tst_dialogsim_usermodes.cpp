// The User Modes page: three records, one request after another.

#include "simulateddialog.h"

#include <QJsonArray>

class TestSimUserModes : public SimulatedTest
{
    Q_OBJECT

private slots:
    void modesAreReadOneAfterAnother();
    void modesThatAreSwitchedOffKeepTheirSizes();
    void largestSizesAreShown();
    void modesAreWrittenOneAfterAnother();
    void uncheckedModesAreWrittenToo();
    void switchingAModeOffWritesTheDisabledByte();

    void readFromADeviceThatIsGone();
    void readFromADeviceThatCannotBeOpened();
    void readFromADeviceThatIsBusy();

    void writeToADeviceThatIsGone();
    void writeToADeviceThatCannotBeOpened();
    void writeToADeviceThatIsBusy();

private:
    void failRead(const QStringList &preparations, const QStringList &requests,
                  const QString &modesShown);
    void failWrite(const QStringList &preparations, const QStringList &requests, int modesWritten);
};

namespace {

const char s_scene[] = R"(
allow-denial
device v
    product velk3
    user-mode 0 1280x720 on
    user-mode 1 1920x1080 off
    user-mode 2 640x480 on
)";

const QString s_asInTheScene = "1280x720 on, 1920x1080 off, 640x480 on";
const QStringList s_threeReads = {"< b3 v0 i0 5 0005d00200", "< b3 v0 i1 5 8007380401",
                                  "< b3 v0 i2 5 8002e00100"};
const QString s_noAccess = "Cannot access USB. Administrative rights may be required.";

QString heldModes()
{
    QStringList modes;
    for (const QJsonValue mode : simulation::state("v")["userModes"].toArray()) {
        modes.append(QString("%1x%2 %3")
                         .arg(mode["width"].toInt())
                         .arg(mode["height"].toInt())
                         .arg(mode["disabled"].toInt()));
    }
    return modes.join(", ");
}

} // namespace

SCENE(TestSimUserModes, modesAreReadOneAfterAnother, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QCOMPARE(simulation::configRequests("v"), QStringList());
    QVERIFY(user.openTab(2));
    QCOMPARE(simulation::configRequests("v"), s_threeReads);
    QCOMPARE(user.userModes(), s_asInTheScene);
    QCOMPARE(user.boxTexts(), QStringList());
    QVERIFY(user.find<QWidget>("userMode1Width")->isEnabled());
    QVERIFY(!user.find<QWidget>("userMode2Width")->isEnabled());
}

SCENE(TestSimUserModes, modesThatAreSwitchedOffKeepTheirSizes, R"(
device v
    product velk3_4k
    user-mode 0 1280x720 off
    user-mode 1 1x2 off
    user-mode 2 640x480 off
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    QCOMPARE(user.userModes(), QString("1280x720 off, 1x2 off, 640x480 off"));
}

SCENE(TestSimUserModes, largestSizesAreShown, R"(
device v
    product velk3
    user-mode 0 65535x65535 on
    user-mode 1 256x255 on
    user-mode 2 0x0 on
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    QCOMPARE(user.userModes(), QString("65535x65535 on, 256x255 on, 0x0 on"));
}

SCENE(TestSimUserModes, modesAreWrittenOneAfterAnother, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    user.setUserMode(0, 800, 600, true);
    user.setUserMode(1, 65535, 258, true);
    user.setUserMode(2, 0, 1, false);
    const int before = simulation::mark();
    user.click("updateUserModesButton");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("v", before),
             (QStringList{"> b3 v0 i0 5 2003580200", "> b3 v0 i1 5 ffff020100",
                          "> b3 v0 i2 5 0000010001"}));
    QCOMPARE(heldModes(), QString("800x600 0, 65535x258 0, 0x1 1"));
    QCOMPARE(user.boxTexts(), QStringList());
    // Reading shows the same again.
    QVERIFY(user.openTab(0));
    QVERIFY(user.openTab(2));
    QCOMPARE(user.userModes(), QString("800x600 on, 65535x258 on, 0x1 off"));
}

SCENE(TestSimUserModes, uncheckedModesAreWrittenToo, R"(
device v
    product velk3
    user-mode 0 1280x720 off
    user-mode 1 1920x1080 off
    user-mode 2 640x480 off
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    const int before = simulation::mark();
    user.click("updateUserModesButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::configRequests("v", before),
             (QStringList{"> b3 v0 i0 5 0005d00201", "> b3 v0 i1 5 8007380401",
                          "> b3 v0 i2 5 8002e00101"}));
}

SCENE(TestSimUserModes, switchingAModeOffWritesTheDisabledByte, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    user.click("userMode1"); // the box in its title
    QCOMPARE(user.userModes(), QString("1280x720 off, 1920x1080 off, 640x480 on"));
    user.click("updateUserModesButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(heldModes(), QString("1280x720 1, 1920x1080 1, 640x480 0"));
}

// ---- failing reads

// Shows the scene's modes, changes what the device holds to 1x1, 2x2 and 3x3, all off, and lets the
// next reading of the three fail.
void TestSimUserModes::failRead(const QStringList &preparations, const QStringList &requests,
                                const QString &modesShown)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    QVERIFY(user.openTab(0));
    for (const QString &command :
         QStringList{"set v user-mode 0 1x1 off", "set v user-mode 1 2x2 off",
                     "set v user-mode 2 3x3 off"} +
             preparations) {
        simulation::control(command);
    }
    const int before = simulation::mark();
    QVERIFY(user.openTab(2));
    QCOMPARE(simulation::configRequests("v", before), requests);
    QCOMPARE(user.userModes(), modesShown);
    // No box: the page itself says that it does not show what the device holds.
    QCOMPARE(user.boxTexts(), QStringList());
    QVERIFY(!user.find<QWidget>("tabUserMode")->isEnabled());
    const int after = simulation::mark();
    user.click("updateUserModesButton");
    QCOMPARE(simulation::configRequests("v", after), QStringList());
    // The other tabs can be used, and with them this one.
    QVERIFY(user.openTab(0));
    QVERIFY(user.find<QWidget>("updateButton")->isEnabled());
}

SCENE(TestSimUserModes, readFromADeviceThatIsGone, s_scene)
{
    failRead({"unplug v"}, {}, s_asInTheScene);
}

SCENE(TestSimUserModes, readFromADeviceThatCannotBeOpened, s_scene)
{
    failRead({"set v access denied"}, {}, s_asInTheScene);
}

SCENE(TestSimUserModes, readFromADeviceThatIsBusy, s_scene)
{
    failRead({"fault v claim nth 2 busy"}, {"< b3 v0 i0 5 0100010001"},
             "1x1 off, 1920x1080 off, 640x480 on");
}

// ---- failing writes

// Writes 1x1, 2x2 and 3x3, of which as many arrive as is said.
void TestSimUserModes::failWrite(const QStringList &preparations, const QStringList &requests,
                                 int modesWritten)
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.openTab(2));
    user.setUserMode(0, 1, 1, true);
    user.setUserMode(1, 2, 2, true);
    user.setUserMode(2, 3, 3, true);
    for (const QString &command : preparations) {
        simulation::control(command);
    }
    const int before = simulation::mark();
    user.click("updateUserModesButton");
    QVERIFY(!user.isUnlocked());
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(user.boxTexts(), QStringList{"critical|Device Access Error|" + s_noAccess + "|Ok"});
    QCOMPARE(simulation::configRequests("v", before), requests);
    const QStringList before3{"1280x720 0", "1920x1080 1", "640x480 0"};
    const QStringList after3{"1x1 0", "2x2 0", "3x3 0"};
    QCOMPARE(heldModes(), (after3.mid(0, modesWritten) + before3.mid(modesWritten)).join(", "));
    // What the user has entered stays.
    QCOMPARE(user.userModes(), QString("1x1 on, 2x2 on, 3x3 on"));
    QVERIFY(user.openTab(0));
}

SCENE(TestSimUserModes, writeToADeviceThatIsGone, s_scene)
{
    failWrite({"unplug v"}, {}, 0);
}

SCENE(TestSimUserModes, writeToADeviceThatCannotBeOpened, s_scene)
{
    failWrite({"set v access denied"}, {}, 0);
}

SCENE(TestSimUserModes, writeToADeviceThatIsBusy, s_scene)
{
    failWrite({"fault v claim nth 2 busy"}, {"> b3 v0 i0 5 0100010000"}, 1);
}

SIMULATED_DIALOG_TEST_MAIN(TestSimUserModes)
#include "tst_dialogsim_usermodes.moc"
