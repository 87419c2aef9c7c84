// What the list shows of the devices on the bus, and which controls can be used then.

#include "simulateddialog.h"

class TestSimDeviceList : public SimulatedTest
{
    Q_OBJECT

private slots:
    void withoutDevicesNothingCanBeUsed();
    void oneDeviceIsListedAndNotSelected();
    void selectingARowUnlocksTheTabs();
    void everyProductIsListedInTheOrderOfTheScan();
    void twentyDevicesAreListed();
    void brokenDevicesAreListedWithTheirMode();
    void missingStringsAreReplaced();
    void namesAreShownAsTheyAre();
    void secondVendorIsRecognised();
    void deviceThatCannotBeOpenedIsLeftOut();
    void deviceThatDoesNotAnswerIsLeftOutAfterASecondPass();
    void rescanClearsTheSelection();
    void rescanFindsWhatWasPluggedIn();
    void rescanFindsTheDeviceAtItsNewAddress();
    void controlsAreLockedDuringAScan();
    void rowsOfAnOvertakenScanAreDropped();
    void updateButtonIsUsableOnlyWithAFileName();
};

SCENE(TestSimDeviceList, withoutDevicesNothingCanBeUsed, "none")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList());
    QCOMPARE(user.statusLine(), QString("device not selected"));
    QVERIFY(!user.isUnlocked());
    QVERIFY(user.list()->isEnabled());
    QVERIFY(user.find<QWidget>("rescanDevicesButton")->isEnabled());
    QCOMPARE(user.warning(), QString());
    QVERIFY(!user.find<QWidget>("updateProgress")->isVisible());
    // Neither the tabs nor what is in them reacts.
    user.clickTab(1);
    QCOMPARE(user.find<QTabWidget>("tabWidget")->currentIndex(), 0);
    user.click("updateButton");
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimDeviceList, oneDeviceIsListedAndNotSelected, R"(
device v
    product velk3
    serial "A1B2C3D4"
    version "1.2.3"
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]"});
    QCOMPARE(user.list()->currentRow(), -1);
    QVERIFY(!user.isUnlocked());
    QCOMPARE(user.statusLine(), QString("device not selected"));
    // The scan asks whether the firmware answers, and nothing else.
    QCOMPARE(simulation::requests("v"), QStringList{"< c8 v0 i0 1 01"});
}

SCENE(TestSimDeviceList, selectingARowUnlocksTheTabs, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    QVERIFY(user.isUnlocked());
    QVERIFY(user.find<QWidget>("updateButton")->isEnabled());
    QCOMPARE(user.list()->currentRow(), 0);
}

SCENE(TestSimDeviceList, everyProductIsListedInTheOrderOfTheScan, "several")
{
    const QMap<QString, QString> rows = {
        {"velk3", "VELK3 Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]"},
        {"sorn3", "SORN3 Grabber (SIM00002, 1.0.0) [e5c1:3621]"},
        {"velk3_4k", "VELK3 4K Grabber (SIM00003, 1.0.0) [e5c1:3631]"}};
    SimulatedDialog user;
    QStringList expected;
    for (const QString &device : simulation::transcript().devicesOpened()) {
        expected.append(rows.value(device));
    }
    QCOMPARE(expected.size(), 3); // the keyboard was not opened
    QCOMPARE(user.rows(), expected);
}

SCENE(TestSimDeviceList, twentyDevicesAreListed, "twenty")
{
    SimulatedDialog user;
    QStringList rows = user.rows();
    QCOMPARE(rows.size(), 20);
    QCOMPARE(rows.filter(" [e5c1:3601]").size(), 8);
    QCOMPARE(rows.filter(" [e5c1:3621]").size(), 6);
    QCOMPARE(rows.filter(" [e5c1:3631]").size(), 6);
    for (int number = 1; number <= 20; ++number) {
        const QString serial = QString("(SIM%1, 1.0.0)").arg(number, 5, 10, QChar('0'));
        QCOMPARE(rows.filter(serial).size(), 1);
    }
    // The last row is reached and works as the others.
    user.clickRow(19);
    QVERIFY(user.isUnlocked());
    QVERIFY(user.openTab(1));
    QCOMPARE(user.checkBoxes(), QString(""));
}

