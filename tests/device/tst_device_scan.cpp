#include "devicetest.h"

#include <QJsonDocument>
#include <QTest>

#include <algorithm>

// What the scanner finds on the bus, what it says of each device, and what it does to it.
class TestScan : public DeviceTest
{
    Q_OBJECT

private slots:
    void everyRecognisedIdentityIsListed();
    void deniedDeviceIsNotListedAndNotComplainedAbout();
    void deniedDeviceBesideAGoodOne();
    void deniedBootLoaderIsTriedTwice();
    void claimedInterfaceHidesTheDevice();
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

void TestScan::everyRecognisedIdentityIsListed()
{
    QByteArray scene;
    QStringList expected;
    int port = 0;
    for (const Identity &one : allIdentities()) {
        port += 1;
        const QString serial = QString("N%1").arg(port);
        scene += QString("device %1\n%2\nserial \"%1\"\nproduct-string \"Box\"\nversion \"4.5.6\"\n"
                         "port %3\naddress %4\n")
                     .arg(serial, one.scene)
                     .arg(port)
                     .arg(port + 20)
                     .toUtf8();
        const QString label = one.mode == 2   ? "Hard Repair Mode"
                              : one.mode == 1 ? "Soft Repair Mode"
                                              : "";
        expected += show(row(one.vendorId, one.productId, 1, port, port + 20, one.mode, label,
                             "Box", serial, one.mode == 0 ? "4.5.6" : ""));
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
