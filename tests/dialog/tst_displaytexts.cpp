#include "configdevicetask.h"
#include "devicedescription.h"
#include "displaytexts.h"
#include "records.h"

#include <QTest>

#include <cstring>

class TestDisplayTexts : public QObject
{
    Q_OBJECT

private slots:
    void deviceRow_data();
    void deviceRow();
    void inputStatus_data();
    void inputStatus();
};

void TestDisplayTexts::deviceRow_data()
{
    QTest::addColumn<int>("vendorId");
    QTest::addColumn<int>("productId");
    QTest::addColumn<QStringList>("texts"); // product, serial, version, mode
    QTest::addColumn<QString>("row");

    QTest::newRow("normal mode") << 0xE5C1 << 0x3601
                                 << QStringList{"Grabber", "A1B2C3D4", "1.2.3", ""}
                                 << "Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]";
    QTest::newRow("soft repair has no version")
        << 0xE5C1 << 0x3600 << QStringList{"P", "S", "", "Soft Repair Mode"}
        << "P (S, ) [e5c1:3600] (Soft Repair Mode)";
    QTest::newRow("ids keep their leading zeros")
        << 0x04B4 << 0x00F3 << QStringList{"WestBridge", "FFFFFFFF", "", "Hard Repair Mode"}
        << "WestBridge (FFFFFFFF, ) [04b4:00f3] (Hard Repair Mode)";
    QTest::newRow("ids of all zeros")
        << 0 << 0 << QStringList{"P", "S", "V", ""} << "P (S, V) [0000:0000]";
    QTest::newRow("place holders in the device's texts")
        << 0xE5C1 << 0x3601 << QStringList{"%5 %1", "%4", "%3%2", "%1"}
        << "%5 %1 (%4, %3%2) [e5c1:3601] (%1)";
    QTest::newRow("nothing known")
        << 0xABCD << 0xEF01 << QStringList{"", "", "", ""} << " (, ) [abcd:ef01]";
}

void TestDisplayTexts::deviceRow()
{
    QFETCH(int, vendorId);
    QFETCH(int, productId);
    QFETCH(QStringList, texts);
    DeviceDescription desc;
    desc.vendorId = static_cast<quint16>(vendorId);
    desc.productId = static_cast<quint16>(productId);
    desc.productName = texts.at(0);
    desc.serialNumber = texts.at(1);
    desc.versionString = texts.at(2);
    desc.modeText = texts.at(3);
    QTEST(deviceRowText(desc), "row");
}

// Each row is a record as it comes over the wire: 12 bytes of information, 8 of name, then rate,
// width, height and scan, little-endian.
void TestDisplayTexts::inputStatus_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("line");

    const auto record = [](const char *info, const char *name, const char *numbers) {
        return QByteArray(info).leftJustified(12, '\0', true) +
               QByteArray(name).leftJustified(8, '\0', true) + QByteArray::fromHex(numbers);
    };
    //                                              rate     width height scan
    const char progressive1080[] = "60ea0000 8007 3804 00";
    QTest::newRow("progressive") << record("B", "A", progressive1080) << "A 1920x1080p@60, B";
    QTest::newRow("interlaced") << record("B", "A", "24ea0000 8007 3804 01")
                                << "A 1920x1080i@60, B";
    QTest::newRow("any scan flag but 0 is interlaced")
        << record("B", "A", "24ea0000 8007 3804 80") << "A 1920x1080i@60, B";
    QTest::newRow("59.94") << record("B", "A", "24ea0000 8007 3804 00") << "A 1920x1080p@60, B";
    QTest::newRow("29.97") << record("B", "A", "12750000 d002 e001 00") << "A 720x480p@30, B";
    QTest::newRow("25") << record("B", "A", "a8610000 d002 4002 00") << "A 720x576p@25, B";
    QTest::newRow("23.976") << record("B", "A", "a85d0000 000f 7008 00") << "A 3840x2160p@24, B";
    QTest::newRow("50") << record("B", "A", "50c30000 0005 d002 00") << "A 1280x720p@50, B";
    QTest::newRow("100") << record("B", "A", "a0860100 0005 d002 00") << "A 1280x720p@1e+02, B";
    QTest::newRow("120") << record("B", "A", "c0d40100 0005 d002 00") << "A 1280x720p@1.2e+02, B";
    QTest::newRow("slower than one frame a second")
        << record("B", "A", "f4010000 0100 0100 00") << "A 1x1p@0.5, B";
    QTest::newRow("largest numbers")
        << record("B", "A", "ffffffff ffff ffff ff") << "A 65535x65535i@4.3e+06, B";

    QTest::newRow("no width") << record("B", "A", "60ea0000 0000 3804 00") << "no signal";
    QTest::newRow("no height") << record("B", "A", "60ea0000 8007 0000 00") << "no signal";
    QTest::newRow("no rate") << record("B", "A", "00000000 8007 3804 00") << "no signal";
    QTest::newRow("all zero") << QByteArray(29, '\0') << "no signal";

    QTest::newRow("name missing") << record("B", "", progressive1080) << "unknown 1920x1080p@60, B";
    QTest::newRow("information missing")
        << record("", "A", progressive1080) << "A 1920x1080p@60, unknown";
    QTest::newRow("place holders in the texts")
        << record("%1 %2", "%6", progressive1080) << "%6 1920x1080p@60, %1 %2";
    QTest::newRow("texts that just fit") << record("elevenchars", "sevench", progressive1080)
                                         << "sevench 1920x1080p@60, elevenchars";
    QTest::newRow("information runs on into the name")
        << record("twelve chars", "A", progressive1080) << "A 1920x1080p@60, twelve charsA";
    // 0x21212121 thousandths are 555819.297 frames a second.
    QTest::newRow("name runs on to the end of the record, not past it")
        << record("B", "12345678", "21212121 2222 2323 24")
        << "12345678!!!!\"\"##$ 8738x8995i@5.6e+05, B";
    // 0x41424344, 0x3130 and 0x3332.
    QTest::newRow("not one zero in the record")
        << QByteArray("INFO56789ABNNAME5678DCBA01234")
        << "NAME5678DCBA01234 12592x13106i@1.1e+06, INFO56789ABNNAME5678DCBA01234";
}

void TestDisplayTexts::inputStatus()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(bytes.size(), 29);
    // On the heap and of the exact size, so that a sanitizer sees a read past the end.
    const auto status = std::make_unique<InputStatusInfo>();
    std::memcpy(status.get(), bytes.constData(), 29);
    QTEST(inputStatusText(*status), "line");
}

QTEST_GUILESS_MAIN(TestDisplayTexts)
#include "tst_displaytexts.moc"
