// Updates that a person gets in the way of, that have company, or that find no device to open. What
// an update does otherwise, and with each of its transfers struck, is the matrix's.

#include "simulateddialog.h"

class TestSimUpdate : public SimulatedTest
{
    Q_OBJECT

private slots:
    void nothingReactsDuringAnUpdate();
    void onlyTheSelectedDeviceIsWritten();

    void deviceThatIsGone();
    void deviceThatCannotBeOpened();
    void deviceThatIsBusy();

private:
    void failToOpen(const QString &preparation, const QStringList &rows);
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

void startUpdate(SimulatedDialog &user)
{
    user.typePackage(simulation::packageFile("velk3"));
    user.click("updateButton");
}

} // namespace

SCENE(TestSimUpdate, nothingReactsDuringAnUpdate, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    startUpdate(user);
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
    startUpdate(user);
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

// Updates the one device of the scene, which cannot be opened after the preparation: one box
// appears, the dialog is left as after every failure, and the next scan shows these rows.
void TestSimUpdate::failToOpen(const QString &preparation, const QStringList &rows)
{
    SimulatedDialog user;
    // The window behind the box says the same.
    user.boxes.whileOpen = [&user] {
        QCOMPARE(user.warning(), s_doNotDisconnect);
        QCOMPARE(user.barText(), QString("Update Error"));
    };
    user.clickRow(0);
    simulation::control(preparation);
    startUpdate(user);
    QCOMPARE(user.warning(), QString("DO NOT INTERRUPT"));
    QVERIFY(!user.dialog.isEnabled());
    QVERIFY(user.waitForScan(2));
    QVERIFY(user.dialog.isEnabled());
    QCOMPARE(user.boxTexts(), QStringList{"critical|Update Error|Cannot Access Device. "
                                          "Administrative privilegies may be required|Ok"});
    QCOMPARE(user.warning(), s_doNotDisconnect);
    QCOMPARE(user.barText(), QString("Update Error"));
    QCOMPARE(user.progress, (QList<int>{1, 2}));
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

SCENE(TestSimUpdate, deviceThatIsGone, s_velk3)
{
    failToOpen("unplug v", {});
}

SCENE(TestSimUpdate, deviceThatCannotBeOpened, s_velk3)
{
    failToOpen("set v access denied", {});
}

SCENE(TestSimUpdate, deviceThatIsBusy, s_velk3)
{
    failToOpen("fault v claim busy", {s_velk3Row});
}

SIMULATED_DIALOG_TEST_MAIN(TestSimUpdate)
#include "tst_dialogsim_update.moc"
