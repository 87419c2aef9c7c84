// The Settings tab: the device flags byte behind four check boxes.

#include "dialogdriver.h"

#include <QCheckBox>
#include <QListWidget>
#include <QTabWidget>
#include <QTest>

namespace {

const char s_read[] = "get 226 Grabber size 1 index 0 value 0";

QString writeOf(const char *byte)
{
    return QStringLiteral("set 227 Grabber size 1 index 0 value 0 %1").arg(QLatin1String(byte));
}

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

    QString boxStates()
    {
        QString states;
        for (const char *name : s_boxes) {
            states += find<QCheckBox>(name)->isChecked() ? u'x' : u'-';
        }
        return states;
    }

    void setBoxes(const char *states)
    {
        for (const char *name : s_boxes) {
            find<QCheckBox>(name)->setChecked(*states++ == 'x');
        }
    }

private:
    static constexpr const char *s_boxes[] = {"reenumerateCheckBox", "keepAspectRatioCheckBox",
                                              "performanceModeCheckBox", "audioSelectorCheckBox"};
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
    QCOMPARE(driver.takeAsked(), QStringList{writeOf("00")});
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
    QTest::addColumn<QString>("states"); // input resolution, aspect ratio, performance, audio
    QTest::newRow("none") << 0x00 << "----";
    QTest::newRow("bit 0") << 0x01 << "x---";
    QTest::newRow("bit 1") << 0x02 << "-x--";
    QTest::newRow("bit 2") << 0x04 << "--x-";
    QTest::newRow("bit 3 has no box") << 0x08 << "----";
    QTest::newRow("bit 4") << 0x10 << "---x";
    QTest::newRow("bits 5 to 7 have no box") << 0xE0 << "----";
    QTest::newRow("all") << 0xFF << "xxxx";
}

void TestSettingsTab::boxesFollowTheirBits()
{
    QFETCH(int, byte);
    QFETCH(QString, states);
    ReadyDriver driver;
    for (const char *before : {"----", "xxxx"}) {
        driver.setBoxes(before);
        driver.openTab("tabFirmware");
        driver.openTab("tabSettings");
        driver.answerRead(byte);
        QCOMPARE(driver.boxStates(), states);
    }
}

void TestSettingsTab::writtenByteIsBuiltFromTheBoxesAlone_data()
{
    QTest::addColumn<QByteArray>("states");
    QTest::addColumn<QByteArray>("byte");
    QTest::newRow("none") << QByteArray("----") << QByteArray("00");
    QTest::newRow("input resolution") << QByteArray("x---") << QByteArray("01");
    QTest::newRow("aspect ratio") << QByteArray("-x--") << QByteArray("02");
    QTest::newRow("performance") << QByteArray("--x-") << QByteArray("04");
    QTest::newRow("audio selector") << QByteArray("---x") << QByteArray("10");
    QTest::newRow("all") << QByteArray("xxxx") << QByteArray("17");
}

void TestSettingsTab::writtenByteIsBuiltFromTheBoxesAlone()
{
    QFETCH(QByteArray, states);
    QFETCH(QByteArray, byte);
    ReadyDriver driver;
    driver.setBoxes(states.constData());
    QTest::ignoreMessage(QtDebugMsg, "Selected device: \"Grabber\"");
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(byte.constData())});
}

void TestSettingsTab::unusedBitsAreClearedByAWrite()
{
    ReadyDriver driver;
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0x08);
    QCOMPARE(driver.boxStates(), QString("----"));
    driver.takeAsked();
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf("00")});
}

void TestSettingsTab::allBitsReadAndWrittenBack()
{
    ReadyDriver driver;
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0xFF);
    QCOMPARE(driver.boxStates(), QString("xxxx"));
    driver.takeAsked();
    driver.click("updateSettingsButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf("17")});
}

void TestSettingsTab::applyWithoutARowAsksForADevice()
{
    DialogDriver driver;
    QMetaObject::invokeMethod(&driver.dialog, "on_updateSettingsButton_clicked");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    const ShownBox &box = driver.boxes.shown.front();
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.title, QString("Quorlin Updater"));
    QCOMPARE(box.text, QString("Please select a device from the list"));
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestSettingsTab::failedReadIsShownOnceAndKeepsTheBoxes()
{
    ReadyDriver driver;
    driver.setBoxes("x-x-");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    QTest::ignoreMessage(QtDebugMsg, "Setting/getting flags error \"no %1\"");
    emit driver.flags->error(226, "no %1");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    const ShownBox &box = driver.boxes.shown.front();
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.title, QString("Device Access Error"));
    QCOMPARE(box.text, QString("no %1"));
    QCOMPARE(box.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(box.parent, &driver.dialog);
    QVERIFY(!driver.tabs()->isEnabled()); // the completion unlocks

    emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxStates(), QString("x-x-"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    // After an error not even data is believed, until the next request.
    driver.answerRead(0xFF);
    QCOMPARE(driver.boxStates(), QString("x-x-"));
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.answerRead(0xFF);
    QCOMPARE(driver.boxStates(), QString("xxxx"));
}

void TestSettingsTab::failedWriteTransferIsShownOnce()
{
    ReadyDriver driver;
    driver.setBoxes("x---");
    driver.click("updateSettingsButton");
    emit driver.flags->error(227, "refused");
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.flags->setRequestComplete(227);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.boxes.shown.front().text, QString("refused"));
    QCOMPARE(driver.boxStates(), QString("x---"));
}

void TestSettingsTab::writeToADeviceThatCannotBeOpened()
{
    ReadyDriver driver;
    driver.setBoxes("-x--");
    driver.click("updateSettingsButton");
    emit driver.flags->error(227, "not open");
    emit driver.flags->getRequestComplete(227, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.boxStates(), QString("-x--"));
}

void TestSettingsTab::emptyAnswerUnlocksAndKeepsTheBoxes()
{
    ReadyDriver driver;
    driver.setBoxes("-x-x");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxStates(), QString("-x-x"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestSettingsTab::completionMayArriveWhileTheErrorIsShown()
{
    ReadyDriver driver;
    driver.setBoxes("---x");
    driver.openTab("tabFirmware");
    driver.openTab("tabSettings");
    driver.boxes.whileOpen = [&driver] {
        emit driver.flags->getRequestComplete(226, ConfigDeviceDataPtr(), 0);
    };
    emit driver.flags->error(226, "no");
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QCOMPARE(driver.boxStates(), QString("---x"));
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
    QCOMPARE(driver.boxStates(), QString("x--x"));
    driver.selectRow(0);
    QCOMPARE(driver.takeAsked(), QStringList{"get 226 A size 1 index 0 value 0"});
    driver.answerRead(0x06);
    QCOMPARE(driver.boxStates(), QString("-xx-"));
}

// A request for a device that does not exist fails and says so; it must reach no other device.
void TestSettingsTab::rowWithoutARecordAsksForNoDevice()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.list()->addItem(QStringLiteral("Grabber"));
    driver.selectRow(1);
    driver.openTab("tabSettings");
    QCOMPARE(driver.takeAsked(), QStringList{"get 226  size 1 index 0 value 0"});
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
