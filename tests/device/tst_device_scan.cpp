#include "devicetest.h"

#include <QJsonDocument>
#include <QTest>

#include <algorithm>

// What the scanner finds on the bus, what it says of each device, and what it does to it.
class TestScan : public DeviceTest
{
    Q_OBJECT

private slots:
    void emptyBusCompletes();
    void runningDeviceIsDescribed();
    void everyRecognisedIdentityIsListed();
    void unknownIdentitiesAreLeftAlone();
    void runningDeviceIsReadAndPinged();
    void bootLoadersAreReadButSentNothing();
    void missingSerialBecomesF();
    void unreadableSerialBecomesF();
    void missingVersionBecomesZeros();
    void missingProductTextIsEmpty();
    void kernelDriverIsDetachedForThePing();
    void stalledPingMakesASecondPassAndNoRow();
    void silentPingIsGivenASecond();
    void pingThatFailsOnceIsFoundByTheSecondPass();
    void failingDeviceBesideAGoodOneGetsNoSecondPass();
    void pingAnsweredWithNothingIsAnAnswer();
    void busyDeviceIsAliveAllTheSame();
    void deniedDeviceIsNotListedAndNotComplainedAbout();
    void deniedDeviceBesideAGoodOne();
    void deniedBootLoaderIsTriedTwice();
    void claimedInterfaceHidesTheDevice();
    void twentyDevices();
    void pluggedAndUnpluggedBetweenScans();
};

