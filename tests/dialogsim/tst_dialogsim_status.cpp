// The line that shows the input signal of the selected device, when that device has company or
// cannot be asked.

#include "simulateddialog.h"

class TestSimStatus : public SimulatedTest
{
    Q_OBJECT

private slots:
    void pollOfADeviceThatIsGoneIsNotSupported();
    void pollOfADeviceThatCannotBeOpenedIsNotSupported();
    void pollOfABusyDeviceIsNotSupported();
    void brokenDeviceRefusesThePoll();
    void selectedDeviceIsPolled();

private:
    void failPoll(const QString &preparation);
};

namespace {

const char s_scene[] = R"(
allow-denial
device v
    product velk3
    input 1920x1080p 60000 "HDMI" "RGB"
)";

const QString s_signal = "HDMI 1920x1080p@60, RGB";

int countPolls(const QString &device, int since = 0)
{
    return int(simulation::requests(device, since).filter("< b2 ").size());
}

} // namespace

// A poll fails: the line says so, no box appears, and everything stays usable.
void TestSimStatus::failPoll(const QString &preparation)
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
    simulation::control(preparation);
    EVENTUALLY_EQUAL(user.statusLine(), QString("request not supported"));
    QCOMPARE(user.boxTexts(), QStringList());
    QVERIFY(user.isUnlocked());
    QVERIFY(user.find<QWidget>("updateButton")->isEnabled());
}

SCENE(TestSimStatus, pollOfADeviceThatIsGoneIsNotSupported, s_scene)
{
    failPoll("unplug v");
}

SCENE(TestSimStatus, pollOfADeviceThatCannotBeOpenedIsNotSupported, s_scene)
{
    failPoll("set v access denied");
}

// It comes back with the next poll.
SCENE(TestSimStatus, pollOfABusyDeviceIsNotSupported, R"(
device v
    product velk3
    input 1920x1080p 60000 "HDMI" "RGB"
fault v claim nth 2 busy
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), QString("request not supported"));
    QCOMPARE(user.boxTexts(), QStringList());
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
}

// Its boot loader has no such request.
SCENE(TestSimStatus, brokenDeviceRefusesThePoll, R"(
device v
    product velk3
    mode soft
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), QString("request not supported"));
    QCOMPARE(user.boxTexts(), QStringList());
    QVERIFY(user.isUnlocked());
}

SCENE(TestSimStatus, selectedDeviceIsPolled, R"(
device a
    product velk3
    serial "A"
    input 1920x1080p 60000 "ONE" "X"
device b
    product velk3_4k
    serial "B"
    input 3840x2160p 30000 "TWO" "Y"
)")
{
    SimulatedDialog user;
    user.select("A");
    EVENTUALLY_EQUAL(user.statusLine(), QString("ONE 1920x1080p@60, X"));
    QCOMPARE(countPolls("b"), 0);
    const int before = simulation::mark();
    user.select("B");
    EVENTUALLY_EQUAL(user.statusLine(), QString("TWO 3840x2160p@30, Y"));
    QCOMPARE(countPolls("a", before), 0);
}

SIMULATED_DIALOG_TEST_MAIN(TestSimStatus)
#include "tst_dialogsim_status.moc"
