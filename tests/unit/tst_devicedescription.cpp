#include "scriptedlibusb.h"

#include "devicedescription.h"

#include <QtTest>

#include <set>

// The record of a device: how copies hold the device, and how it travels.
class TestDeviceDescription : public QObject
{
    Q_OBJECT

signals:
    void sent(const DeviceDescription &record);

private slots:
    void initTestCase();

    void aNewRecordHasNoDeviceAndEmptyTexts();
    void everyFieldIsCopied();
    void copyingTakesAReferenceAndDestroyingDropsIt();
    void assigningSwapsTheReferences();
    void assigningARecordToItselfKeepsItsDevice();
    void aRecordWithoutDeviceNeverCallsLibusb();
    void aQueuedCopyKeepsTheDeviceAlive();
    void theMetaTypeIsKnownByName();
    void fieldsHaveTheirWidths();
    void modesHaveTheirNumbers();
    void productIdsAreOrderedByVendorThenProduct();
};

void TestDeviceDescription::initTestCase()
{
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
}

void TestDeviceDescription::aNewRecordHasNoDeviceAndEmptyTexts()
{
    const DeviceDescription record;
    QVERIFY(record.device == nullptr);
    QVERIFY(record.productName.isEmpty());
    QVERIFY(record.serialNumber.isEmpty());
    QVERIFY(record.versionString.isEmpty());
    QVERIFY(record.modeText.isEmpty());
    const DeviceDescription cleared{};
    QCOMPARE(cleared.vendorId, quint16(0));
    QCOMPARE(cleared.mode, quint32(0));
    QVERIFY(!cleared.secondPass);
}

namespace {

DeviceDescription filledRecord()
{
    DeviceDescription record{};
    record.vendorId = 1;
    record.productId = 2;
    record.interfaceNumber = 3;
    record.busNumber = 4;
    record.deviceAddress = 5;
    record.portNumber = 6;
    record.mode = 7;
    record.productName = QStringLiteral("product");
    record.serialNumber = QStringLiteral("serial");
    record.versionString = QStringLiteral("version");
    record.modeText = QStringLiteral("mode");
    record.secondPass = true;
    return record;
}

void compareWithFilled(const DeviceDescription &record)
{
    QCOMPARE(record.vendorId, quint16(1));
    QCOMPARE(record.productId, quint16(2));
    QCOMPARE(record.interfaceNumber, quint16(3));
    QCOMPARE(record.busNumber, quint8(4));
    QCOMPARE(record.deviceAddress, quint16(5));
    QCOMPARE(record.portNumber, quint8(6));
    QCOMPARE(record.mode, quint32(7));
    QCOMPARE(record.productName, QStringLiteral("product"));
    QCOMPARE(record.serialNumber, QStringLiteral("serial"));
    QCOMPARE(record.versionString, QStringLiteral("version"));
    QCOMPARE(record.modeText, QStringLiteral("mode"));
    QVERIFY(record.secondPass);
}

} // namespace

void TestDeviceDescription::everyFieldIsCopied()
{
    const DeviceDescription original = filledRecord();
    const DeviceDescription copy(original); // NOLINT(performance-unnecessary-copy-initialization)
    compareWithFilled(copy);
    DeviceDescription assigned{};
    assigned = original;
    compareWithFilled(assigned);
    compareWithFilled(original);
}

void TestDeviceDescription::copyingTakesAReferenceAndDestroyingDropsIt()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    {
        DeviceDescription record{};
        record.device = libusb_ref_device(device);
        QCOMPARE(device->references, 1);
        {
            const DeviceDescription copy(record);
            QVERIFY(copy.device == device);
            QCOMPARE(device->references, 2);
        }
        QCOMPARE(device->references, 1);
    }
    QCOMPARE(device->references, 0);
}