SCENE(TestSimDeviceList, brokenDevicesAreListedWithTheirMode, R"(
device soft
    product velk3
    mode soft
    product-string "P"
    serial "S"
device soft-f
    product sorn3
    mode soft-f
    serial "T"
device hard
    product velk3_4k
    mode hard
    serial "U"
)")
{
    SimulatedDialog user;
    QStringList rows = user.rows();
    rows.sort();
    QCOMPARE(rows, (QStringList{"P (S, ) [e5c1:3600] (Soft Repair Mode)",
                                "SORN3 Grabber (T, ) [e5c1:362f] (Soft Repair Mode)",
                                "WestBridge (U, ) [04b4:00f3] (Hard Repair Mode)"}));
    // Boot loaders know no such request: none was sent.
    QCOMPARE(simulation::requests("soft"), QStringList());
    QCOMPARE(simulation::requests("hard"), QStringList());
}

SCENE(TestSimDeviceList, missingStringsAreReplaced, R"(
device v
    product velk3
    product-string none
    serial none
    version none
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList{" (FFFFFFFF, 0.0.0) [e5c1:3601]"});
}

SCENE(TestSimDeviceList, namesAreShownAsTheyAre, R"(
device v
    product velk3
    product-string "%5 & <b>%1</b>"
    serial "%4"
    version "%2"
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList{"%5 & <b>%1</b> (%4, %2) [e5c1:3601]"});
}

SCENE(TestSimDeviceList, secondVendorIsRecognised, R"(
device v
    product velk3
    id 5555:3601
device w
    product velk3_4k
    id e5c1:3641
)")
{
    SimulatedDialog user;
    QStringList rows = user.rows();
    rows.sort();
    QCOMPARE(rows, (QStringList{"VELK3 4K Grabber (SIM00002, 1.0.0) [e5c1:3641]",
                                "VELK3 Grabber (SIM00001, 1.0.0) [5555:3601]"}));
}

SCENE(TestSimDeviceList, deviceThatCannotBeOpenedIsLeftOut, R"(
device v
    product velk3
    serial "A"
device w
    product velk3
    serial "B"
    access denied
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A, 1.0.0) [e5c1:3601]"});
    QCOMPARE(user.boxTexts(), QStringList());
}

SCENE(TestSimDeviceList, deviceThatDoesNotAnswerIsLeftOutAfterASecondPass, R"(
device v
    product velk3
fault v FX3_STATUS every stall
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows(), QStringList());
    QCOMPARE(simulation::requests("v"), (QStringList{"< c8 v0 i0 1 stall", "< c8 v0 i0 1 stall"}));
    // It has recovered by itself when the user looks again.
    simulation::control("clear-faults");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (SIM00001, 1.0.0) [e5c1:3601]"});
}

SCENE(TestSimDeviceList, rescanClearsTheSelection, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.statusLine(), QString("HDMI 1920x1080p@60, RGB 4:4:4"));
    user.click("rescanDevicesButton");
    QCOMPARE(user.rows(), QStringList());
    QCOMPARE(user.statusLine(), QString("device not selected"));
    QVERIFY(!user.isUnlocked());
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows().size(), 1);
    QCOMPARE(user.list()->currentRow(), -1);
    QVERIFY(!user.isUnlocked());
    QCOMPARE(user.statusLine(), QString("device not selected"));
    user.clickRow(0);
    QVERIFY(user.isUnlocked());
}

