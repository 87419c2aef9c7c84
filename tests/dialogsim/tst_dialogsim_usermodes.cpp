// The User Modes page of a device that cannot be opened: it is gone, denied, or claimed by another
// program between two of the three requests.

#include "simulateddialog.h"

#include <QJsonArray>

class TestSimUserModes : public SimulatedTest
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