namespace {

// The fields in which one device differs from another.
QJsonObject row(int vendor, int product, int bus, int port, int address, int mode,
                const QString &modeText, const QString &name, const QString &serial,
                const QString &version)
{
    return {{"vendorId", vendor},
            {"productId", product},
            {"interfaceNumber", 0},
            {"busNumber", bus},
            {"deviceAddress", address},
            {"portNumber", port},
            {"mode", mode},
            {"productName", name},
            {"serialNumber", serial},
            {"versionString", version},
            {"modeText", modeText},
            {"referenced", false},
            {"secondPass", false}};
}

QString show(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QStringList sorted(QStringList lines)
{
    lines.sort();
    return lines;
}

const QStringList s_completeOnly{"complete"};

} // namespace

void TestScan::emptyBusCompletes()
{
    SimRun run("", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
}

void TestScan::runningDeviceIsDescribed()
{
    SimRun run("device g\nproduct velk3\nserial \"A1B2C3D4\"\nproduct-string \"Grabber\"\n"
               "version \"1.2.3\"\nbus 1\nport 3\naddress 41\n",
               {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device A1B2C3D4", "complete"}));
    QCOMPARE(show(run.devicesOf(1).at(0)),
             show(row(0xE5C1, 0x3601, 1, 3, 41, 0, "", "Grabber", "A1B2C3D4", "1.2.3")));
}

void TestScan::everyRecognisedIdentityIsListed()
{
    struct Known
    {
        const char *words;
        int vendor;
        int product;
        int mode;
    };
    const Known known[] = {
        {"product velk3", 0xE5C1, 0x3601, 0},
        {"product velk3\nmode soft", 0xE5C1, 0x3600, 1},
        {"product velk3\nmode soft-f", 0xE5C1, 0x360F, 1},
        {"product sorn3", 0xE5C1, 0x3621, 0},
        {"product sorn3\nmode soft", 0xE5C1, 0x3620, 1},
        {"product sorn3\nmode sandbox", 0xE5C1, 0x362F, 1},
        {"product velk3_4k", 0xE5C1, 0x3631, 0},
        {"product velk3_4k\nmode soft", 0xE5C1, 0x3630, 1},
        {"product velk3_4k\nmode soft-f", 0xE5C1, 0x363F, 1},
        {"product velk3_4k\nid e5c1:3641", 0xE5C1, 0x3641, 0},
        {"product velk3_4k\nid e5c1:3641\nmode soft", 0xE5C1, 0x3640, 1},
        {"product velk3_4k\nid e5c1:3641\nmode soft-f", 0xE5C1, 0x364F, 1},
        {"product velk3\nid 5555:3601", 0x5555, 0x3601, 0},
        {"product sorn3\nmode hard", 0x04B4, 0x00F3, 2},
    };
    QByteArray scene;
    QStringList expected;
    int port = 0;
    for (const Known &one : known) {
        port += 1;
        const QString serial = QString("N%1").arg(port);
        scene += QString("device %1\n%2\nserial \"%1\"\nproduct-string \"Box\"\nversion \"4.5.6\"\n"
                         "port %3\naddress %4\n")
                     .arg(serial, one.words)
                     .arg(port)
                     .arg(port + 20)
                     .toUtf8();
        const QString label = one.mode == 2   ? "Hard Repair Mode"
                              : one.mode == 1 ? "Soft Repair Mode"
                                              : "";
        expected += show(row(one.vendor, one.product, 1, port, port + 20, one.mode, label, "Box",
                             serial, one.mode == 0 ? "4.5.6" : ""));
    }

    SimRun run(scene, {"scan"});
    RUN(run);
    QStringList found;
    for (const QJsonObject &device : run.devicesOf(1)) {
        found += show(device);
    }
    COMPARE_LINES(sorted(found), sorted(expected));
    QCOMPARE(run.signalsOf(1).count("complete"), 1);
}

void TestScan::unknownIdentitiesAreLeftAlone()
{
    SimRun run("device a\nproduct other\nid e5c1:3602\ndevice b\nproduct other\nid 1234:5678\n"
               "device c\nproduct velk3\nid 5555:3600\n",
               {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    for (const char *name : {"a", "b", "c"}) {
        COMPARE_LINES(run.transcript().work(name), QStringList());
    }
}

void TestScan::runningDeviceIsReadAndPinged()
{
    SimRun run(sceneOf(sorn3), {"scan"});
    RUN(run);
    // Each text is preceded by the list of languages, as libusb reads strings.
    COMPARE_LINES(
        run.transcript().texts("g", {SimLine::Handle, SimLine::Standard, SimLine::Vendor}),
        QStringList({"open", "string 0", "string 2", "string 0", "string 4", "string 0", "string 3",
                     "claim 0 ok", "< c8 v0 i0 1 01", "driver-attach 0 busy", "release 0 ok",
                     "close"}));
}

void TestScan::bootLoadersAreReadButSentNothing()
{
    for (const char *mode : {"mode soft", "mode hard"}) {
        SimRun run(sceneOf(velk3, mode), {"scan"});
        RUN(run);
        COMPARE_LINES(
            run.transcript().texts("g", {SimLine::Handle, SimLine::Standard, SimLine::Vendor}),
            QStringList({"open", "string 0", "string 2", "string 0", "string 4", "close"}));
    }
}

void TestScan::missingSerialBecomesF()
{
    SimRun run("device g\nproduct velk3\nserial none\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device FFFFFFFF", "complete"}));
    QVERIFY(!run.transcript().texts("g").contains("string 4"));
}

void TestScan::unreadableSerialBecomesF()
{
    SimRun run(sceneOf(velk3) + "fault g string 4 every stall\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device FFFFFFFF", "complete"}));
}

void TestScan::missingVersionBecomesZeros()
{
    SimRun run(sceneOf(velk3, "version none"), {"scan"});
    RUN(run);
    QCOMPARE(run.devicesOf(1).value(0)["versionString"].toString(), "0.0.0");
}

void TestScan::missingProductTextIsEmpty()
{
    SimRun run(sceneOf(velk3, "product-string none"), {"scan"});
    RUN(run);
    QCOMPARE(run.devicesOf(1).size(), 1);
    QCOMPARE(run.devicesOf(1).at(0)["productName"].toString(), QString());
}

void TestScan::kernelDriverIsDetachedForThePing()
{
    SimRun run(sceneOf(velk3, "kernel-driver uvcvideo"), {"scan"});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"),
                  QStringList({"open", "driver-detach 0 ok", "claim 0 ok", "< c8 v0 i0 1 01",
                               "driver-attach 0 busy", "release 0 ok", "close"}));
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S1", "complete"}));
}

void TestScan::stalledPingMakesASecondPassAndNoRow()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS every stall\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    WireModel wire;
    for (int pass = 0; pass < 2; ++pass) {
        wire.openForWork().line("< c8 v0 i0 1 stall").giveBack();
    }
    COMPARE_LINES(run.transcript().work("g"), wire.lines());
}

void TestScan::silentPingIsGivenASecond()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS every silence\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    int pings = 0;
    double claimed = 0;
    for (const SimLine &line : run.transcript().lines("g")) {
        if (line.text == "claim 0 ok") {
            claimed = line.time;
        } else if (line.text == "< c8 v0 i0 1 cancelled") {
            pings += 1;
            QVERIFY2(line.time - claimed > 950 && line.time - claimed < 8000,
                     qPrintable(QString::number(line.time - claimed)));
        }
    }
    QCOMPARE(pings, 2);
    VERIFY_BALANCED(run);
}

