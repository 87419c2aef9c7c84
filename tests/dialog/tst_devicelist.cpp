// The device list: what a row holds, and what the controls do while a scan runs.

#include "dialogdriver.h"

#include <QListWidget>
#include <QTabWidget>
#include <QTest>

class TestDeviceList : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void withoutDevicesTheTabsStayDisabled();
    void rowShowsAndHoldsItsRecord();
    void rowsKeepTheirOrderAndDuplicates();
    void newRowDoesNotBecomeCurrent();
    void newDeviceIsLogged();
    void scanLocksUntilItCompletes();
    void rescanForgetsDevicesAndSelection();
    void rescanWithASelectedRowLoadsAndHidesNothingByItself();
    void scanErrorIsShownAndChangesNothing();
    void markUpInAScanErrorIsShownAsItIs();
    void scanMayCompleteWhileItsErrorIsShown();
    void rowSelectedDuringAScanIsUsableAfterwards();
    void rowsOfAnOvertakenScanAreDropped();
    void completionWithNothingRunningUnlocks();
    void selectionHidesTheProgressOfAnEarlierUpdate();
    void currentRowIsAlwaysTheHighlightedOne();
};

void TestDeviceList::withoutDevicesTheTabsStayDisabled()
{
    DialogDriver driver;
    QCOMPARE(driver.list()->count(), 0);
    QVERIFY(!driver.tabs()->isEnabled());
    QCOMPARE(driver.statusLine(), QString("device not selected"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
    driver.pollNow();
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.statusLine(), QString("device not selected"));
}

void TestDeviceList::rowShowsAndHoldsItsRecord()
{
    DialogDriver driver;
    DeviceDescription desc = describedDevice("Grabber");
    desc.mode = DeviceMode::SoftRepair;
    desc.productId = 0x3600;
    desc.versionString.clear();
    desc.modeText = QStringLiteral("Soft Repair Mode");
    driver.click("rescanDevicesButton");
    emit driver.scanner->newDevice(desc);

    const QListWidgetItem *item = driver.list()->item(0);
    QCOMPARE(item->text(), QString("Grabber (A1B2C3D4, ) [e5c1:3600] (Soft Repair Mode)"));
    const auto held = item->data(256).value<DeviceDescription>();
    QCOMPARE(item->data(256).typeName(), "DeviceDescription");
    QCOMPARE(held.productName, desc.productName);
    QCOMPARE(held.vendorId, quint16(0xE5C1));
    QCOMPARE(held.productId, quint16(0x3600));
    QCOMPARE(held.busNumber, quint8(1));
    QCOMPARE(held.deviceAddress, quint16(7));
    QCOMPARE(held.portNumber, quint8(2));
    QCOMPARE(held.mode, quint32(1));
}

void TestDeviceList::currentRowIsAlwaysTheHighlightedOne()
{
    DialogDriver driver;
    driver.listDevices({"A", "B"});
    QListWidget *list = driver.list();
    const auto highlighted = [list] { return list->selectedItems(); };
    using Rows = QList<QListWidgetItem *>;

    list->setCurrentRow(1, QItemSelectionModel::NoUpdate);
    QCOMPARE(highlighted(), Rows{list->item(1)});
    QVERIFY(driver.tabs()->isEnabled());

    list->item(0)->setSelected(true);
    QCOMPARE(list->currentRow(), 0);
    QCOMPARE(highlighted(), Rows{list->item(0)});
    list->clearSelection();
    QCOMPARE(list->currentRow(), 0);
    QCOMPARE(highlighted(), Rows{list->item(0)});

    list->setCurrentRow(-1);
    QCOMPARE(highlighted(), Rows());
    QVERIFY(!driver.tabs()->isEnabled());
}

void TestDeviceList::rowsKeepTheirOrderAndDuplicates()
{
    DialogDriver driver;
    driver.listDevices({"Z", "A", "A"});
    QStringList rows;
    for (int i = 0; i < driver.list()->count(); ++i) {
        rows += driver.list()->item(i)->text();
    }
    QCOMPARE(rows,
             (QStringList{"Z (A1B2C3D4, 1.2.3) [e5c1:3601]", "A (A1B2C3D4, 1.2.3) [e5c1:3601]",
                          "A (A1B2C3D4, 1.2.3) [e5c1:3601]"}));
}

void TestDeviceList::newRowDoesNotBecomeCurrent()
{
    DialogDriver driver;
    driver.listDevices({"A"});
    QCOMPARE(driver.list()->currentRow(), -1);
    QVERIFY(!driver.tabs()->isEnabled());
}

void TestDeviceList::newDeviceIsLogged()
{
    DialogDriver driver;
    QTest::ignoreMessage(QtDebugMsg, "New device \"Grabber\"");
    driver.listDevices({"Grabber"});
}

void TestDeviceList::scanLocksUntilItCompletes()
{
    DialogDriver driver;
    driver.listDevices({"A"});
    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());

    driver.click("rescanDevicesButton");
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    QCOMPARE(driver.list()->count(), 0);
    QCOMPARE(driver.statusLine(), QString("device not selected"));
    QVERIFY(!driver.tabs()->isEnabled());
    QVERIFY(driver.dialog.isEnabled());
    QVERIFY(driver.list()->isEnabled());
    QVERIFY(driver.find<QWidget>("rescanDevicesButton")->isEnabled());
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabledTo(driver.tabs()));

    emit driver.scanner->newDevice(describedDevice("A"));
    driver.selectRow(0);
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->complete();
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabled());
}

