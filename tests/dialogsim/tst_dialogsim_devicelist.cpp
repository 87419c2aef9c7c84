// What the list shows of many devices, of one that is denied, and of what is plugged in and out.

#include "simulateddialog.h"

class TestSimDeviceList : public SimulatedTest
{
    Q_OBJECT

private slots:
    void twentyDevicesAreListed();
    void deviceThatCannotBeOpenedIsLeftOut();
    void rescanFindsWhatWasPluggedIn();
    void rescanFindsTheDeviceAtItsNewAddress();
};

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

SIMULATED_DIALOG_TEST_MAIN(TestSimDeviceList)
#include "tst_dialogsim_devicelist.moc"
