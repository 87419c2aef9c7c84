// The dialog with its real workers, which find no USB: requests and answers really cross the
// threads.

#include "dialogdriver.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>

namespace {

// A dialog whose first scan has ended and whose list holds one device that is not there.
class Session
{
public:
    Session()
    {
        auto *scanner = dialog.findChild<DeviceScanner *>();
        QSignalSpy complete(scanner, &DeviceScanner::complete);
        emit scanner->newDevice(describedDevice("Grabber"));
        if (!complete.wait(30000)) {
            qFatal("the first scan does not end");
        }
        dialog.findChild<QListWidget *>()->setCurrentRow(0);
    }

    void openTab(const char *page)
    {
        tabs()->setCurrentWidget(dialog.findChild<QWidget *>(QLatin1String(page)));
    }

    QTabWidget *tabs() { return dialog.findChild<QTabWidget *>("tabWidget"); }

    UpdateRepair dialog;
    MessageBoxes boxes;
};

const char s_noAccess[] = "Cannot access USB. Administrative rights may be required.";

} // namespace

class TestWorkers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void settingsAreAskedForAndTheFailureIsShown();
    void settingsAreWrittenAndTheFailureIsShown();
    void userModesAreAskedForAndThePageIsDisabled();
    void userModesAreWrittenAndTheFailureIsShown();
    void signalIsPolledAndTheFailureIsShownInTheLine();
    void updateIsStartedAndItsFailureIsShown();
    void dialogCanGoAwayWithRequestsUnderWay();
};

void TestWorkers::settingsAreAskedForAndTheFailureIsShown()
{
    Session session;
    session.openTab("tabSettings");
    QVERIFY(!session.tabs()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    QCOMPARE(session.boxes.shown.size(), std::size_t(1));
    QCOMPARE(session.boxes.shown.front().text, QString(s_noAccess));
}

void TestWorkers::settingsAreWrittenAndTheFailureIsShown()
{
    Session session;
    session.openTab("tabSettings");
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    session.dialog.findChild<QPushButton *>("updateSettingsButton")->click();
    QVERIFY(!session.tabs()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    QCOMPARE(session.boxes.shown.size(), std::size_t(2));
}

void TestWorkers::userModesAreAskedForAndThePageIsDisabled()
{
    Session session;
    session.openTab("tabUserMode");
    QVERIFY(!session.tabs()->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    QVERIFY(!session.dialog.findChild<QWidget *>("tabUserMode")->isEnabled());
    QCOMPARE(session.boxes.shown.size(), std::size_t(0));
}

void TestWorkers::userModesAreWrittenAndTheFailureIsShown()
{
    Session session;
    session.openTab("tabUserMode");
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    QMetaObject::invokeMethod(&session.dialog, "on_updateUserModesButton_clicked");
    QTRY_VERIFY_WITH_TIMEOUT(session.tabs()->isEnabled(), 30000);
    QCOMPARE(session.boxes.shown.size(), std::size_t(1));
    QCOMPARE(session.boxes.shown.front().text, QString(s_noAccess));
}

void TestWorkers::signalIsPolledAndTheFailureIsShownInTheLine()
{
    Session session;
    auto *line = session.dialog.findChild<QLabel *>("inputSignalLabel");
    QTRY_COMPARE_WITH_TIMEOUT(line->text(), QString("request not supported"), 30000);
    QCOMPARE(session.boxes.shown.size(), std::size_t(0));
    QVERIFY(session.tabs()->isEnabled());
}

void TestWorkers::updateIsStartedAndItsFailureIsShown()
{
    Session session;
    session.dialog.findChild<QLineEdit *>("firmwareLineEdit")->setText("/nowhere/missing.fw");
    session.dialog.findChild<QPushButton *>("updateButton")->click();
    QVERIFY(!session.dialog.isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(session.dialog.isEnabled(), 30000);
    QCOMPARE(session.boxes.shown.size(), std::size_t(1));
    QVERIFY(session.boxes.shown.front().text.startsWith("Cannot open firmware package: "));
    QCOMPARE(session.dialog.findChild<QProgressBar *>()->text(), QString("Update Error"));
}

void TestWorkers::dialogCanGoAwayWithRequestsUnderWay()
{
    for (const char *page : {"tabSettings", "tabUserMode"}) {
        Session session;
        QMetaObject::invokeMethod(&session.dialog, "onInputStatusTimer");
        session.openTab(page);
        QMetaObject::invokeMethod(&session.dialog, "on_rescanDevicesButton_clicked");
    }
}

QTEST_MAIN(TestWorkers)
#include "tst_workers.moc"
