// The User Modes tab: three sizes read and written one after another. And the input signal's line.

#include "dialogdriver.h"

#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>

namespace {

QString readOf(int mode)
{
    return QStringLiteral("Grabber < b3 v0 i%1 5").arg(mode);
}

QString writeOf(int mode, const char *bytes)
{
    return QStringLiteral("Grabber > b3 v0 i%1 5 %2")
        .arg(QString::number(mode), QString(bytes).remove(' '));
}

// A driver that shows the User Modes page; the read of mode 0 has been asked for.
class ReadyDriver : public DialogDriver
{
public:
    ReadyDriver()
    {
        listDevices({"Grabber"});
        selectRow(0);
        openTab("tabUserMode");
    }

    void answerRead(const char *bytes)
    {
        emit modes->getRequestComplete(179, configData(QByteArray::fromHex(bytes)), 5);
    }

    void answerAllReads()
    {
        for (const char *bytes : {"80 07 38 04 00", "00 05 d0 02 01", "d0 02 40 02 00"}) {
            answerRead(bytes);
        }
        takeAsked();
    }

    void answerStatus(const char *bytes)
    {
        emit inputStatus->getRequestComplete(178, configData(QByteArray::fromHex(bytes)), 29);
    }
};

const char s_poll[] = "Grabber < b2 v0 i0 29";

// "RGB" and "HDMI", 1920x1080, progressive, 59.94 frames a second.
const char s_signal[] = "52474200 00000000 00000000 48444d49 00000000 24ea0000 8007 3804 00";
const char s_noSignal[] = "52474200 00000000 00000000 48444d49 00000000 24ea0000 8007 0000 00";

int s_logged = 0; // lines, while a test counts them

} // namespace

class TestUserModesTab : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }

    void threeModesAreReadInTurn();
    void switchedOffModesKeepTheirSizes();
    void numbersAreLittleEndianAndUnsigned();
    void failedReadDisablesThePageWithoutABox();
    void failedReadOfALaterModeStopsTheSequence();
    void dataThatFollowsAnErrorIsNotBelieved();
    void disabledPageComesBackWithTheNextRequest();
    void emptyAnswerUnlocksAndKeepsTheWidgets();

    void threeModesAreWrittenInTurn();
    void uncheckedModesAreWrittenAsSwitchedOff();
    void refusedModeStopsTheWritesAndIsShownOnce();
    void writeToADeviceThatCannotBeOpened();
    void writeCompletionMayArriveWhileTheErrorIsShown();
    void readErrorAfterAWriteIsNotShown();
    void markUpInAnErrorIsShownAsItIs();
    void applyWithoutARowAsksForADevice();

    void pollShowsTheSignal();
    void textsOfTheDeviceAreNotTakenForMarkUp();
    void failedPollShowsThatItIsNotSupported();
    void onlyTheAnswerOfAPollIsListenedTo();
    void pollNeitherLocksNorLogs();
    void noSecondPollWhileOneIsUnanswered();
    void timerPollsOnlyWhileUnlocked();
    void withoutARowNothingIsPolled();
};

void TestUserModesTab::threeModesAreReadInTurn()
{
    ReadyDriver driver;
    QCOMPARE(driver.takeAsked(), QStringList{readOf(0)});
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerRead("80 07 38 04 00");
    QCOMPARE(driver.takeAsked(), QStringList{readOf(1)});
    driver.answerRead("00 05 d0 02 01");
    QCOMPARE(driver.takeAsked(), QStringList{readOf(2)});
    QVERIFY(!driver.tabs()->isEnabled());
    driver.answerRead("d0 02 40 02 00");
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.userModes(), QString("1920x1080 on, 1280x720 off, 720x576 on"));
}

void TestUserModesTab::switchedOffModesKeepTheirSizes()
{
    ReadyDriver driver;
    driver.answerRead("80 07 38 04 01");
    driver.answerRead("00 05 d0 02 ff");
    driver.answerRead("d0 02 40 02 02");
    QCOMPARE(driver.userModes(), QString("1920x1080 off, 1280x720 off, 720x576 off"));
}

void TestUserModesTab::numbersAreLittleEndianAndUnsigned()
{
    ReadyDriver driver;
    driver.answerRead("ff ff 00 80 00");
    driver.answerRead("01 00 00 01 00");
    driver.answerRead("00 00 00 00 00");
    QCOMPARE(driver.userModes(), QString("65535x32768 on, 1x256 on, 0x0 on"));
}

void TestUserModesTab::failedReadDisablesThePageWithoutABox()
{
    ReadyDriver driver;
    driver.takeAsked();
    QTest::ignoreMessage(QtDebugMsg, "Setting/getting user mode error \"no\"");
    emit driver.modes->error(179, "no");
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(!driver.find<QWidget>("tabUserMode")->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestUserModesTab::failedReadOfALaterModeStopsTheSequence()
{
    ReadyDriver driver;
    driver.answerRead("80 07 38 04 00");
    driver.takeAsked();
    emit driver.modes->error(179, "no");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.userModes(), QString("1920x1080 on, 0x0 off, 0x0 off"));
    QVERIFY(!driver.find<QWidget>("tabUserMode")->isEnabled());
}

void TestUserModesTab::dataThatFollowsAnErrorIsNotBelieved()
{
    ReadyDriver driver;
    driver.takeAsked();
    emit driver.modes->error(179, "no");
    driver.answerRead("80 07 38 04 00");
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.userModes().startsWith("0x0 off, "));
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(!driver.find<QWidget>("tabUserMode")->isEnabled());
}

