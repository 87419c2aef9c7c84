// Updates and repairs from the user's side: what is shown meanwhile and in the end, and what the
// device holds then.

#include "libusbtexts.h"
#include "libziptexts.h"
#include "simulateddialog.h"

#include <QFile>
#include <QTemporaryDir>

#include <libusb.h>

class TestSimUpdate : public SimulatedTest
{
    Q_OBJECT

private slots:
    void successfulUpdate();
    void nothingReactsDuringAnUpdate();
    void nothingIsPolledDuringAnUpdate();
    void selectionHidesTheBarAfterAnUpdate();
    void rescanHidesTheBarAfterAnUpdate();
    void nextUpdateStartsFromTheBeginning();
    void onlyTheSelectedDeviceIsWritten();

    void fileThatIsMissing();
    void fileThatIsNoPackage();
    void packageOfAnotherProduct();
    void deviceThatIsGone();
    void deviceThatCannotBeOpened();
    void deviceThatIsBusy();

    void sandboxThatIsRunningAlready();
    void repairOfADeviceThatDoesNotComeBack();
    void brokenUpdateIsBroughtBackByARepair();

private:
    void fail(const QString &preparation, const QString &package, const QStringList &texts,
              const QList<int> &progress, const QStringList &rows);
};

namespace {

const QString s_doNotDisconnect = "Do not disconnect. Retry. Call Support.";

const char s_velk3[] = R"(
allow-denial
device v
    product velk3
    serial "A"
    version "1.2.3"
)";
const QString s_velk3Row = "VELK3 Grabber (A, 1.2.3) [e5c1:3601]";

QString box(const QString &text)
{
    return "critical|Update Error|" + text + "|Ok";
}

// Whether the device holds every image of the package, byte for byte.
QString memoryMismatch(const QString &device, const QString &package)
{
    for (const QString &image : {QString("fx3"), QString("fpga"), QString("edid")}) {
        if (simulation::memory(device, image) != simulation::packagedImage(package, image)) {
            return image + " differs";
        }
    }
    return {};
}

void startUpdate(SimulatedDialog &user, const QString &fileName)
{
    user.typePackage(fileName);
    user.click("updateButton");
}

} // namespace

// ---- successful updates

SCENE(TestSimUpdate, successfulUpdate, s_velk3)
{
    SimulatedDialog user;
    user.clickRow(0);
    startUpdate(user, simulation::packageFile("velk3"));
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(!user.dialog.isEnabled());
    QVERIFY(user.find<QProgressBar>("updateProgress")->isVisible());
    EVENTUALLY(user.barText().endsWith('%'));
    EVENTUALLY_EQUAL(user.barText(), QString("Update Completed"));
    QVERIFY(user.dialog.isEnabled());
    QCOMPARE(user.warning(), QString());
    QCOMPARE(user.progress, (QList<int>{1, 2, 15, 28, 34, 47, 60, 66, 72, 78, 84, 90, 96, 100}));

    // The rescan shows the new version and leaves the bar.
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A, 2.0.0) [e5c1:3601]"});
    QCOMPARE(user.barText(), QString("Update Completed"));
    QCOMPARE(user.statusLine(), QString("device not selected"));
    QVERIFY(!user.isUnlocked());
    QCOMPARE(user.scansAsked, 2);
    QCOMPARE(user.boxTexts(), QStringList());
    QCOMPARE(memoryMismatch("v", "velk3"), QString());
}

SCENE(TestSimUpdate, nothingReactsDuringAnUpdate, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    startUpdate(user, simulation::packageFile("velk3"));
    EVENTUALLY(simulation::requests("velk3").contains("> c5 v0 i0 0"));
    user.click("updateButton");
    user.click("rescanDevicesButton");
    user.clickTab(1);
    user.clickRow(0);
    QTest::keyClicks(user.find<QLineEdit>("firmwareLineEdit"), "xyz");
    QTest::keyClick(&user.dialog, Qt::Key_Escape);
    QCOMPARE(user.find<QTabWidget>("tabWidget")->currentIndex(), 0);
    QCOMPARE(user.find<QLineEdit>("firmwareLineEdit")->text(), simulation::packageFile("velk3"));
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(user.dialog.isVisible());
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.scansAsked, 2);
    QCOMPARE(simulation::requests("velk3").count("> c5 v0 i0 0"), 1);
    QCOMPARE(simulation::configRequests("velk3"), QStringList());
    QCOMPARE(user.barText(), QString("Update Completed"));
}

