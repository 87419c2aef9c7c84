// The Settings tab: the device flags byte behind its check boxes.

#include "dialogdriver.h"
#include "flagboxes.h"

#include <QListWidget>
#include <QTabWidget>
#include <QTest>

namespace {

const char s_read[] = "Grabber < e2 v0 i0 1";

QString writeOf(int byte)
{
    return QString::asprintf("Grabber > e3 v0 i0 1 %02x", byte);
}

const int s_bitsWithABox = [] {
    int bits = 0;
    for (const FlagBox &box : allFlagBoxes()) {
        bits |= box.bit;
    }
    return bits;
}();

const QString s_allBoxes = boxesOf(s_bitsWithABox);

// A driver whose Settings page has been read once, with every box unchecked.
class ReadyDriver : public DialogDriver
{
public:
    ReadyDriver()
    {
        listDevices({"Grabber"});
        selectRow(0);
        openTab("tabSettings");
        answerRead(0x00);
        takeAsked();
    }

    void answerRead(int byte)
    {
        emit flags->getRequestComplete(226, configData(QByteArray(1, static_cast<char>(byte))), 1);
    }
};

} // namespace

class TestSettingsTab : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void showingThePageReadsTheByte();
    void firmwarePageReadsNothing();
    void withoutARowNothingIsRead();
    void requestLocksUntilItsCompletion();
    void answerEnablesThePage_data();
    void answerEnablesThePage();
    void boxesFollowTheirBits_data();
    void boxesFollowTheirBits();
    void writtenByteIsBuiltFromTheBoxesAlone_data();
    void writtenByteIsBuiltFromTheBoxesAlone();
    void unusedBitsAreClearedByAWrite();
    void allBitsReadAndWrittenBack();
    void applyWithoutARowAsksForADevice();
    void failedReadIsShownOnceAndKeepsTheBoxes();
    void failedWriteTransferIsShownOnce();
    void writeToADeviceThatCannotBeOpened();
    void emptyAnswerUnlocksAndKeepsTheBoxes();
    void completionMayArriveWhileTheErrorIsShown();
    void markUpInAnErrorIsShownAsItIs();
    void selectionReadsTheNewDevice();
    void rowWithoutARecordAsksForNoDevice();
    void recordOfAnotherTypeIsConverted();
};

void TestSettingsTab::showingThePageReadsTheByte()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    QCOMPARE(driver.takeAsked(), QStringList());
    QTest::ignoreMessage(QtDebugMsg, "Selected device: \"Grabber\"");
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{s_read});
}

void TestSettingsTab::firmwarePageReadsNothing()
{
    ReadyDriver driver;
    driver.openTab("tabFirmware");
    QCOMPARE(driver.takeAsked(), QStringList());
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{s_read});
}

void TestSettingsTab::withoutARowNothingIsRead()
{
    DialogDriver driver;
    driver.openTab("tabSettings");
    driver.openTab("tabUserMode");
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestSettingsTab::requestLocksUntilItsCompletion()
{
    ReadyDriver driver;
    driver.click("updateSettingsButton");
    QVERIFY(!driver.tabs()->isEnabled());
    QVERIFY(driver.dialog.isEnabled());
    QVERIFY(driver.list()->isEnabled());
    QVERIFY(driver.find<QWidget>("rescanDevicesButton")->isEnabled());
    emit driver.flags->setRequestComplete(227);
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(driver.find<QWidget>("tabSettings")->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(0x00)});
}

void TestSettingsTab::answerEnablesThePage_data()
{
    QTest::addColumn<bool>("isRead");
    QTest::newRow("read") << true;
    QTest::newRow("write") << false;
}

void TestSettingsTab::answerEnablesThePage()
{
    QFETCH(bool, isRead);
    ReadyDriver driver;
    auto *page = driver.find<QWidget>("tabSettings");
    page->setEnabled(false);
    if (isRead) {
        driver.openTab("tabFirmware");
        driver.openTab("tabSettings");
        driver.answerRead(0x00);
    } else {
        QMetaObject::invokeMethod(&driver.dialog, "on_updateSettingsButton_clicked");
        emit driver.flags->setRequestComplete(227);
    }
    QVERIFY(page->isEnabled());
}

void TestSettingsTab::boxesFollowTheirBits_data()
{
    QTest::addColumn<int>("byte");
    QTest::addColumn<QString>("checked");
    QTest::newRow("none") << 0x00 << "";
    for (const FlagBox &box : allFlagBoxes()) {
        QTest::newRow(box.name) << box.bit << box.name;
    }
    QTest::newRow("bits that have no box") << (0xFF & ~s_bitsWithABox) << "";
    QTest::newRow("all") << 0xFF << s_allBoxes;
}

void TestSettingsTab::boxesFollowTheirBits()
{
    QFETCH(int, byte);
    QFETCH(QString, checked);
    ReadyDriver driver;
    for (const QString &before : {QString(), s_allBoxes}) {
        driver.setCheckBoxes(before);
        driver.openTab("tabFirmware");
        driver.openTab("tabSettings");
        driver.answerRead(byte);
        QCOMPARE(driver.checkBoxes(), checked);
    }
}

void TestSettingsTab::writtenByteIsBuiltFromTheBoxesAlone_data()
{
    QTest::addColumn<QString>("checked");
    QTest::addColumn<int>("byte");
    QTest::newRow("none") << "" << 0x00;
    for (const FlagBox &box : allFlagBoxes()) {
        QTest::newRow(box.name) << box.name << box.bit;
    }
    QTest::newRow("all") << s_allBoxes << s_bitsWithABox;
}