void TestUserModesTab::disabledPageComesBackWithTheNextRequest()
{
    ReadyDriver driver;
    emit driver.modes->error(179, "no");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    driver.takeAsked();
    driver.openTab("tabFirmware");
    driver.openTab("tabUserMode");
    QCOMPARE(driver.takeAsked(), QStringList{readOf(0)});
    driver.answerAllReads();
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabled());
    QCOMPARE(driver.userModes(), QString("1920x1080 on, 1280x720 off, 720x576 on"));
}

void TestUserModesTab::emptyAnswerUnlocksAndKeepsTheWidgets()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.openTab("tabFirmware");
    driver.openTab("tabUserMode");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabled());
    QCOMPARE(driver.userModes(), QString("1920x1080 on, 1280x720 off, 720x576 on"));
}

void TestUserModesTab::threeModesAreWrittenInTurn()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.find<QSpinBox>("userMode1Width")->setValue(65535);
    driver.find<QSpinBox>("userMode1Height")->setValue(256);
    driver.find<QGroupBox>("userMode2")->setChecked(true);
    QTest::ignoreMessage(QtDebugMsg, "Selected device: \"Grabber\"");
    driver.click("updateUserModesButton");
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(0, "ff ff 00 01 00")});
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.modes->setRequestComplete(179);
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(1, "00 05 d0 02 00")});
    emit driver.modes->setRequestComplete(179);
    QCOMPARE(driver.takeAsked(), QStringList{writeOf(2, "d0 02 40 02 00")});
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.modes->setRequestComplete(179);
    QCOMPARE(driver.takeAsked(), QStringList());
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestUserModesTab::uncheckedModesAreWrittenAsSwitchedOff()
{
    ReadyDriver driver;
    driver.answerAllReads();
    for (const char *group : {"userMode1", "userMode2", "userMode3"}) {
        driver.find<QGroupBox>(group)->setChecked(false);
    }
    driver.click("updateUserModesButton");
    for (int i = 0; i < 3; ++i) {
        emit driver.modes->setRequestComplete(179);
    }
    QCOMPARE(driver.takeAsked(),
             (QStringList{writeOf(0, "80 07 38 04 01"), writeOf(1, "00 05 d0 02 01"),
                          writeOf(2, "d0 02 40 02 01")}));
}

void TestUserModesTab::refusedModeStopsTheWritesAndIsShownOnce()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.click("updateUserModesButton");
    emit driver.modes->setRequestComplete(179);
    driver.takeAsked();
    QTest::ignoreMessage(QtDebugMsg, "Setting/getting user mode error \"refused\"");
    emit driver.modes->error(179, "refused");
    QCOMPARE(driver.boxTexts(), QStringList{"critical|Device Access Error|refused|Ok"});
    QVERIFY(!driver.tabs()->isEnabled());
    emit driver.modes->setRequestComplete(179);
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(driver.find<QWidget>("tabUserMode")->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
}

void TestUserModesTab::writeToADeviceThatCannotBeOpened()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.click("updateUserModesButton");
    driver.takeAsked();
    emit driver.modes->error(179, "not open");
    emit driver.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QVERIFY(driver.tabs()->isEnabled());
    QVERIFY(!driver.find<QWidget>("tabUserMode")->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestUserModesTab::writeCompletionMayArriveWhileTheErrorIsShown()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.click("updateUserModesButton");
    driver.takeAsked();
    driver.boxes.whileOpen = [&driver] { emit driver.modes->setRequestComplete(179); };
    emit driver.modes->error(179, "refused");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(1));
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestUserModesTab::readErrorAfterAWriteIsNotShown()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.click("updateUserModesButton");
    for (int i = 0; i < 3; ++i) {
        emit driver.modes->setRequestComplete(179);
    }
    driver.openTab("tabFirmware");
    driver.openTab("tabUserMode");
    emit driver.modes->error(179, "no");
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestUserModesTab::markUpInAnErrorIsShownAsItIs()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.click("updateUserModesButton");
    emit driver.modes->error(179, "<b>refused</b>");
    QCOMPARE(driver.boxes.shown.at(0).readableText(), QString("<b>refused</b>"));
}

void TestUserModesTab::applyWithoutARowAsksForADevice()
{
    DialogDriver driver;
    QMetaObject::invokeMethod(&driver.dialog, "on_updateUserModesButton_clicked");
    QCOMPARE(driver.boxTexts(),
             QStringList{"warning|Quorlin Updater|Please select a device from the list|Ok"});
    QCOMPARE(driver.takeAsked(), QStringList());
}