void TestScan::pingThatFailsOnceIsFoundByTheSecondPass()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS nth 1 protocol\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S1", "complete"}));
    QCOMPARE(run.devicesOf(1).at(0)["secondPass"].toBool(), true);
}

void TestScan::failingDeviceBesideAGoodOneGetsNoSecondPass()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS every stall\n"
                                "device other\nproduct sorn3\nserial \"S2\"\n",
               {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S2", "complete"}));
    QCOMPARE(run.transcript().work("g").count("open"), 1);
    QCOMPARE(run.transcript().work("other").count("open"), 1);
}

void TestScan::pingAnsweredWithNothingIsAnAnswer()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS every short 0\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S1", "complete"}));
    QCOMPARE(run.transcript().work("g").count("open"), 1);
}

void TestScan::busyDeviceIsAliveAllTheSame()
{
    SimRun run(sceneOf(velk3) + "fault g FX3_STATUS data 00\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S1", "complete"}));
    COMPARE_LINES(run.transcript().work("g"),
                  WireModel().openForWork().poll(0xC8, 0).giveBack().lines());
}

// Where nothing can install a driver, a device without access rights counts as failed: it is tried
// once more, and nothing is said.
void TestScan::deniedDeviceIsNotListedAndNotComplainedAbout()
{
    SimRun run("allow-denial\n" + sceneOf(velk3, "access denied"), {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    COMPARE_LINES(run.transcript().work("g"), QStringList());
    QCOMPARE(run.standardError().count("try to install WinUSB driver"), 2);
    QCOMPARE(run.standardError().count("Error during driver installation"), 2);
}

void TestScan::deniedDeviceBesideAGoodOne()
{
    SimRun run("allow-denial\n" + sceneOf(velk3, "access denied") +
                   "device other\nproduct sorn3\nserial \"S2\"\n",
               {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S2", "complete"}));
    QCOMPARE(run.standardError().count("try to install WinUSB driver"), 1);
}

void TestScan::deniedBootLoaderIsTriedTwice()
{
    SimRun run("allow-denial\n" + sceneOf(velk3, "mode soft\naccess denied"),
               {"scan", "control", "set g access granted", "scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    QCOMPARE(run.standardError().count("try to install WinUSB driver"), 2);
    COMPARE_LINES(run.signalsOf(3), QStringList({"device S1", "complete"}));
}

void TestScan::claimedInterfaceHidesTheDevice()
{
    SimRun run(sceneOf(velk3) + "fault g claim every busy\n", {"scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), s_completeOnly);
    WireModel wire;
    for (int pass = 0; pass < 2; ++pass) {
        // No driver is bound, so there is none to attach again either.
        wire.line("open").line("claim 0 busy").line("driver-attach 0 not-found").line("close");
    }
    COMPARE_LINES(run.transcript().work("g"), wire.lines());
}

void TestScan::twentyDevices()
{
    SimRun run("device a\nproduct velk3\ncount 10\ndevice b\nproduct sorn3\ncount 6\n"
               "device c\nproduct velk3_4k\nmode soft\ncount 4\n",
               {"scan"});
    RUN(run);
    QStringList expected{"complete"};
    for (int i = 1; i <= 20; ++i) {
        expected += QString("device SIM%1").arg(i, 5, 10, QChar('0'));
    }
    const QStringList signalled = run.signalsOf(1);
    COMPARE_LINES(sorted(signalled), sorted(expected));
    QCOMPARE(signalled.last(), "complete");
    QCOMPARE(run.transcript().work("b6").count("open"), 1);
}

void TestScan::pluggedAndUnpluggedBetweenScans()
{
    SimRun run(sceneOf(velk3, "address 30"),
               {"scan", "control", "unplug g", "scan", "control", "replug g address 77", "scan"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(1), QStringList({"device S1", "complete"}));
    COMPARE_LINES(run.signalsOf(3), s_completeOnly);
    COMPARE_LINES(run.signalsOf(5), QStringList({"device S1", "complete"}));
    QCOMPARE(run.devicesOf(1).at(0)["deviceAddress"].toInt(), 30);
    QCOMPARE(run.devicesOf(5).at(0)["deviceAddress"].toInt(), 77);
}

QTEST_GUILESS_MAIN(TestScan)
#include "tst_device_scan.moc"