void TestSettingsTab::writtenByteIsBuiltFromTheBoxesAlone()
{
    QFETCH(QString, checked);
    QFETCH(int, byte);
    ReadyDriver driver;
    driver.setCheckBoxes(checked);
    QTest::ignoreMessage(QtDebugMsg, "Selected device: \"Grabber\"");
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(byte)});
}

void TestSettingsTab::unusedBitsAreClearedByAWrite()
{
    ReadyDriver driver;
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0xFF & ~s_bitsWithABox);
    QCOMPARE(driver.checkBoxes(), QString());
    driver.takeAsked();
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(0x00)});
}

void TestSettingsTab::allBitsReadAndWrittenBack()
{
    ReadyDriver driver;
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0xFF);
    QCOMPARE(driver.checkBoxes(), s_allBoxes);
    driver.takeAsked();
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(s_bitsWithABox)});
}

void TestSettingsTab::applyWithoutARowAsksForADevice()
{
    DialogDriver driver;
    QMetaObject::invokeMethod(&driver.dialog, "on_updateSettingsButton_clicked");
    QCOMPARE(driver.boxTexts(),
             QStringList{"warning|Quorlin Updater|Please select a device from the list|Ok"});
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestSettingsTab::failedReadIsShownOnceAndKeepsTheBoxes()
{
    ReadyDriver driver;
    driver.setCheckBoxes("reenumerate performanceMode");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    QTest::ignoreMessage(QtDebugMsg, "Setting/getting flags error \"no %1\"");
    emit driver.flags->error(226, "no %1");
    QCOMPARE(driver.boxTexts(), QStringList{"critical|Device Access Error|no %1|Ok"});
    QVERIFY(!driver.tabs()->isEnabled()); // the completion unlocks

    emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.checkBoxes(), QString("reenumerate performanceMode"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    // After an error not even data is believed, until the next request.
    driver.answerRead(0xFF);
    QCOMPARE(driver.checkBoxes(), QString("reenumerate performanceMode"));
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0xFF);
    QCOMPARE(driver.checkBoxes(), s_allBoxes);
}

void TestSettingsTab::failedWriteTransferIsShownOnce()
{
    ReadyDriver driver;
    driver.setCheckBoxes("reenumerate");
    driver.click("updateSettingsButton");
    emit driver.flags->error(227, "refused");
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.flags->setRequestComplete(227);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.boxes.shown.front().text, QString("refused"));
    QCOMPARE(driver.checkBoxes(), QString("reenumerate"));
}

void TestSettingsTab::writeToADeviceThatCannotBeOpened()
{
    ReadyDriver driver;
    driver.setCheckBoxes("keepAspectRatio");
    driver.click("updateSettingsButton");
    emit driver.flags->error(227, "not open");
    emit driver.flags->getRequestComplete(227, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.checkBoxes(), QString("keepAspectRatio"));
}

void TestSettingsTab::emptyAnswerUnlocksAndKeepsTheBoxes()
{
    ReadyDriver driver;
    driver.setCheckBoxes("keepAspectRatio audioSelector");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.checkBoxes(), QString("keepAspectRatio audioSelector"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestSettingsTab::completionMayArriveWhileTheErrorIsShown()
{
    ReadyDriver driver;
    driver.setCheckBoxes("audioSelector");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.boxes.whileOpen = [&driver] {
        emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    };
    emit driver.flags->error(226, "no");
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.checkBoxes(), QString("audioSelector"));
}

void TestSettingsTab::markUpInAnErrorIsShownAsItIs()
{
    ReadyDriver driver;
    driver.click("updateSettingsButton");
    emit driver.flags->error(227, "<b>refused</b>");
    QCOMPARE(driver.boxes.shown.at(0).readableText(), QString("<b>refused</b>"));
}

void TestSettingsTab::selectionReadsTheNewDevice()
{
    ReadyDriver driver;
    driver.listDevices({"A", "Grabber"});
    driver.selectRow(1);
    QCOMPARE(driver.takeAsked(), QStringList{s_read});
    driver.answerRead(0x11);
    QCOMPARE(driver.checkBoxes(), QString("reenumerate audioSelector"));
    driver.selectRow(0);
    QCOMPARE(driver.takeAsked(), QStringList{"A < e2 v0 i0 1"});
    driver.answerRead(0x06);
    QCOMPARE(driver.checkBoxes(), QString("keepAspectRatio performanceMode"));
}

// A request for a device that does not exist fails and says so; it must reach no other device.
void TestSettingsTab::rowWithoutARecordAsksForNoDevice()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.list()->addItem(QStringLiteral("Grabber"));
    driver.selectRow(1);
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{" < e2 v0 i0 1"});
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestSettingsTab::recordOfAnotherTypeIsConverted()
{
    QVERIFY((QMetaType::registerConverter<QString, DeviceDescription>(describedDevice)));
    DialogDriver driver;
    driver.listDevices({"Other"});
    driver.list()->addItem(QStringLiteral("row"));
    driver.list()->item(1)->setData(Qt::UserRole, QStringLiteral("Grabber"));
    driver.selectRow(1);
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{s_read});
}

QTEST_MAIN(TestSettingsTab)
#include "tst_settingstab.moc"
