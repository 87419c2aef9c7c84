#include "simrun.h"

#include <QtTest>

// The simulated devices as the real libusb sees them.
class TestSimUsb : public QObject
{
    Q_OBJECT

private slots:
    void devicesAreListedWithTheirPortsAndAddresses();
    void stringsAreReadThroughLibusb();
    void absentStringsAreStalled();
    void exitCodeIsTheProgramsOwn();
    void deathBySignalIsReportedAs128AndTheSignal();
    void missingProgramGives127();
    void sceneErrorGives2AndOneLine();
    void violationGives90();
    void bootLoaderRefusesSettingsWithoutAViolation();
    void lenientSceneKeepsTheProgramsCode();
    void claimIsExclusivePerFile();
    void secondInterfaceIsNotFound();
    void kernelDriverBlocksTheClaimUntilDetached();
    void driverLinkFollowsClaimsAndDetaching();
    void linkOfAClosedFilesClaimGoes();
    void speedAndBusAreAsTheSceneHasThem();
    void devicesBehindHubsHaveTheirPaths();
    void sandboxComesBackOnAnotherBusAtAnotherSpeed();
    void interfacesHaveClaimsAndDriversOfTheirOwn();
    void claimOfAnotherInterfaceIsNotEnough();
    void driversAreBoundToAllInterfacesAtEveryPlug();
    void attachingWhileClaimedIsBusy();
    void attachingWithoutAnyDriverIsNotFound();
    void requestWithoutClaimIsAViolation();
    void deniedDeviceCannotBeOpened();
    void deniedDeviceStaysClosedToRoot();
    void missingNodeIsNoDevice();
    void closedFileHasGivenItsClaimBack();
    void faults_data();
    void faults();
    void nthFaultStrikesOnce();
    void everyFaultStrikesAlways();
    void transferFaultCountsStandardRequestsToo();
    void shortOutLeavesOnlyThoseBytes();
    void performedFaultLosesOnlyTheAnswer_data();
    void performedFaultLosesOnlyTheAnswer();
    void disconnectedDeviceComesBackAtItsNewAddress();
    void silenceIsRecordedAsCancelled();
    void writtenImagesEqualThePackage();
    void writtenMicrocodeGivesTheVersion();
    void powerCycleGivesAFreshAddress();
    void cutUpdateComesBackInSoftRepair();
    void repairFromEachBootLoader_data();
    void repairFromEachBootLoader();
    void wrongSandboxImageNeverComesBack();
    void lostSandboxComesBackAfterAPowerCycle();
    void idleDeviceIsPowerCycledAfterItsUpdate();
    void unpluggingFailsTransfersInFlight();
    void killedProgramLeavesTheDeviceUsable();
    void powerCyclesAndTrafficMix();
    void hundredDevicesAreListed();
    void twentyReplugsAreSeenAtOnce();
    void settingsCanBeChangedWhileTheProgramRuns();
    void callsAreCountedAtAllAddresses();
    void lateFetchingOfADelayedAnswerIsTold();
    void controlChannelNamesWhatIsWrong();
};

namespace {

const QByteArray s_velk3 = "device v\n product velk3\n";

QByteArray velk3With(const QByteArray &more)
{
    return s_velk3 + more + "\n";
}

const QStringList s_openAndClaim = {"open e5c1:3601", "claim 0"};

} // namespace

void TestSimUsb::devicesAreListedWithTheirPortsAndAddresses()
{
    const SimRun run("device a\n product velk3\n port 7\n address 9\n"
                     "device b\n product sorn3\n"
                     "device c\n product velk3_4k\n bus 3\n id e5c1:3641\n"
                     "device d\n product other\n id 1209:0001\n",
                     {"list"});
    QCOMPARE(run.lines(), QStringList("1209:0001@2.3 e5c1:3601@7.9 e5c1:3621@1.2 e5c1:3641@1.2"));
    QCOMPARE(run.exitCode(), 0);
}

void TestSimUsb::stringsAreReadThroughLibusb()
{
    const SimRun run(
        velk3With("product-string \"Grabber\"\n serial \"A1B2C3D4\"\n version \"1.2.3\""),
        {"open e5c1:3601", "string 2", "string 3", "string 4"});
    QCOMPARE(run.lines(), QStringList({"0", "Grabber", "1.2.3", "A1B2C3D4"}));
}

void TestSimUsb::absentStringsAreStalled()
{
    const SimRun run(velk3With("serial none\n version none"),
                     {"open e5c1:3601", "string 3", "string 4"});
    QCOMPARE(run.lines(), QStringList({"0", "PIPE", "PIPE"}));
    QCOMPARE(run.exitCode(), 0);
}

void TestSimUsb::exitCodeIsTheProgramsOwn()
{
    QCOMPARE(SimRun(s_velk3, {"exit 7"}).exitCode(), 7);
}

void TestSimUsb::deathBySignalIsReportedAs128AndTheSignal()
{
    QCOMPARE(SimRun(s_velk3, {"die"}).exitCode(), 128 + 9);
}

void TestSimUsb::missingProgramGives127()
{
    QTemporaryDir directory;
    const SimRun run(s_velk3, {"-", "--", "/no/such/program"}, directory.path());
    QCOMPARE(run.exitCode(), 127);
}