void TestUserModesTab::pollShowsTheSignal()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.pollNow();
    QCOMPARE(driver.takeAsked(), QStringList{s_poll});
    driver.answerStatus(s_signal);
    QCOMPARE(driver.statusLine(), QString("HDMI 1920x1080p@60, RGB"));
    driver.pollNow();
    driver.answerStatus(s_noSignal);
    QCOMPARE(driver.statusLine(), QString("no signal"));
}

// What a label needs to show a text tells how it takes it.
void TestUserModesTab::textsOfTheDeviceAreNotTakenForMarkUp()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.pollNow();
    // "<u>RGB</u>" and "<b>", 1920x1080, progressive, 60 frames a second.
    driver.answerStatus("3c753e5247423c2f753e0000 3c623e0000000000 60ea0000 8007 3804 00");
    QCOMPARE(driver.statusLine(), QString("<b> 1920x1080p@60, <u>RGB</u>"));
    auto *line = driver.find<QLabel>("inputSignalLabel");
    QCOMPARE(line->textFormat(), Qt::PlainText);
    QVERIFY(line->sizeHint().width() >= line->fontMetrics().horizontalAdvance(line->text()));
}

void TestUserModesTab::onlyTheAnswerOfAPollIsListenedTo()
{
    UpdateRepair dialog;
    int found = 0;
    for (ConfigDeviceAction *action : dialog.findChildren<ConfigDeviceAction *>()) {
        const bool isPoll = action->filterRequest(178);
        found += isPoll ? 1 : 0;
        // Whether there was something to disconnect.
        QCOMPARE(disconnect(action, &ConfigDeviceBase::setRequestComplete, &dialog, nullptr),
                 !isPoll);
        QCOMPARE(disconnect(action, &ConfigDeviceBase::error, &dialog, nullptr), !isPoll);
        QVERIFY(disconnect(action, &ConfigDeviceBase::getRequestComplete, &dialog, nullptr));
    }
    QCOMPARE(found, 1);
}

void TestUserModesTab::failedPollShowsThatItIsNotSupported()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.pollNow();
    emit driver.inputStatus->error(178, "refused");
    QCOMPARE(driver.statusLine(), QString("device not selected")); // the error itself shows nothing
    emit driver.inputStatus->getRequestComplete(178, ConfigDeviceDataPtr(), 0);
    QCOMPARE(driver.statusLine(), QString("request not supported"));
    QCOMPARE(driver.boxes.shown.size(), std::size_t(0));
}

void TestUserModesTab::pollNeitherLocksNorLogs()
{
    ReadyDriver driver;
    driver.answerAllReads();
    s_logged = 0;
    const QtMessageHandler before = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &) { ++s_logged; });
    driver.pollNow();
    const bool enabledDuringThePoll = driver.tabs()->isEnabled() && driver.list()->isEnabled();
    driver.answerStatus(s_signal);
    qInstallMessageHandler(before);
    QVERIFY(enabledDuringThePoll);
    QVERIFY(driver.tabs()->isEnabled());
    QCOMPARE(s_logged, 0);
}

void TestUserModesTab::noSecondPollWhileOneIsUnanswered()
{
    ReadyDriver driver;
    driver.answerAllReads();
    driver.pollNow();
    driver.pollNow();
    QCOMPARE(driver.takeAsked(), QStringList{s_poll});
    driver.answerStatus(s_signal);
    driver.pollNow();
    QCOMPARE(driver.takeAsked(), QStringList{s_poll});
}

// Real time: the timer is the dialog's own. Two polls are 2 s apart; a loaded machine may be late,
// never early.
void TestUserModesTab::timerPollsOnlyWhileUnlocked()
{
    ReadyDriver driver;
    driver.answerAllReads();
    QElapsedTimer clock;
    clock.start();
    QTRY_COMPARE_WITH_TIMEOUT(driver.asked, QStringList{s_poll}, 30000);
    QVERIFY2(clock.elapsed() >= 1800, qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(clock.elapsed() < 20000, qPrintable(QString::number(clock.elapsed())));
    driver.answerStatus(s_signal);
    QTRY_COMPARE_WITH_TIMEOUT(driver.asked, (QStringList{s_poll, s_poll}), 30000);
    driver.answerStatus(s_signal);

    driver.click("updateUserModesButton");
    driver.takeAsked();
    QTest::qWait(2600);
    QCOMPARE(driver.takeAsked(), QStringList());
    for (int i = 0; i < 3; ++i) {
        emit driver.modes->setRequestComplete(179);
    }
    driver.takeAsked();
    QTRY_COMPARE_WITH_TIMEOUT(driver.asked, QStringList{s_poll}, 30000);
}

void TestUserModesTab::withoutARowNothingIsPolled()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.pollNow();
    QCOMPARE(driver.takeAsked(), QStringList());
    QCOMPARE(driver.statusLine(), QString("device not selected"));
}

QTEST_MAIN(TestUserModesTab)
#include "tst_usermodestab.moc"
