// The line that shows the input signal of the selected device, live.

#include "requestline.h"
#include "simulateddialog.h"

class TestSimStatus : public SimulatedTest
{
    Q_OBJECT

private slots:
    void signalAppearsBecomesInterlacedAndIsLost();
    void signalThatIsThereIsShown();
    void pollOfADeviceThatIsGoneIsNotSupported();
    void pollOfADeviceThatCannotBeOpenedIsNotSupported();
    void pollOfABusyDeviceIsNotSupported();
    void brokenDeviceRefusesThePoll();

    void withoutASelectedRowNothingIsPolled();
    void pollsAreTwoSecondsApart();
    void selectedDeviceIsPolled();
    void statusIsPolledOnEveryTab();
    void noPollDuringAUserModeSequence();
    void noPollDuringAScan();

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

SCENE(TestSimStatus, signalAppearsBecomesInterlacedAndIsLost, "device v\n product velk3\n")
{
    SimulatedDialog user;
    QCOMPARE(user.statusLine(), QString("device not selected"));
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), QString("no signal"));
    simulation::control("set v input 1920x1080p 60000 \"HDMI\" \"RGB\"");
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
    simulation::control("set v input 1920x1080i 29970 \"HDMI\" \"RGB\"");
    EVENTUALLY_EQUAL(user.statusLine(), QString("HDMI 1920x1080i@30, RGB"));
    simulation::control("set v input at 0 none");
    EVENTUALLY_EQUAL(user.statusLine(), QString("no signal"));
    QCOMPARE(user.boxTexts(), QStringList());
    QVERIFY(user.isUnlocked());
}

SCENE(TestSimStatus, signalThatIsThereIsShown, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
    QCOMPARE(simulation::requests("v").last(),
             "< b2 v0 i0 29 " + showBytes(QByteArray::fromHex("524742000000000000000000" // "RGB"
                                                              "48444d4900000000"         // "HDMI"
                                                              "60ea0000"
                                                              "8007"
                                                              "3804"
                                                              "00")));
}

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

// ---- when polls are sent

SCENE(TestSimStatus, withoutASelectedRowNothingIsPolled, s_scene)
{
    SimulatedDialog user;
    QTest::qWait(4500); // the timer has run twice
    QCOMPARE(countPolls("v"), 0);
    QCOMPARE(user.statusLine(), QString("device not selected"));
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    const int before = simulation::mark();
    QTest::qWait(4500);
    QCOMPARE(countPolls("v", before), 0);
}

SCENE(TestSimStatus, pollsAreTwoSecondsApart, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY(countPolls("v") >= 3);
    double last = 0;
    for (const SimLine &line : simulation::transcript().lines("v")) {
        if (line.text.startsWith("< b2 ")) {
            const double gap = line.time - last;
            QVERIFY2(last == 0 || gap > 1500, qPrintable(QString("%1 ms").arg(gap)));
            last = line.time;
        }
    }
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

SCENE(TestSimStatus, statusIsPolledOnEveryTab, s_scene)
{
    SimulatedDialog user;
    user.clickRow(0);
    for (const int tab : {1, 2}) {
        QVERIFY(user.openTab(tab));
        const int before = simulation::mark();
        EVENTUALLY(countPolls("v", before) > 0);
    }
    EVENTUALLY_EQUAL(user.statusLine(), s_signal);
}

// Three slow requests take longer than the pause between polls.
SCENE(TestSimStatus, noPollDuringAUserModeSequence, R"(
device v
    product velk3
    user-mode 0 1x1 on
    user-mode 1 2x2 on
    user-mode 2 3x3 on
fault v USER_MODE every delay 850
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY(countPolls("v") > 0);
    const int before = simulation::mark();
    user.clickTab(2);
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::requests("v", before).mid(0, 3),
             (QStringList{"< b3 v0 i0 5 0100010000", "< b3 v0 i1 5 0200020000",
                          "< b3 v0 i2 5 0300030000"}));
    const int written = simulation::mark();
    user.click("updateUserModesButton");
    EVENTUALLY(user.isUnlocked());
    QCOMPARE(simulation::requests("v", written).filter("> b3 ").size(), 3);
    QCOMPARE(countPolls("v", written), 0);
    EVENTUALLY(countPolls("v", written) > 0);
}

// The scan of four slow devices takes longer than the pause between polls; the user selects the
// first row as soon as it is there.
SCENE(TestSimStatus, noPollDuringAScan, R"(
device v
    product velk3
    count 4
fault v FX3_STATUS every delay 850
)")
{
    SimulatedDialog user;
    const int before = simulation::mark();
    user.click("rescanDevicesButton");
    QVERIFY(user.waitUntil([&] { return user.list()->count() > 0; }));
    user.clickRow(0);
    QVERIFY(!user.isUnlocked());
    QVERIFY(user.waitForScan(2));
    QVERIFY(user.isUnlocked());
    for (const char *device : {"v1", "v2", "v3", "v4"}) {
        QCOMPARE(countPolls(device, before), 0);
    }
    EVENTUALLY_EQUAL(user.statusLine(), QString("no signal"));
}

SIMULATED_DIALOG_TEST_MAIN(TestSimStatus)
#include "tst_dialogsim_status.moc"