void TestSimUsb::sceneErrorGives2AndOneLine()
{
    const SimRun run("device v\n  prodcut velk3\n", {"list"});
    QCOMPARE(run.exitCode(), 2);
    QCOMPARE(run.errors(), QString("standard input:2: unknown word 'prodcut'\n"));
    QVERIFY(run.lines().isEmpty());
}

void TestSimUsb::violationGives90()
{
    const SimRun run(s_velk3, s_openAndClaim + QStringList{"out 0xc6 0 0 *4", "exit 3"});
    QCOMPARE(run.lines().last(), QString("PIPE"));
    QCOMPARE(run.exitCode(), 90);
    QCOMPARE(run.events("violation").size(), 1);
    QCOMPARE(run.events("violation")[0]["text"].toString(),
             QString("FX3_WRITE: block without a start"));
}

void TestSimUsb::bootLoaderRefusesSettingsWithoutAViolation()
{
    // The dialog asks whatever device is selected; writing images to a boot loader stays an
    // offence.
    const QStringList settings = {"open e5c1:3600", "claim 0",         "in 0xb2 0 0 29",
                                  "in 0xb3 0 2 5",  "out 0xb3 0 2 *5", "in 0xe2 0 0 1",
                                  "out 0xe3 0 0 *1"};
    const SimRun run(velk3With("mode soft"), settings);
    QCOMPARE(run.lines().mid(2), QStringList({"PIPE", "PIPE", "PIPE", "PIPE", "PIPE"}));
    QVERIFY(run.events("violation").isEmpty());
    QCOMPARE(run.exitCode(), 0);

    const SimRun writing(velk3With("mode soft"), {"open e5c1:3600", "claim 0", "out 0xc5 0 0"});
    QCOMPARE(writing.exitCode(), 90);
}

void TestSimUsb::lenientSceneKeepsTheProgramsCode()
{
    const SimRun run("lenient\n" + s_velk3,
                     s_openAndClaim + QStringList{"out 0xc6 0 0 *4", "exit 3"});
    QCOMPARE(run.exitCode(), 3);
    QCOMPARE(run.events("violation").size(), 1);
}

void TestSimUsb::claimIsExclusivePerFile()
{
    const SimRun run(s_velk3, {"open e5c1:3601", "claim 0", "claim 0", "use 1", "open e5c1:3601",
                               "claim 0", "use 0", "release", "use 1", "claim 0"});
    QCOMPARE(run.lines(),
             QStringList({"0", "0", "0", "done", "0", "BUSY", "done", "0", "done", "0"}));
}

void TestSimUsb::secondInterfaceIsNotFound()
{
    const SimRun run(s_velk3, {"open e5c1:3601", "claim 1"});
    QCOMPARE(run.lines(), QStringList({"0", "NOT_FOUND"}));
}

void TestSimUsb::kernelDriverBlocksTheClaimUntilDetached()
{
    const SimRun run(velk3With("kernel-driver uvcvideo"),
                     {"open e5c1:3601", "active", "claim 0", "detach", "active", "claim 0",
                      "release", "attach", "active"});
    QCOMPARE(run.lines(), QStringList({"0", "1", "BUSY", "0", "0", "0", "0", "0", "1"}));
}

void TestSimUsb::driverLinkFollowsClaimsAndDetaching()
{
    const SimRun run(velk3With("kernel-driver uvcvideo"),
                     {"driver 1-1:1.0", "open e5c1:3601", "driver 1-1:1.0", "claim 0",
                      "driver 1-1:1.0", "detach", "driver 1-1:1.0", "claim 0", "driver 1-1:1.0",
                      "release", "driver 1-1:1.0", "attach", "driver 1-1:1.0"});
    QCOMPARE(run.lines(), QStringList({"uvcvideo", "0", "uvcvideo", "BUSY", "uvcvideo", "0", "none",
                                       "0", "usbfs", "0", "none", "0", "uvcvideo"}));
}

void TestSimUsb::linkOfAClosedFilesClaimGoes()
{
    const SimRun run(s_velk3, {"open e5c1:3601", "claim 0", "driver 1-1:1.0", "close",
                               "open e5c1:3601", "active", "driver 1-1:1.0"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "usbfs", "done", "0", "0", "none"}));
}

void TestSimUsb::speedAndBusAreAsTheSceneHasThem()
{
    const SimRun run("device a\n product velk3\n port 4\n speed 12\n"
                     "device b\n product sorn3\n bus 2\n port 4\n speed 480\n"
                     "device c\n product velk3_4k\n bus 3\n port 4\n speed 10000\n"
                     "device d\n product other\n id 1209:0001\n",
                     {"list", "speed e5c1:3601", "speed e5c1:3621", "speed e5c1:3631",
                      "speed 1209:0001", "sim set a speed 480", "speed e5c1:3601",
                      "sim power-cycle a", "speed e5c1:3601"});
    QCOMPARE(run.lines(),
             QStringList({"1209:0001@1.3 e5c1:3601@4.2 e5c1:3621@4.2 e5c1:3631@4.2", "1 12",
                          "2 480", "3 10000", "1 5000", "ok", "1 12", "ok", "1 480"}));
}

