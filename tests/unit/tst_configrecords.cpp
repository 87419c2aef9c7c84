#include "records.h"
#include "vendorrequests.h"

#include <QtTest>

#include <cstddef>
#include <cstring>

// The wire records against bytes written out by hand.
class TestConfigRecords : public QObject
{
    Q_OBJECT

private slots:
    void inputStatusIsReadFromItsBytes();
    void inputStatusFieldsStandWhereTheyShould();
    void userModeIsReadFromItsBytes();
    void userModeIsWrittenToItsBytes();
    void numbersAreLittleEndianAtTheirLimits();
    void recordsMayStandAtAnyAddress();
    void requestsHaveTheirCodes();
};

template<typename Record> static Record fromHex(const char *hex)
{
    const QByteArray bytes = QByteArray::fromHex(hex);
    Record record;
    if (bytes.size() != int(sizeof record)) {
        qFatal("%d bytes for a record of %d", bytes.size(), int(sizeof record));
    }
    std::memcpy(&record, bytes.constData(), sizeof record);
    return record;
}

template<typename Record> static QByteArray toHex(const Record &record)
{
    return QByteArray(reinterpret_cast<const char *>(&record), sizeof record).toHex();
}

void TestConfigRecords::inputStatusIsReadFromItsBytes()
{
    const auto status = fromHex<InputStatusInfo>("5247422000000000000000ff" // "RGB "
                                                 "48444d4900000000"         // "HDMI"
                                                 "60ea0000"                 // 60000
                                                 "8007"                     // 1920
                                                 "3804"                     // 1080
                                                 "01");
    QCOMPARE(QByteArray(status.infoText), QByteArray("RGB "));
    QCOMPARE(QByteArray(status.nameText), QByteArray("HDMI"));
    QCOMPARE(quint32(status.frameRate), 60000U);
    QCOMPARE(quint16(status.width), quint16(1920));
    QCOMPARE(quint16(status.height), quint16(1080));
    QCOMPARE(int(status.interlaced), 1);
}

void TestConfigRecords::inputStatusFieldsStandWhereTheyShould()
{
    QCOMPARE(sizeof(InputStatusInfo), std::size_t(29));
    QCOMPARE(offsetof(InputStatusInfo, infoText), std::size_t(0));
    QCOMPARE(offsetof(InputStatusInfo, nameText), std::size_t(12));
    QCOMPARE(offsetof(InputStatusInfo, frameRate), std::size_t(20));
    QCOMPARE(offsetof(InputStatusInfo, width), std::size_t(24));
    QCOMPARE(offsetof(InputStatusInfo, height), std::size_t(26));
    QCOMPARE(offsetof(InputStatusInfo, interlaced), std::size_t(28));
}

void TestConfigRecords::userModeIsReadFromItsBytes()
{
    const auto mode = fromHex<UserMode>("0005d00201");
    QCOMPARE(quint16(mode.width), quint16(1280));
    QCOMPARE(quint16(mode.height), quint16(720));
    QCOMPARE(int(mode.disabled), 1);
}

void TestConfigRecords::userModeIsWrittenToItsBytes()
{
    UserMode mode{};
    mode.width = 1280;
    mode.height = 720;
    QCOMPARE(toHex(mode), QByteArray("0005d00200"));
    mode.disabled = 1;
    QCOMPARE(toHex(mode), QByteArray("0005d00201"));
    QCOMPARE(sizeof(UserMode), std::size_t(5));
}

void TestConfigRecords::numbersAreLittleEndianAtTheirLimits()
{
    UserMode mode{};
    mode.width = 0xFFFE;
    mode.height = 0x0102;
    QCOMPARE(toHex(mode), QByteArray("feff020100"));
    InputStatusInfo status{};
    status.frameRate = 0xFEDCBA98;
    status.width = 0x1234;
    status.height = 0xFFFF;
    status.interlaced = 0xFF;
    QCOMPARE(toHex(status).mid(40), QByteArray("98badcfe3412ffffff"));
    QCOMPARE(quint32(status.frameRate), 0xFEDCBA98U);
}

void TestConfigRecords::recordsMayStandAtAnyAddress()
{
    QCOMPARE(alignof(InputStatusInfo), std::size_t(1));
    QCOMPARE(alignof(UserMode), std::size_t(1));
}

void TestConfigRecords::requestsHaveTheirCodes()
{
    QCOMPARE(int(MEMORY_ACCESS), 0xA0);
    QCOMPARE(int(INPUT_STATUS), 178);
    QCOMPARE(int(USER_MODE), 179);
    QCOMPARE(int(FPGA_START), 0xC1);
    QCOMPARE(int(FPGA_WRITE), 0xC2);
    QCOMPARE(int(FPGA_COMPLETE), 0xC3);
    QCOMPARE(int(FPGA_STATUS), 0xC4);
    QCOMPARE(int(FX3_START), 0xC5);
    QCOMPARE(int(FX3_WRITE), 0xC6);
    QCOMPARE(int(FX3_COMPLETE), 0xC7);
    QCOMPARE(int(FX3_STATUS), 0xC8);
    QCOMPARE(int(EDID_START), 0xCF);
    QCOMPARE(int(EDID_WRITE), 0xD2);
    QCOMPARE(int(EDID_COMPLETE), 0xD4);
    QCOMPARE(int(GET_DEVICE_FLAGS), 226);
    QCOMPARE(int(SET_DEVICE_FLAGS), 227);
}

QTEST_GUILESS_MAIN(TestConfigRecords)
#include "tst_configrecords.moc"
