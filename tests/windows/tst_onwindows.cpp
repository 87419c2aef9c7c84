// The dialog on Windows' own platform of Qt, where something outside of the toolkit takes part: the
// system's file dialog, and the end of a session. on_screen.py runs each function, and does what a
// person does.

#include "dialogdriver.h"

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <windows.h>

class TestOnWindows : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QString("windows"));
        prepareWithoutUsb();
    }
    void packageIsChosenInTheSystemsFileDialog();
    void sessionMayNotEndDuringAnUpdateOnly();
};

// on_screen.py clicks at the place that it is told, and types the file's path into what appears.
void TestOnWindows::packageIsChosenInTheSystemsFileDialog()
{
    const QString file = QDir::fromNativeSeparators(qEnvironmentVariable("CAPSO_CHOSEN"));
    const QString place = qEnvironmentVariable("CAPSO_CLICK");
    QVERIFY(QFile::exists(file));
    DialogDriver driver;
    driver.dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&driver.dialog));
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    QVERIFY(driver.find<QLineEdit>("firmwareLineEdit")->text().isEmpty());

    const auto *button = driver.find<QToolButton>("firmwareSelectButton");
    const QPoint centre = button->mapToGlobal(button->rect().center());
    QFile told(place);
    QVERIFY(told.open(QIODevice::WriteOnly));
    told.write(QStringLiteral("%1 %2\n").arg(centre.x()).arg(centre.y()).toLatin1());
    told.close();

    QTRY_COMPARE_WITH_TIMEOUT(driver.find<QLineEdit>("firmwareLineEdit")->text(), file, 60000);
    QVERIFY(driver.dialog.isEnabled());
    QVERIFY(driver.find<QPushButton>("updateButton")->isEnabled());
}

// What Windows asks every window when somebody logs off or shuts down.
void TestOnWindows::sessionMayNotEndDuringAnUpdateOnly()
{
    DialogDriver driver;
    driver.dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&driver.dialog));
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    driver.find<QLineEdit>("firmwareLineEdit")->setText("some.fw");
    const auto mayEnd = [&driver] {
        return SendMessageW(reinterpret_cast<HWND>(driver.dialog.winId()), WM_QUERYENDSESSION, 0,
                            0);
    };

    driver.click("updateButton");
    QCOMPARE(mayEnd(), LRESULT(FALSE));
    emit driver.updateTask->error("no");
    QCOMPARE(mayEnd(), LRESULT(FALSE));
    emit driver.updateTask->complete();
    QCOMPARE(mayEnd(), LRESULT(TRUE));
}

QTEST_MAIN(TestOnWindows)
#include "tst_onwindows.moc"