void TestSimUsb::devicesBehindHubsHaveTheirPaths()
{
    const SimRun run("device a\n product velk3\n behind-hub 3.1\n port 4\n"
                     "device b\n product sorn3\n bus 3\n behind-hub 1\n"
                     "device c\n product velk3_4k\n behind-hub 2\n port 4\n"
                     "device d\n product other\n id 1209:0001\n bus 3\n behind-hub 1\n"
                     "device e\n product other\n id 1209:0002\n bus 3\n",
                     {"list", "path e5c1:3601", "path e5c1:3621", "path e5c1:3631",
                      "path 1209:0001", "path 1209:0002", "driver 1-3:1.0", "driver 1-3.1:1.0",
                      "driver 1-3.1.4:1.0", "open e5c1:3601", "claim 0", "driver 1-3.1.4:1.0",
                      "close", "sim power-cycle a", "path e5c1:3601"});
    QCOMPARE(run.lines(),
             QStringList(
                 {"05e3:0626@1.125 05e3:0626@1.127 05e3:0626@2.127 05e3:0626@3.126 1209:0001@2.3 "
                  "1209:0002@2.4 "
                  "e5c1:3601@4.2 e5c1:3621@1.2 e5c1:3631@4.3",
                  "1-3.1.4", "3-1.1", "1-2.4", "3-1.2", "3-2", "hub", "hub", "none", "0", "0",
                  "usbfs", "done", "ok", "1-3.1.4"}));
    QCOMPARE(run.events("plug")[0]["path"].toString(), QString("3.1.4"));
}

// Power brings it home again.
void TestSimUsb::sandboxComesBackOnAnotherBusAtAnotherSpeed()
{
    const QString sandbox = packageFile("velk3/sandbox.img");
    const SimRun run(velk3With("mode soft\n speed 480\n return after 20 bus 2 speed 10000"),
                     {"speed e5c1:3600", "open e5c1:3600", "claim 0", "boot " + sandbox, "close",
                      "gone e5c1:3600 5000", "wait e5c1:360f 5000", "speed e5c1:360f",
                      "sim power-cycle v", "speed e5c1:3600"});
    QCOMPARE(run.lines(), QStringList({"1 480", "0", "0", "0", "done", "done", "done", "2 10000",
                                       "ok", "1 480"}));
    QCOMPARE(run.events("plug")[1]["bus"].toInt(), 2);
    QCOMPARE(run.events("plug")[1]["speed"].toInt(), 10000);
}

void TestSimUsb::interfacesHaveClaimsAndDriversOfTheirOwn()
{
    const QByteArray scene = velk3With(
        "interfaces 3\n kernel-driver uvcvideo\n kernel-driver snd-usb-audio interface 1");
    const QStringList links = {"driver 1-1:1.0", "driver 1-1:1.1", "driver 1-1:1.2"};
    const SimRun run(
        scene,
        QStringList{"open e5c1:3601", "active 0", "active 1", "active 2"} + links +
            QStringList{"claim 1", "claim 2"} + links + QStringList{"detach 0", "claim 0"} + links +
            QStringList{"use 1", "open e5c1:3601", "claim 2", "detach 1", "claim 1", "use 0"} +
            links + QStringList{"release 0", "attach 0", "attach 2"} + links +
            QStringList{"close", "open e5c1:3601", "active 2"} + links +
            QStringList{"use 1", "claim 3", "attach 1", "release 1", "attach 1"} + links);
    const QStringList expected = {
        "0",        "1",
        "1",        "0", //
        "uvcvideo", "snd-usb-audio",
        "none",          //
        "BUSY",     "0", // of 1, of 2
        "uvcvideo", "snd-usb-audio",
        "usbfs",         //
        "0",        "0", //
        "usbfs",    "snd-usb-audio",
        "usbfs", //
        "done",     "0",
        "BUSY",     "0",
        "0",        "done", // another file's
        "usbfs",    "usbfs",
        "usbfs", //
        "0",        "0",
        "BUSY", // 2 is claimed
        "uvcvideo", "usbfs",
        "usbfs", //
        "done",     "0",
        "0", // the first file's are gone
        "uvcvideo", "usbfs",
        "none", //
        "done",     "NOT_FOUND",
        "BUSY",     "0",
        "0", //
        "uvcvideo", "snd-usb-audio",
        "none",
    };
    QCOMPARE(run.lines(), expected);
}

void TestSimUsb::claimOfAnotherInterfaceIsNotEnough()
{
    const SimRun run(velk3With("interfaces 2"),
                     {"open e5c1:3601", "claim 1", "in 0xc8 0 0 1", "claim 0", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "PIPE", "0", "1 01"}));
    QCOMPARE(run.events("violation").size(), 1);
}

void TestSimUsb::driversAreBoundToAllInterfacesAtEveryPlug()
{
    const SimRun run(velk3With("interfaces 2\n kernel-driver uvcvideo interface 1"),
                     {"open e5c1:3601", "detach 1", "claim 1", "driver 1-1:1.1", "close",
                      "sim power-cycle v", "driver 1-1:1.0", "driver 1-1:1.1"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "0", "usbfs", "done", "ok", "none", "uvcvideo"}));
}