void TestDeviceDescription::assigningSwapsTheReferences()
{
    ScriptedUsb bus;
    libusb_device *first = bus.plug("a", 0xE5C1, 0x3601);
    libusb_device *second = bus.plug("b", 0xE5C1, 0x3601);
    DeviceDescription record{};
    record.device = libusb_ref_device(first);
    {
        DeviceDescription other{};
        other.device = libusb_ref_device(second);
        record = other;
    }
    QVERIFY(record.device == second);
    QCOMPARE(first->references, 0);
    QCOMPARE(second->references, 1);
    record = DeviceDescription{};
    QCOMPARE(second->references, 0);
}

void TestDeviceDescription::assigningARecordToItselfKeepsItsDevice()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    DeviceDescription record{};
    record.device = libusb_ref_device(device);
    const DeviceDescription &same = record;
    record = same;
    QVERIFY(record.device == device);
    QCOMPARE(device->references, 1);
    record = DeviceDescription{};
}

void TestDeviceDescription::aRecordWithoutDeviceNeverCallsLibusb()
{
    ScriptedUsb bus;
    {
        const DeviceDescription record = filledRecord();
        DeviceDescription copy(record);
        copy = record;
    }
    QVERIFY(bus.calls().isEmpty());
}

void TestDeviceDescription::aQueuedCopyKeepsTheDeviceAlive()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    QObject receiver;
    libusb_device *received = nullptr;
    int referencesThen = 0;
    connect(
        this, &TestDeviceDescription::sent, &receiver,
        [&](const DeviceDescription &record) {
            received = record.device;
            referencesThen = device->references;
        },
        Qt::QueuedConnection);
    {
        DeviceDescription record{};
        record.device = libusb_ref_device(device);
        emit sent(record);
    }
    // The sender's record is gone; what waits in the queue holds the device.
    QVERIFY(received == nullptr);
    QVERIFY(device->references > 0);
    QTRY_VERIFY(received != nullptr);
    QVERIFY(received == device);
    QVERIFY(referencesThen > 0);
    QTRY_COMPARE(device->references, 0);
}

void TestDeviceDescription::theMetaTypeIsKnownByName()
{
    const int type = QMetaType::type("DeviceDescription");
    QVERIFY(type != QMetaType::UnknownType);
    QCOMPARE(type, qMetaTypeId<DeviceDescription>());
    void *record = QMetaType::create(type);
    QVERIFY(record != nullptr);
    QMetaType::destroy(type, record);
}

void TestDeviceDescription::fieldsHaveTheirWidths()
{
    const DeviceDescription record;
    QCOMPARE(sizeof record.vendorId, std::size_t(2));
    QCOMPARE(sizeof record.productId, std::size_t(2));
    QCOMPARE(sizeof record.interfaceNumber, std::size_t(2));
    QCOMPARE(sizeof record.busNumber, std::size_t(1));
    QCOMPARE(sizeof record.deviceAddress, std::size_t(2));
    QCOMPARE(sizeof record.portNumber, std::size_t(1));
    QCOMPARE(sizeof record.mode, std::size_t(4));
    QCOMPARE(sizeof record.secondPass, std::size_t(1));
}

void TestDeviceDescription::modesHaveTheirNumbers()
{
    QCOMPARE(static_cast<quint32>(DeviceMode::Normal), 0U);
    QCOMPARE(static_cast<quint32>(DeviceMode::SoftRepair), 1U);
    QCOMPARE(static_cast<quint32>(DeviceMode::HardRepair), 2U);
}

void TestDeviceDescription::productIdsAreOrderedByVendorThenProduct()
{
    const ProductId a{0x5555, 0x3601};
    const ProductId b{0xE5C1, 0x3600};
    const ProductId c{0xE5C1, 0x3601};
    QVERIFY(a < b && b < c && a < c);
    QVERIFY(!(b < a) && !(c < b) && !(a < a));
    const std::set<ProductId> ordered{c, a, b, a};
    QCOMPARE(ordered.size(), std::size_t(3));
    QVERIFY(!(*ordered.begin() < a) && !(a < *ordered.begin()));
    QCOMPARE(b.vendorId, quint16(0xE5C1));
    QCOMPARE(b.productId, quint16(0x3600));
}

QTEST_GUILESS_MAIN(TestDeviceDescription)
#include "tst_devicedescription.moc"