SCENE(TestSimDeviceList, rescanFindsWhatWasPluggedIn, R"(
device a
    product velk3
    serial "A"
device b
    product sorn3
    serial "B"
)")
{
    SimulatedDialog user;
    QCOMPARE(user.rows().size(), 2);
    simulation::control("unplug a");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows(), QStringList{"SORN3 Grabber (B, 1.0.0) [e5c1:3621]"});
    simulation::control("unplug b");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(3));
    QCOMPARE(user.rows(), QStringList());
    simulation::control("replug a");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(4));
    QCOMPARE(user.rows(), QStringList{"VELK3 Grabber (A, 1.0.0) [e5c1:3601]"});
}

// An entry of the list is for one address; a device that was plugged in again is another.
SCENE(TestSimDeviceList, rescanFindsTheDeviceAtItsNewAddress,
      "device v\n product velk3\n flags 2\n")
{
    SimulatedDialog user;
    user.clickRow(0);
    simulation::control("power-cycle v address 99");
    QVERIFY(user.openTab(1));
    QCOMPARE(user.boxTexts(), QStringList{"critical|Device Access Error|Cannot access USB. "
                                          "Administrative rights may be required.|Ok"});
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    user.clickRow(0);
    EVENTUALLY_EQUAL(user.checkBoxes(), QString("keepAspectRatio"));
    QCOMPARE(user.boxTexts().size(), 1);
}

SCENE(TestSimDeviceList, controlsAreLockedDuringAScan, R"(
device v
    product velk3
)")
{
    SimulatedDialog user;
    simulation::control("fault v FX3_STATUS delay 700");
    const int before = simulation::mark();
    user.click("rescanDevicesButton");
    QVERIFY(user.waitUntil([&] { return simulation::countEvents("v", "claim", before) > 0; }));
    QVERIFY(!user.isUnlocked());
    QVERIFY(user.list()->isEnabled());
    QCOMPARE(user.rows(), QStringList());
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows().size(), 1);
}

// The first device's answer is slow: while it is waited for, the user asks for two more scans.
SCENE(TestSimDeviceList, rowsOfAnOvertakenScanAreDropped, R"(
device a
    product velk3
    serial "A"
device b
    product velk3
    serial "B"
)")
{
    SimulatedDialog user;
    simulation::control("fault a FX3_STATUS delay 700");
    simulation::control("fault b FX3_STATUS delay 700");
    user.click("rescanDevicesButton");
    user.click("rescanDevicesButton");
    user.click("rescanDevicesButton");
    const auto answers = [](const char *device) { return simulation::requests(device).size(); };
    // Only the last of them, which is the fourth that ask each device, shows a row.
    QVERIFY(user.waitUntil([&] { return user.list()->count() > 0; }));
    QVERIFY(answers("a") == 4 || answers("b") == 4);
    QVERIFY(user.waitForScan(4));
    QCOMPARE(user.rows().size(), 2);
    QVERIFY(user.rowOf("A") >= 0 && user.rowOf("B") >= 0);
    QCOMPARE(answers("a") + answers("b"), 8);
    user.clickRow(0);
    QVERIFY(user.isUnlocked());
}

SCENE(TestSimDeviceList, updateButtonIsUsableOnlyWithAFileName, "velk3")
{
    SimulatedDialog user;
    user.clickRow(0);
    user.click("updateButton");
    QCOMPARE(user.boxTexts(),
             QStringList{"warning|Quorlin Updater|Please select the firmware file|Ok"});
    user.typePackage("x.fw");
    QVERIFY(user.find<QWidget>("updateButton")->isEnabled());
    user.find<QLineEdit>("firmwareLineEdit")->clear();
    QVERIFY(!user.find<QWidget>("updateButton")->isEnabled());
    // No device was written to, and none was opened for it.
    QCOMPARE(simulation::countEvents("velk3", "open"), 1);
}

SIMULATED_DIALOG_TEST_MAIN(TestSimDeviceList)
#include "tst_dialogsim_devicelist.moc"