void TestSimUsb::attachingWhileClaimedIsBusy()
{
    const SimRun run(velk3With("kernel-driver uvcvideo"),
                     {"open e5c1:3601", "detach", "claim 0", "attach", "release", "active"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "0", "BUSY", "0", "0"}));
}

void TestSimUsb::attachingWithoutAnyDriverIsNotFound()
{
    const SimRun run(s_velk3, {"open e5c1:3601", "active", "attach"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "NOT_FOUND"}));
}

void TestSimUsb::requestWithoutClaimIsAViolation()
{
    const SimRun run(s_velk3, {"open e5c1:3601", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines(), QStringList({"0", "PIPE"}));
    QCOMPARE(run.exitCode(), 90);
}

void TestSimUsb::deniedDeviceCannotBeOpened()
{
    const SimRun run("allow-denial\n" + s_velk3,
                     {"open e5c1:3601", "close", "sim fault v open denied", "open e5c1:3601",
                      "sim clear-faults", "open e5c1:3601", "close", "sim set v access denied",
                      "open e5c1:3601"});
    QCOMPARE(run.lines(),
             QStringList({"0", "done", "ok", "ACCESS", "ok", "0", "done", "ok", "ACCESS"}));
}

void TestSimUsb::deniedDeviceStaysClosedToRoot()
{
    // Passes for other users too; as root it shows that the capability was given up.
    QCOMPARE(SimRun(velk3With("access denied"), {"open e5c1:3601"}).lines(), QStringList("ACCESS"));
    QCOMPARE(SimRun(velk3With("fault v open denied"), {"open e5c1:3601"}).lines(),
             QStringList("ACCESS"));
}

void TestSimUsb::missingNodeIsNoDevice()
{
    // libusb forgets a device whose node is missing, until it is plugged in again.
    const SimRun run(velk3With("fault v open no-device"),
                     {"list", "open e5c1:3601", "sim clear-faults v", "sim power-cycle v",
                      "open e5c1:3601", "close", "sim fault v open no-device", "open e5c1:3601"});
    QCOMPARE(run.lines(), QStringList({"e5c1:3601@1.2", "NO_DEVICE", "ok", "ok", "0", "done", "ok",
                                       "NO_DEVICE"}));
}

void TestSimUsb::closedFileHasGivenItsClaimBack()
{
    QStringList verbs;
    QStringList expected;
    for (int i = 0; i < 100; ++i) {
        verbs << "open e5c1:3601"
              << "claim 0"
              << "close";
        expected << "0"
                 << "0"
                 << "done";
    }
    const SimRun run(s_velk3, verbs);
    QCOMPARE(run.lines(), expected);
    // Each file is closed before the next is opened, in the transcript too.
    const QList<QJsonObject> &transcript = run.transcript();
    QStringList events;
    for (const QJsonObject &entry : transcript.mid(1)) {
        events << entry["event"].toString() + entry["file"].toVariant().toString();
    }
    QStringList inOrder;
    for (int i = 1; i <= 100; ++i) {
        for (const char *event : {"open", "claim", "close"}) {
            inOrder << event + QString::number(i);
        }
    }
    QCOMPARE(events, inOrder);
}

void TestSimUsb::faults_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<QStringList>("verbs");
    QTest::addColumn<QStringList>("expected"); // after opening and claiming
    QTest::addColumn<QString>("status");       // of the last transfer in the transcript

    const QStringList ping = {"in 0xc8 0 0 1"};
    QTest::newRow("stall") << QByteArray("FX3_STATUS stall") << ping << QStringList("PIPE")
                           << "stall";
    QTest::newRow("silence") << QByteArray("FX3_STATUS silence") << ping << QStringList("TIMEOUT")
                             << "cancelled";
    QTest::newRow("disconnect") << QByteArray("FX3_STATUS disconnect") << ping
                                << QStringList("NO_DEVICE") << "no-device";
    QTest::newRow("protocol") << QByteArray("FX3_STATUS protocol") << ping << QStringList("IO")
                              << "protocol";
    QTest::newRow("overflow") << QByteArray("FX3_STATUS overflow") << ping
                              << QStringList("OVERFLOW") << "overflow";
    QTest::newRow("short in") << QByteArray("INPUT_STATUS short 3") << QStringList("in 0xb2 0 0 29")
                              << QStringList("3 000000") << "ok";
    QTest::newRow("short to nothing")
        << QByteArray("FX3_STATUS short 0") << ping << QStringList("0") << "ok";
    QTest::newRow("short out") << QByteArray("USER_MODE out short 2")
                               << QStringList("out 0xb3 0 0 *5") << QStringList("2") << "ok";
    QTest::newRow("data") << QByteArray("GET_DEVICE_FLAGS data 5a") << QStringList("in 0xe2 0 0 1")
                          << QStringList("1 5a") << "ok";
    QTest::newRow("zeros") << QByteArray("FX3_STATUS zeros 5") << QStringList("poll 0xc8")
                           << QStringList("5") << "ok";
    QTest::newRow("delay") << QByteArray("FX3_STATUS delay 30") << ping << QStringList("1 01")
                           << "ok";
    QTest::newRow("by number") << QByteArray("0xc8 stall") << ping << QStringList("PIPE")
                               << "stall";
    QTest::newRow("other direction") << QByteArray("USER_MODE in stall")
                                     << QStringList("out 0xb3 0 0 *5") << QStringList("5") << "ok";
    QTest::newRow("one index") << QByteArray("USER_MODE in index 1 stall")
                               << QStringList({"in 0xb3 0 0 5", "in 0xb3 0 1 5"})
                               << QStringList({"5 0000000000", "PIPE"}) << "stall";
    QTest::newRow("claim busy") << QByteArray("claim nth 2 busy")
                                << QStringList({"release", "claim 0"}) << QStringList({"0", "BUSY"})
                                << "";
    QTest::newRow("claim not found")
        << QByteArray("claim nth 2 not-found") << QStringList({"release", "claim 0"})
        << QStringList({"0", "NOT_FOUND"}) << "";
    QTest::newRow("claim without device")
        << QByteArray("claim nth 2 no-device") << QStringList({"release", "claim 0"})
        << QStringList({"0", "NO_DEVICE"}) << "";
    QTest::newRow("string") << QByteArray("string 3 stall") << QStringList("string 3")
                            << QStringList("PIPE") << "stall";
}

