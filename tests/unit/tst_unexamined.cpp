#include "capturedoutput.h"
#include "scriptedlibusb.h"

#include "devicescanner.h"
#include "filters.h"

#include <QSignalSpy>
#include <QtTest>

// A table of recognised products that names no probe; it takes the real one's place at the link.
const std::array<Filter, 14> s_filters{{{{0xE5C1, 0x3601}, false, nullptr}}};

// Devices that are recognised, but not examined.
class TestUnexamined : public QObject
{
    Q_OBJECT

private slots:
    void deviceWithoutAProbeIsLeftAlone();
};

void TestUnexamined::deviceWithoutAProbeIsLeftAlone()
{
    const CapturedDebug debug;
    ScriptedUsb bus;
    bus.plug("a", 0xE5C1, 0x3601);
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    DeviceScanner scanner;
    QSignalSpy found(&scanner, &DeviceScanner::newDevice);
    QSignalSpy failed(&scanner, &DeviceScanner::error);
    QSignalSpy completed(&scanner, &DeviceScanner::complete);
    emit scanner.scan();
    QVERIFY(completed.wait(60000));

    QCOMPARE(found.size(), 0);
    QCOMPARE(failed.size(), 0);
    QCOMPARE(bus.callsOf("open"), QStringList());
    // It does not count as failed either: then there would be a second pass.
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

QTEST_GUILESS_MAIN(TestUnexamined)

#include "tst_unexamined.moc"
