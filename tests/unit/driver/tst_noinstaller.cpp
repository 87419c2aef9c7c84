#include "capturedoutput.h"
#include "driverdecision.h"
#include "platforminstaller.h"

#include <QtTest>

// What this platform itself says, with nothing replaced.
class TestNoInstaller : public QObject
{
    Q_OBJECT

private slots:
    void platformHasNoInstaller();
    void installationFailsInSilence();
    void deviceThatCannotBeOpenedFails();
};

void TestNoInstaller::platformHasNoInstaller()
{
    QVERIFY(!usb::has_driver_installer());
}

void TestNoInstaller::installationFailsInSilence()
{
    char description[] = "Capture device";
    CapturedStdout capture;
    const int unnamed = usb::install_driver(0x04b4, 0x00f3, 0, false, nullptr);
    const int named = usb::install_driver(0x04b4, 0x00f3, 1, true, description);
    QCOMPARE(capture.finish(), std::string());
    QCOMPARE(unnamed, -1);
    QCOMPARE(named, -1);
}

void TestNoInstaller::deviceThatCannotBeOpenedFails()
{
    QCOMPARE(driver_install(-3, 0x04b4, 0x00f3, false, false), Failed);
    QCOMPARE(driver_install(0, 0x04b4, 0x00f3, false, false), Found);
}

QTEST_GUILESS_MAIN(TestNoInstaller)
#include "tst_noinstaller.moc"
