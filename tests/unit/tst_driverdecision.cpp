#include "capturedoutput.h"
#include "installerdouble.h"

#include "driverdecision.h"

#include <QtTest>

// When a driver is installed for a device that does not open, and what the outcome is taken for.
class TestDriverInstall : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void anOpenDeviceNeedsNothing_data();
    void anOpenDeviceNeedsNothing();
    void notSupportedIsLeftAloneUnlessForced();
    void everyOtherErrorLeadsToAnInstallation_data();
    void everyOtherErrorLeadsToAnInstallation();
    void theOutcomeIsMappedAndLogged_data();
    void theOutcomeIsMappedAndLogged();
};

static const char *s_starting = "Can't open device, try to install WinUSB driver";

void TestDriverInstall::init()
{
    installer::reset();
}

void TestDriverInstall::anOpenDeviceNeedsNothing_data()
{
    QTest::addColumn<int>("openResult");
    QTest::newRow("0") << 0;
    QTest::newRow("1") << 1;
    QTest::newRow("12") << 12;
}

void TestDriverInstall::anOpenDeviceNeedsNothing()
{
    QFETCH(int, openResult);
    const CapturedDebug debug;
    for (const bool force : {false, true}) {
        QCOMPARE(int(driver_install(openResult, 0xE5C1, 0x3601, true, force)), 0);
    }
    QVERIFY(installer::calls().isEmpty());
    QVERIFY(debug.lines().isEmpty());
}

void TestDriverInstall::notSupportedIsLeftAloneUnlessForced()
{
    const CapturedDebug debug;
    installer::answer({0});
    QCOMPARE(int(driver_install(-12, 0xE5C1, 0x3600, false, false)), 0);
    QVERIFY(installer::calls().isEmpty());
    QVERIFY(debug.lines().isEmpty());
    QCOMPARE(int(driver_install(-12, 0xE5C1, 0x3600, false, true)), 1);
    QCOMPARE(installer::calls(), QStringList{"e5c1 3600 0 single null"});
}

void TestDriverInstall::everyOtherErrorLeadsToAnInstallation_data()
{
    QTest::addColumn<int>("openResult");
    QTest::addColumn<bool>("force");
    for (const int code : {-1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -13, -99}) {
        for (const bool force : {false, true}) {
            QTest::addRow("%d, %s", code, force ? "forced" : "not forced") << code << force;
        }
    }
}

void TestDriverInstall::everyOtherErrorLeadsToAnInstallation()
{
    QFETCH(int, openResult);
    QFETCH(bool, force);
    const CapturedDebug debug;
    installer::answer({0, 0});
    QCOMPARE(int(driver_install(openResult, 0x04B4, 0x00F3, false, force)), 1);
    QCOMPARE(int(driver_install(openResult, 0x5555, 0x3601, true, force)), 1);
    QCOMPARE(installer::calls(),
             (QStringList{"04b4 00f3 0 single null", "5555 3601 0 composite null"}));
    QCOMPARE(debug.lines(), (QStringList{s_starting, s_starting}));
}

void TestDriverInstall::theOutcomeIsMappedAndLogged_data()
{
    QTest::addColumn<int>("outcome");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("lines");
    const QString failed = "Error during driver installation";
    QTest::newRow("installed") << 0 << 1 << QStringList{s_starting};
    QTest::newRow("needs rights") << -2 << 3 << QStringList{s_starting, "access"};
    QTest::newRow("failed") << -1 << 2 << QStringList{s_starting, failed};
    QTest::newRow("some other code") << -15 << 2 << QStringList{s_starting, failed};
    QTest::newRow("positive") << 1 << 2 << QStringList{s_starting, failed};
}

void TestDriverInstall::theOutcomeIsMappedAndLogged()
{
    QFETCH(int, outcome);
    QFETCH(int, result);
    QFETCH(QStringList, lines);
    const CapturedDebug debug;
    installer::answer({outcome});
    QCOMPARE(int(driver_install(-3, 0xE5C1, 0x3601, true, false)), result);
    QCOMPARE(debug.lines(), lines);
}

QTEST_GUILESS_MAIN(TestDriverInstall)
#include "tst_driverdecision.moc"