void TestDeviceList::rescanForgetsDevicesAndSelection()
{
    DialogDriver driver;
    driver.listDevices({"A", "B"});
    driver.selectRow(1);
    driver.listDevices({"A", "B"});
    QCOMPARE(driver.list()->count(), 2);
    QCOMPARE(driver.list()->currentRow(), -1);
    QVERIFY(!driver.tabs()->isEnabled());

    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());
}

// Clearing the list reports a changed selection while the old row is still current.
void TestDeviceList::rescanWithASelectedRowLoadsAndHidesNothingByItself()
{
    DialogDriver driver;
    driver.listDevices({"A"});
    driver.selectRow(0);
    driver.openTab("tabSettings");
    emit driver.flags->getRequestComplete(226, configData(QByteArray(1, 0)), 1);
    driver.takeAsked();

    driver.click("rescanDevicesButton");
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->complete();
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestDeviceList::scanErrorIsShownAndChangesNothing()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    emit driver.scanner->error("Access Denied: %1");

    QCOMPARE(driver.boxTexts(), QStringList{"warning|Device Scanning Error|Access Denied: %1|Ok"});

    // Still scanning.
    emit driver.scanner->newDevice(describedDevice("A"));
    driver.selectRow(0);
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->complete();
    QVERIFY(driver.tabs()->isEnabled());
}

void TestDeviceList::markUpInAScanErrorIsShownAsItIs()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    emit driver.scanner->error("Access Denied: <b>%1</b>");
    QCOMPARE(driver.boxes.shown.at(0).readableText(), QString("Access Denied: <b>%1</b>"));
}

void TestDeviceList::scanMayCompleteWhileItsErrorIsShown()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    driver.boxes.whileOpen = [&driver] {
        emit driver.scanner->newDevice(describedDevice("A"));
        emit driver.scanner->complete();
    };
    emit driver.scanner->error("denied");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    driver.selectRow(0);
    QVERIFY(driver.tabs()->isEnabled());
}

void TestDeviceList::rowSelectedDuringAScanIsUsableAfterwards()
{
    DialogDriver driver;
    driver.listDevices({});
    driver.openTab("tabSettings");
    driver.click("rescanDevicesButton");
    emit driver.scanner->newDevice(describedDevice("A"));
    emit driver.scanner->newDevice(describedDevice("B"));
    driver.selectRow(0);
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), QStringList{"scan"});
    emit driver.scanner->complete();
    QCOMPARE(driver.takeAsked(), QStringList{"B < e2 v0 i0 1"});
}

void TestDeviceList::rowsOfAnOvertakenScanAreDropped()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    emit driver.scanner->newDevice(describedDevice("old"));
    driver.click("rescanDevicesButton");
    QCOMPARE(driver.takeAsked(), (QStringList{"scan", "scan"}));
    QCOMPARE(driver.list()->count(), 0);

    emit driver.scanner->newDevice(describedDevice("late"));
    QCOMPARE(driver.list()->count(), 0);
    emit driver.scanner->complete(); // of the first
    emit driver.scanner->newDevice(describedDevice("new"));
    QCOMPARE(driver.list()->count(), 1);
    QVERIFY(driver.list()->item(0)->text().startsWith("new "));
    driver.selectRow(0);
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->complete(); // of the second
    QVERIFY(driver.tabs()->isEnabled());
}

void TestDeviceList::completionWithNothingRunningUnlocks()
{
    DialogDriver driver;
    driver.listDevices({"A"});
    driver.selectRow(0);
    emit driver.scanner->complete();
    QVERIFY(driver.tabs()->isEnabled());
    // It is not counted against the next scan.
    driver.click("rescanDevicesButton");
    emit driver.scanner->newDevice(describedDevice("A"));
    driver.selectRow(0);
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.scanner->complete();
    QVERIFY(driver.tabs()->isEnabled());
}

void TestDeviceList::selectionHidesTheProgressOfAnEarlierUpdate()
{
    DialogDriver driver;
    driver.listDevices({"A", "B"});
    auto *progress = driver.find<QWidget>("updateProgress");
    progress->show();
    driver.selectRow(1);
    QVERIFY(progress->isHidden());
    progress->show();
    driver.click("rescanDevicesButton");
    QVERIFY(progress->isHidden());
}

QTEST_MAIN(TestDeviceList)
#include "tst_devicelist.moc"