void TestSimUsb::faults()
{
    QFETCH(QByteArray, fault);
    QFETCH(QStringList, verbs);
    QFETCH(QStringList, expected);
    QFETCH(QString, status);
    const SimRun run(velk3With("fault v " + fault), s_openAndClaim + verbs);
    QCOMPARE(run.lines().mid(2), expected);
    QCOMPARE(run.lastTransfer()["status"].toString(), status);
    QCOMPARE(run.exitCode(), 0);
}

void TestSimUsb::nthFaultStrikesOnce()
{
    const SimRun run(velk3With("fault v FX3_STATUS nth 2 stall"),
                     s_openAndClaim +
                         QStringList{"in 0xc8 0 0 1", "in 0xc8 0 0 1", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines().mid(2), QStringList({"1 01", "PIPE", "1 01"}));
}

void TestSimUsb::everyFaultStrikesAlways()
{
    const SimRun claims(velk3With("fault v claim every busy"),
                        {"open e5c1:3601", "claim 0", "claim 0"});
    QCOMPARE(claims.lines(), QStringList({"0", "BUSY", "BUSY"}));
    const SimRun pings(velk3With("fault v FX3_STATUS every protocol"),
                       s_openAndClaim + QStringList{"in 0xc8 0 0 1", "in 0xc8 0 0 1"});
    QCOMPARE(pings.lines().mid(2), QStringList({"IO", "IO"}));
}

void TestSimUsb::transferFaultCountsStandardRequestsToo()
{
    // Reading a string is two transfers: the languages, then the string.
    const SimRun run(velk3With("fault v transfer nth 3 stall"),
                     s_openAndClaim + QStringList{"string 2", "in 0xc8 0 0 1", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines().mid(2), QStringList({"VELK3 Grabber", "PIPE", "1 01"}));
    QCOMPARE(run.lastTransfer()["transfer"].toInt(), 4);
}

void TestSimUsb::shortOutLeavesOnlyThoseBytes()
{
    const SimRun run(velk3With("busy-polls 0\nfault v FX3_WRITE short 4"),
                     s_openAndClaim +
                         QStringList{"out 0xc5 0 0", "out 0xc6 0 0 *8", "out 0xc7 0 0"});
    QCOMPARE(run.lines().mid(2), QStringList({"0", "4", "0"}));
    QCOMPARE(run.memory("v", "fx3.bin"), QByteArray::fromHex("00010203"));
}

void TestSimUsb::performedFaultLosesOnlyTheAnswer_data()
{
    QTest::addColumn<QByteArray>("words");
    QTest::addColumn<QStringList>("verbs"); // each with what it must print
    QTest::addColumn<int>("microcode");     // bytes that the device holds in the end
    const QByteArray ready = "busy-polls 0\n";
    const QStringList claimed = {"open e5c1:3601 = 0", "claim 0 = 0"};
    const QStringList started = claimed + QStringList{"out 0xc5 0 0 = 0", "out 0xc6 0 0 *8 = 8"};
    const QStringList loaded = {"open e5c1:3600 = 0", "out 0xa0 0x8000 0x4000 *8 = 8"};

    QTest::newRow("flags") << ready + "fault v SET_DEVICE_FLAGS overflow performed"
                           << claimed +
                                  QStringList{"out 0xe3 0 0 17 = OVERFLOW", "in 0xe2 0 0 1 = 1 17"}
                           << 0;
    QTest::newRow("block") << ready + "fault v FX3_WRITE nth 2 protocol performed"
                           << started + QStringList{"out 0xc6 0 0 *16 = IO", "out 0xc7 0 0 = 0"}
                           << 24;
    QTest::newRow("poll") << QByteArray("busy-polls 2\nfault v FX3_STATUS silence performed")
                          << claimed + QStringList{"out 0xc5 0 0 = 0", "in 0xc8 0 0 1 = TIMEOUT",
                                                   "in 0xc8 0 0 1 = 1 00", "in 0xc8 0 0 1 = 1 01"}
                          << 0;
    QTest::newRow("completion, and the device is gone")
        << ready + "fault v FX3_COMPLETE disconnect performed"
        << started + QStringList{"out 0xc7 0 0 = NO_DEVICE", "close = done", "sim replug v = ok",
                                 "list = e5c1:3601@1.3"}
        << 8;
    QTest::newRow("start, refused")
        << QByteArray("mode soft\nreturn after 50\nfault v MEMORY_START stall performed")
        << loaded + QStringList{"out 0xa0 0x8000 0x4000 = PIPE", "close = done",
                                "wait e5c1:360f 5000 = done"}
        << 0;
    // The device runs the code, and is off the bus before the program has lost its patience.
    QTest::newRow("start, unanswered")
        << QByteArray("mode soft\nreturn after 50\nfault v MEMORY_START silence performed")
        << loaded + QStringList{"out 0xa0 0x8000 0x4000 = NO_DEVICE", "close = done",
                                "wait e5c1:360f 5000 = done"}
        << 0;
}

void TestSimUsb::performedFaultLosesOnlyTheAnswer()
{
    QFETCH(QByteArray, words);
    QFETCH(QStringList, verbs);
    QStringList commands;
    QStringList expected;
    for (const QString &verb : verbs) {
        commands += verb.section(" = ", 0, 0);
        expected += verb.section(" = ", 1);
    }
    const SimRun run(velk3With(words), commands);
    QCOMPARE(run.lines(), expected);
    QTEST(int(run.memory("v", "fx3.bin").size()), "microcode");
    QCOMPARE(run.exitCode(), 0);
}

void TestSimUsb::disconnectedDeviceComesBackAtItsNewAddress()
{
    const SimRun run(velk3With("fault v FX3_STATUS disconnect replug 50 address 44"),
                     s_openAndClaim + QStringList{"in 0xc8 0 0 1", "list", "in 0xc8 0 0 1", "close",
                                                  "wait e5c1:3601 5000", "list", "open e5c1:3601",
                                                  "claim 0", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines().mid(2, 4), QStringList({"NO_DEVICE", "NO_DEVICE", "done", "done"}));
    QCOMPARE(run.lines().mid(6), QStringList({"e5c1:3601@1.44", "0", "0", "1 01"}));
}

void TestSimUsb::silenceIsRecordedAsCancelled()
{
    const SimRun run(velk3With("fault v FX3_STATUS silence"),
                     s_openAndClaim + QStringList{"in 0xc8 0 0 1", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines().mid(2), QStringList({"TIMEOUT", "1 01"}));
    QCOMPARE(run.transcript().at(3)["status"].toString(), QString("cancelled"));
    QCOMPARE(run.transcript().at(3)["fault"].toBool(), true);
}

void TestSimUsb::writtenImagesEqualThePackage()
{
    const QString fx3 = packageFile("velk3_4k/fx3.bin");
    const QString fpga = packageFile("velk3_4k/fpga.bin");
    const SimRun run("device v\n product velk3_4k\n",
                     {"open e5c1:3631", "claim 0", "write 0xc5 0xc6 0xc7 0xc8 " + fx3,
                      "write 0xc1 0xc2 0xc3 0xc4 " + fpga, "out 0xcf 0 0", "out 0xd2 0 0 *256",
                      "out 0xd4 0 0"});
    QCOMPARE(run.lines().mid(2), QStringList({"0", "0", "0", "256", "0"}));
    QVERIFY(!contentOf(fx3).isEmpty());
    QCOMPARE(run.memory("v", "fx3.bin"), contentOf(fx3));
    QCOMPARE(run.memory("v", "fpga.bin"), contentOf(fpga));
    QCOMPARE(run.memory("v", "edid.bin").size(), 256);
}

void TestSimUsb::writtenMicrocodeGivesTheVersion()
{
    const SimRun run(velk3With("version \"1.2.3\""),
                     s_openAndClaim +
                         QStringList{"string 3",
                                     "write 0xc5 0xc6 0xc7 0xc8 " + packageFile("velk3/fx3.bin"),
                                     "string 3"});
    QCOMPARE(run.lines().mid(2), QStringList({"1.2.3", "0", "2.0.0"}));
}

void TestSimUsb::powerCycleGivesAFreshAddress()
{
    const SimRun run(s_velk3, {"list", "sim power-cycle v", "list", "sim power-cycle v address 100",
                               "list", "sim unplug v", "sim replug v", "list"});
    QCOMPARE(run.lines(), QStringList({"e5c1:3601@1.2", "ok", "e5c1:3601@1.3", "ok",
                                       "e5c1:3601@1.100", "ok", "ok", "e5c1:3601@1.4"}));
}

void TestSimUsb::cutUpdateComesBackInSoftRepair()
{
    const SimRun run(s_velk3,
                     s_openAndClaim + QStringList{"out 0xc5 0 0", "poll 0xc8", "out 0xc6 0 0 *4096",
                                                  "close", "sim power-cycle v", "list"});
    QCOMPARE(run.lines().last(), QString("e5c1:3600@1.3"));
    QCOMPARE(run.state("v")["mode"].toString(), QString("soft"));
    QCOMPARE(run.memory("v", "fx3.bin"), QByteArray());
}

void TestSimUsb::repairFromEachBootLoader_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QString>("bootLoader");
    QTest::newRow("soft") << QByteArray("soft") << "e5c1:3630";
    QTest::newRow("soft under its other id") << QByteArray("soft-f") << "e5c1:363f";
    QTest::newRow("hard") << QByteArray("hard") << "04b4:00f3";
    QTest::newRow("running sandbox") << QByteArray("sandbox") << "e5c1:363f";
}

void TestSimUsb::repairFromEachBootLoader()
{
    QFETCH(QByteArray, mode);
    QFETCH(QString, bootLoader);
    const QString sandbox = packageFile("velk3_4k/sandbox.img");
    const SimRun run("device v\n product velk3_4k\n mode " + mode + "\n sandbox-image " +
                         sandbox.toUtf8() + "\n return after 200 address 50\n",
                     {"open " + bootLoader, "claim 0", "boot " + sandbox, "close",
                      "gone " + bootLoader + " 5000", "wait e5c1:363f 5000", "list",
                      "open e5c1:363f", "claim 0",
                      "write 0xc5 0xc6 0xc7 0xc8 " + packageFile("velk3_4k/fx3.bin"),
                      "write 0xc1 0xc2 0xc3 0xc4 " + packageFile("velk3_4k/fpga.bin"), "close",
                      "sim power-cycle v", "wait e5c1:3631 5000", "open e5c1:3631", "string 3"});
    QCOMPARE(run.lines(), QStringList({"0", "0", "0", "done", "done", "done", "e5c1:363f@1.50", "0",
                                       "0", "0", "0", "done", "ok", "done", "0", "2.0.0"}));
    QCOMPARE(run.memory("v", "fx3.bin"), contentOf(packageFile("velk3_4k/fx3.bin")));
    QCOMPARE(run.exitCode(), 0);
}

void TestSimUsb::wrongSandboxImageNeverComesBack()
{
    const SimRun run(velk3With("mode soft\n return after 20\n sandbox-image " +
                               packageFile("sorn3/sandbox.img").toUtf8()),
                     {"open e5c1:3600", "claim 0", "boot " + packageFile("velk3/sandbox.img"),
                      "close", "gone e5c1:3600 5000", "sleep 200", "list", "sim power-cycle v",
                      "list"});
    // With no device on the bus, the list is an empty line, which lines() drops.
    QCOMPARE(run.lines(),
             QStringList({"0", "0", "0", "done", "done", "done", "ok", "e5c1:3600@1.3"}));
    QCOMPARE(run.events("start")[0]["accepted"].toBool(), false);
}

void TestSimUsb::lostSandboxComesBackAfterAPowerCycle()
{
    const SimRun run(velk3With("mode hard\n return never"),
                     {"open 04b4:00f3", "claim 0", "boot " + packageFile("velk3/sandbox.img"),
                      "close", "gone 04b4:00f3 5000", "sim power-cycle v", "list"});
    QCOMPARE(run.lines().mid(4), QStringList({"done", "ok", "04b4:00f3@1.3"}));
}

void TestSimUsb::idleDeviceIsPowerCycledAfterItsUpdate()
{
    const SimRun run(velk3With("mode sandbox\n power-cycle-when-idle 50"),
                     {"open e5c1:360f", "claim 0",
                      "write 0xc5 0xc6 0xc7 0xc8 " + packageFile("velk3/fx3.bin"), "sleep 150",
                      "out 0xc1 0 0", "poll 0xc4",
                      "out 0xc2 0 0 4650474100000000"
                      "e02b9a1d",
                      "close", "wait e5c1:3600 5000"});
    // Power was cycled although the bitstream is not whole, since the microcode was completed.
    QCOMPARE(run.lines().mid(2), QStringList({"0", "done", "0", "3", "12", "done", "done"}));
}

void TestSimUsb::unpluggingFailsTransfersInFlight()
{
    const SimRun run(velk3With("fault v FX3_STATUS silence"),
                     s_openAndClaim + QStringList{"submit 0xc8", "sim unplug v", "in 0xe2 0 0 1",
                                                  "close", "sim replug v", "open e5c1:3601",
                                                  "claim 0", "in 0xc8 0 0 1"});
    QCOMPARE(run.lines().mid(2),
             QStringList({"0", "ok", "NO_DEVICE", "done", "ok", "0", "0", "1 01"}));
    // Behind plug, open, claim and unplug.
    QCOMPARE(run.transcript().at(4)["transfer"].toInt(), 1);
    QCOMPARE(run.transcript().at(4)["status"].toString(), QString("no-device"));
}

void TestSimUsb::killedProgramLeavesTheDeviceUsable()
{
    QTemporaryDir directory;
    const QString client = QStringLiteral(SIM_USBCLIENT);
    const QString script = client + " 'open e5c1:3601' 'claim 0' 'submit 0xc8' die; " + client +
                           " 'open e5c1:3601' 'claim 0' 'in 0xc8 0 0 1'";
    const SimRun run(velk3With("fault v FX3_STATUS silence"), {"-", "--", "sh", "-c", script},
                     directory.path());
    QCOMPARE(run.lines(), QStringList({"0", "0", "0", "0", "0", "1 01"}));
    QCOMPARE(run.exitCode(), 0);
    QCOMPARE(run.transcript().at(3)["transfer"].toInt(), 1);
    QCOMPARE(run.transcript().at(3)["status"].toString(), QString("abandoned"));
}

void TestSimUsb::powerCyclesAndTrafficMix()
{
    // Commands and ioctls reach the simulator at the same time; neither may disturb the other.
    QTemporaryDir directory;
    QString verbs;
    for (int i = 0; i < 150; ++i) {
        verbs += " 'open e5c1:3621' 'claim 0' 'in 0xc8 0 0 1' 'close'";
    }
    const QString script =
        "i=0; (while [ $i -lt 60 ]; do i=$((i+1)); " CAPSO_SIM
        " --control $CAPSO_SIM_DIR power-cycle v >/dev/null || exit 5; done) & " SIM_USBCLIENT +
        verbs + "; wait $!";
    const SimRun run(velk3With("device s\n product sorn3"), {"-", "--", "sh", "-c", script},
                     directory.path());
    QCOMPARE(run.exitCode(), 0);
    QCOMPARE(run.lines().count("1 01"), 150);
}

void TestSimUsb::hundredDevicesAreListed()
{
    const SimRun run("device v-\n product velk3\n count 40\ndevice s-\n product sorn3\n count 60\n",
                     {"list", "sim list", "sim power-cycle s-60", "list"});
    QCOMPARE(run.lines().at(0).split(' ').size(), 100);
    QCOMPARE(run.lines().at(1).split(' ').size(), 101); // "ok" in front
    QCOMPARE(run.lines().at(3).split(' ').last(), QString("e5c1:3621@99.100"));
    QVERIFY(run.lines().at(3).contains("e5c1:3621@100.102"));
}

void TestSimUsb::twentyReplugsAreSeenAtOnce()
{
    QStringList verbs;
    QStringList expected;
    for (int address = 10; address < 30; ++address) {
        verbs << QString("sim power-cycle v address %1").arg(address) << "list";
        expected << "ok" << QString("e5c1:3601@1.%1").arg(address);
    }
    QCOMPARE(SimRun(s_velk3, verbs).lines(), expected);
}

void TestSimUsb::settingsCanBeChangedWhileTheProgramRuns()
{
    const SimRun run(
        velk3With("flags 1\n user-mode 1 1280x720 off"),
        s_openAndClaim +
            QStringList{"out 0xe3 0 0 10", "sim set v user-mode 2 640x480 on", "in 0xe2 0 0 1",
                        "in 0xb3 0 1 5", "in 0xb3 0 2 5", "sim set v flags 0x17", "in 0xe2 0 0 1",
                        "sim set v input 720x576i 25000 \"N\" \"I\"", "in 0xb2 0 0 29"});
    QCOMPARE(run.lines().mid(2),
             QStringList({"1", "ok", "1 10", "5 0005d00201", "5 8002e00100", "ok", "1 17", "ok",
                          "29 490000000000000000000000"
                          "4e00000000000000"
                          "a8610000"
                          "d002"
                          "4002"
                          "01"}));
}

// A transfer is one ioctl to submit it, one to fetch it, and one that finds nothing more to fetch.
void TestSimUsb::callsAreCountedAtAllAddresses()
{
    const SimRun run(s_velk3, s_openAndClaim + QStringList{"in 0xc8 0 0 1", "string 2", "close",
                                                           "sim power-cycle v", "open e5c1:3601",
                                                           "claim 1", "close"});
    const QJsonObject expected{
        {"GET_CAPABILITIES", 2}, {"CLAIMINTERFACE", 2}, {"SUBMITURB", 3}, {"REAPURBNDELAY", 6}};
    QCOMPARE(run.state("v")["calls"].toObject(), expected);
}

// 50 ms after its submission it was due, and 400 ms after it somebody asks. What is given up before
// it is due is not late, and what is not to be delayed has no time at which it is due.
void TestSimUsb::lateFetchingOfADelayedAnswerIsTold()
{
    const SimRun late(velk3With("fault v FX3_STATUS delay 50"),
                      s_openAndClaim + QStringList{"submit 0xc8", "sleep 400", "in 0xe2 0 0 1"});
    const int lateMs = late.state("v")["lateMs"].toInt();
    QVERIFY2(lateMs >= 350, qPrintable(QString::number(lateMs)));
    const SimRun early(velk3With("fault v FX3_STATUS delay 60000"),
                       s_openAndClaim + QStringList{"in 0xc8 0 0 1", "in 0xe2 0 0 1"});
    QCOMPARE(early.lines().mid(2), QStringList({"TIMEOUT", "1 00"}));
    QCOMPARE(early.state("v")["lateMs"], QJsonValue(0));
}

void TestSimUsb::controlChannelNamesWhatIsWrong()
{
    const SimRun run(s_velk3,
                     {"sim nonsense", "sim state w", "sim set v mode soft", "sim set v foo 1",
                      "sim fault v FX3_STATUS explode", "sim replug v", "sim unplug v now"});
    QCOMPARE(run.lines(),
             QStringList({"error: unknown word 'nonsense'", "error: no device 'w'",
                          "error: 'mode' cannot be changed", "error: unknown word 'foo'",
                          "error: unknown word 'explode'", "error: 'v' is plugged in",
                          "error: unexpected word 'now'"}));
}

QTEST_GUILESS_MAIN(TestSimUsb)
#include "tst_simusb.moc"