// An update with its two pauses takes longer than the time between two polls.
SCENE(TestSimUpdate, nothingIsPolledDuringAnUpdate, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY(user.statusLine().startsWith("HDMI"));
    simulation::control("fault velk3 FPGA_START delay 800");
    const int before = simulation::mark();
    startUpdate(user, simulation::packageFile("velk3"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.barText(), QString("Update Completed"));
    const QStringList requests = simulation::requests("velk3", before);
    QVERIFY(requests.contains("> d4 v0 i0 0"));
    QCOMPARE(requests.filter("< b2 "), QStringList());
}

SCENE(TestSimUpdate, selectionHidesTheBarAfterAnUpdate, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    startUpdate(user, simulation::packageFile("edid-only"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.barText(), QString("Update Completed"));
    user.clickRow(0);
    QCOMPARE(user.barText(), QString());
    QVERIFY(user.isUnlocked());
}

SCENE(TestSimUpdate, rescanHidesTheBarAfterAnUpdate, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    startUpdate(user, simulation::packageFile("edid-only"));
    QVERIFY(user.waitForScan(2));
    user.click("rescanDevicesButton");
    QCOMPARE(user.barText(), QString());
    QVERIFY(user.waitForScan(3));
}

SCENE(TestSimUpdate, nextUpdateStartsFromTheBeginning, "velk3")
{
    SimulatedDialog user;
    for (const int scan : {2, 3}) {
        user.clickRow(0);
        user.progress.clear();
        startUpdate(user, simulation::packageFile("edid-only"));
        QVERIFY(user.find<QProgressBar>("updateProgress")->value() < 0);
        QVERIFY(user.waitForScan(scan));
        QCOMPARE(user.progress, (QList<int>{1, 2, 21, 40, 59, 78, 97, 100}));
    }
}

SCENE(TestSimUpdate, onlyTheSelectedDeviceIsWritten, R"(
device a
    product velk3
    serial "A"
device b
    product velk3
    serial "B"
)")
{
    SimulatedDialog user;
    // The second row, whichever of them that is.
    const bool secondIsB = user.rowOf("B") == 1;
    const QString chosen = secondIsB ? "B" : "A";
    const QString other = secondIsB ? "A" : "B";
    user.clickRow(0);
    user.clickRow(1);
    startUpdate(user, simulation::packageFile("velk3"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(memoryMismatch(chosen.toLower(), "velk3"), QString());
    QVERIFY(user.rowOf(chosen) >= 0 && user.rowOf(other) >= 0);
    QCOMPARE(user.rows().at(user.rowOf(chosen)),
             QString("VELK3 Grabber (%1, 2.0.0) [e5c1:3601]").arg(chosen));
    QCOMPARE(user.rows().at(user.rowOf(other)),
             QString("VELK3 Grabber (%1, 1.0.0) [e5c1:3601]").arg(other));
    QCOMPARE(simulation::requests(other.toLower()),
             (QStringList{"< c8 v0 i0 1 01", "< c8 v0 i0 1 01"}));
}

// ---- failing updates

// Updates the one device of the scene with the named package (or the file of that path) after the
// preparation: exactly these boxes appear, and the dialog is left as after every failure.
void TestSimUpdate::fail(const QString &preparation, const QString &package,
                         const QStringList &texts, const QList<int> &progress,
                         const QStringList &rows)
{
    SimulatedDialog user;
    // The window behind the box says the same.
    user.boxes.whileOpen = [&user] {
        QCOMPARE(user.warning(), s_doNotDisconnect);
        QCOMPARE(user.barText(), QString("Update Error"));
    };
    user.clickRow(0);
    if (!preparation.isEmpty()) {
        simulation::control(preparation);
    }
    const bool isPath = package.contains('/');
    startUpdate(user, isPath ? package : simulation::packageFile(package));
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(!user.dialog.isEnabled());
    QVERIFY(user.waitForScan(2));
    QVERIFY(user.dialog.isEnabled());
    QStringList expected;
    for (const QString &text : texts) {
        expected.append(box(text));
    }
    QCOMPARE(user.boxTexts(), expected);
    QCOMPARE(user.warning(), s_doNotDisconnect);
    QCOMPARE(user.barText(), QString("Update Error"));
    QCOMPARE(user.progress, progress);
    QCOMPARE(user.rows(), rows);
    QCOMPARE(user.scansAsked, 2);
    QVERIFY(!user.isUnlocked());
    if (!rows.isEmpty()) {
        // The bar goes with the next selection; the warning stays.
        user.clickRow(0);
        QVERIFY(user.isUnlocked());
        QCOMPARE(user.barText(), QString());
        QCOMPARE(user.warning(), s_doNotDisconnect);
    }
    QTest::qWait(200);
    QCOMPARE(user.scansAsked, 2);
}

SCENE(TestSimUpdate, fileThatIsMissing, s_velk3)
{
    const QString file = "/nowhere/x.fw";
    fail({}, file, {"Cannot open firmware package: " + libzipTextOfOpening(file)}, {0},
         {s_velk3Row});
    QCOMPARE(simulation::countEvents("v", "open"), 2); // the scans'
}

SCENE(TestSimUpdate, fileThatIsNoPackage, s_velk3)
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("x.fw"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(1000, 'x'));
    file.close();
    fail({}, file.fileName(),
         {"Cannot open firmware package: " + libzipTextOfOpening(file.fileName())}, {0},
         {s_velk3Row});
}

SCENE(TestSimUpdate, packageOfAnotherProduct, s_velk3)
{
    fail({}, "sorn3", {"Selected device and firmware incompatible"}, {1}, {s_velk3Row});
    QCOMPARE(simulation::countEvents("v", "open"), 2);
}

SCENE(TestSimUpdate, deviceThatIsGone, s_velk3)
{
    fail("unplug v", "velk3", {"Cannot Access Device. Administrative privilegies may be required"},
         {1, 2}, {});
}

SCENE(TestSimUpdate, deviceThatCannotBeOpened, s_velk3)
{
    fail("set v access denied", "velk3",
         {"Cannot Access Device. Administrative privilegies may be required"}, {1, 2}, {});
}

SCENE(TestSimUpdate, deviceThatIsBusy, s_velk3)
{
    fail("fault v claim busy", "velk3",
         {"Cannot Access Device. Administrative privilegies may be required"}, {1, 2},
         {s_velk3Row});
}

// ---- repairs

// The device came back too late for an earlier repair: the user presses UPDATE once more.
SCENE(TestSimUpdate, sandboxThatIsRunningAlready, R"(
device v
    product velk3
    mode sandbox
    power-cycle-when-idle 300
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (SIM00001, ) [e5c1:360f] (Soft Repair Mode)"});
    user.clickRow(0);
    startUpdate(user, simulation::packageFile("velk3"));
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.barText(), QString("Update Completed"));
    QCOMPARE(user.warning(), QString());
    // The sandbox image of 6032 bytes has sections of 4000 and 2000 bytes. The update follows
    // from 15.
    QCOMPARE(user.progress,
             (QList<int>{1, 2, 10, 14, 26, 37, 43, 54, 65, 71, 76, 81, 86, 91, 96, 100}));
    QCOMPARE(user.boxTexts(), QStringList());
    EVENTUALLY_EQUAL(simulation::state("v")["mode"].toString(), QString("normal"));
    QCOMPARE(memoryMismatch("v", "velk3"), QString());
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(3));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (SIM00001, 2.0.0) [e5c1:3601]"});
}

SCENE(TestSimUpdate, repairOfADeviceThatDoesNotComeBack, R"(
device v
    product velk3
    mode soft
    return never
)")
{
    fail({}, "velk3", {"Error: Failed to install driver"}, {1, 2, 10, 14}, {});
}

// From a running device over an interrupted update and its rescue to the new version.
SCENE(TestSimUpdate, brokenUpdateIsBroughtBackByARepair, R"(
device v
    product velk3
    serial "A"
    power-cycle-when-idle 300
)")
{
    SimulatedDialog user;
    user.clickRow(0);
    simulation::control("fault v FX3_WRITE nth 2 disconnect replug 50");
    startUpdate(user, simulation::packageFile("velk3"));
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.boxTexts(), QStringList{box("Error: failed to write microcode block: " +
                                              libusbText(LIBUSB_ERROR_NO_DEVICE))});
    EVENTUALLY(simulation::state("v")["plugged"].toBool());
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(3));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A, ) [e5c1:3600] (Soft Repair Mode)"});
    user.clickRow(0);
    user.click("updateButton");
    QVERIFY(user.waitForScan(4));
    QCOMPARE(user.barText(), QString("Update Completed"));
    QCOMPARE(user.warning(), QString());
    EVENTUALLY_EQUAL(simulation::state("v")["mode"].toString(), QString("normal"));
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(5));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A, 2.0.0) [e5c1:3601]"});
    QCOMPARE(memoryMismatch("v", "velk3"), QString());
    QCOMPARE(user.boxTexts().size(), 1);
}

SIMULATED_DIALOG_TEST_MAIN(TestSimUpdate)
#include "tst_dialogsim_update.moc"
