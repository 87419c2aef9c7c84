#include "capturedoutput.h"
#include "recordof.h"
#include "scriptedlibusb.h"

#include "context.h"
#include "devicedescription.h"
#include "usbaccess.h"

#include <QThread>
#include <QtTest>

#include <iostream>

// Opening a described device and giving it back: the exact calls, and the lines on the standard
// streams.
class TestUsbAccess : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void fillTakesTheAddressFromTheDevice();
    void fillLeavesTheRecordWhenTheDescriptorFails();

    void compareLooksAtIdsBusPortAndAddress_data();
    void compareLooksAtIdsBusPortAndAddress();
    void compareRejectsADeviceWithoutDescriptor();

    void aListedDeviceIsOpenedAndClaimed();
    void anActiveKernelDriverIsDetachedFirst_data();
    void anActiveKernelDriverIsDetachedFirst();
    void aRecordWithItsDeviceIsOpenedWithoutSearching();
    void aRecordWithItsDeviceThatDoesNotOpenYieldsNull();

    void anEmptyBusYieldsNoDevice();
    void aListErrorYieldsNull_data();
    void aListErrorYieldsNull();
    void aDeviceOnAnotherPortOrBusIsNotFound_data();
    void aDeviceOnAnotherPortOrBusIsNotFound();
    void aWildcardAddressFindsTheDeviceAnywhere_data();
    void aWildcardAddressFindsTheDeviceAnywhere();
    void aSecondMatchIsOpenedWhenTheFirstCannotBe();
    void theWalkStopsAtTheFirstDeviceThatOpens();
    void theLastMatchGetsOneMoreAttempt();
    void theLastMatchIsGivenUpAfterTheSecondAttempt();
    void everyOpenErrorIsNamedInTheLog_data();
    void everyOpenErrorIsNamedInTheLog();

    void aFailedClaimLeavesTheHandleOpen_data();
    void aFailedClaimLeavesTheHandleOpen();
    void theNextOpeningClosesItFirst();
    void whatAFailedClaimLeftIsClosedOnce();
    void aFailedClaimIsTheBusinessOfItsThread();
    void failingDetachIsNotLookedAt();

    void givingBackAttachesThenReleasesThenCloses_data();
    void givingBackAttachesThenReleasesThenCloses();
    void givingBackNothingCallsNothing();

    void aHeldDeviceIsUnreferencedOnceForEachCopy();
    void assigningADeviceMovesTheReference();

    void withoutAContextLibusbIsNotReached();
    void errorsWithoutANameDoNotSilenceTheLog();
    void libusbsMessagesGoToWhoWantsThem();

private:
    QString clogText() const { return QString::fromStdString(standardLog->text()); }
    QString cerrText() const { return QString::fromStdString(standardError->text()); }

    std::unique_ptr<CapturedStream> standardLog;
    std::unique_ptr<CapturedStream> standardError;
};

namespace {

// What the log says of a search among so many devices, up to its end.
QString searchAmong(int devices, const char *end)
{
    return QStringLiteral("Open device by adressing info\n"
                          "Found %1 devices. Search needed...\n")
               .arg(devices) +
           end;
}

} // namespace

void TestUsbAccess::init()
{
    standardLog = std::make_unique<CapturedStream>(std::clog);
    standardError = std::make_unique<CapturedStream>(std::cerr);
}

void TestUsbAccess::cleanup()
{
    const bool flushed = standardLog->text() == standardLog->flushedText() &&
                         standardError->text() == standardError->flushedText();
    standardLog.reset();
    standardError.reset();
    QVERIFY2(flushed, "a line was not flushed");
}

void TestUsbAccess::fillTakesTheAddressFromTheDevice()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3621);
    device->bus = 3;
    device->address = 0xFE;
    device->port = 7;
    libusb_ref_device(device);

    DeviceDescription record{};
    record.interfaceNumber = 5;
    record.mode = 2;
    record.productName = QStringLiteral("name");
    record.secondPass = true;
    QCOMPARE(usb::device_adressing_fill(usb::Device(device), record), 0);
    QCOMPARE(record.vendorId, quint16(0xE5C1));
    QCOMPARE(record.productId, quint16(0x3621));
    QCOMPARE(record.busNumber, quint8(3));
    QCOMPARE(record.deviceAddress, quint16(0xFE));
    QCOMPARE(record.portNumber, quint8(7));
    QCOMPARE(record.interfaceNumber, quint16(5));
    QCOMPARE(record.mode, quint32(2));
    QCOMPARE(record.productName, QStringLiteral("name"));
    QVERIFY(record.secondPass);
    QVERIFY(record.device == nullptr);
    libusb_unref_device(device);
}

void TestUsbAccess::fillLeavesTheRecordWhenTheDescriptorFails()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3621);
    device->descriptorResults = {LIBUSB_ERROR_IO};
    libusb_ref_device(device);

    DeviceDescription record{};
    record.vendorId = 0x1111;
    record.productId = 0x2222;
    record.busNumber = 33;
    record.deviceAddress = 44;
    record.portNumber = 55;
    QCOMPARE(usb::device_adressing_fill(usb::Device(device), record), int(LIBUSB_ERROR_IO));
    QCOMPARE(record.vendorId, quint16(0x1111));
    QCOMPARE(record.productId, quint16(0x2222));
    QCOMPARE(record.busNumber, quint8(33));
    QCOMPARE(record.deviceAddress, quint16(44));
    QCOMPARE(record.portNumber, quint8(55));
    libusb_unref_device(device);
}

void TestUsbAccess::compareLooksAtIdsBusPortAndAddress_data()
{
    QTest::addColumn<int>("vendorId");
    QTest::addColumn<int>("productId");
    QTest::addColumn<int>("busNumber");
    QTest::addColumn<int>("portNumber");
    QTest::addColumn<int>("address");
    QTest::addColumn<bool>("expected");
    // The device: e5c1:3601 at bus 2, port 3, address 4.
    QTest::newRow("same") << 0xE5C1 << 0x3601 << 2 << 3 << 4 << true;
    QTest::newRow("other vendor") << 0x5555 << 0x3601 << 2 << 3 << 4 << false;
    QTest::newRow("other product") << 0xE5C1 << 0x3600 << 2 << 3 << 4 << false;
    QTest::newRow("other bus") << 0xE5C1 << 0x3601 << 1 << 3 << 4 << false;
    QTest::newRow("other port") << 0xE5C1 << 0x3601 << 2 << 4 << 4 << false;
    QTest::newRow("other address") << 0xE5C1 << 0x3601 << 2 << 3 << 5 << false;
    QTest::newRow("any address, ffff") << 0xE5C1 << 0x3601 << 2 << 3 << 0xFFFF << true;
    QTest::newRow("any address, 8000") << 0xE5C1 << 0x3601 << 2 << 3 << 0x8000 << true;
    QTest::newRow("7fff is no wildcard") << 0xE5C1 << 0x3601 << 2 << 3 << 0x7FFF << false;
    QTest::newRow("0104 is not 04") << 0xE5C1 << 0x3601 << 2 << 3 << 0x0104 << false;
    QTest::newRow("any address, other port") << 0xE5C1 << 0x3601 << 2 << 4 << 0xFFFF << false;
    QTest::newRow("any address, other bus") << 0xE5C1 << 0x3601 << 3 << 3 << 0xFFFF << false;
    QTest::newRow("any address, other product") << 0xE5C1 << 0x360F << 2 << 3 << 0xFFFF << false;
}

void TestUsbAccess::compareLooksAtIdsBusPortAndAddress()
{
    QFETCH(int, vendorId);
    QFETCH(int, productId);
    QFETCH(int, busNumber);
    QFETCH(int, portNumber);
    QFETCH(int, address);
    QFETCH(bool, expected);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->bus = 2;
    device->port = 3;
    device->address = 4;
    libusb_ref_device(device);

    DeviceDescription record{};
    record.vendorId = static_cast<quint16>(vendorId);
    record.productId = static_cast<quint16>(productId);
    record.busNumber = static_cast<quint8>(busNumber);
    record.portNumber = static_cast<quint8>(portNumber);
    record.deviceAddress = static_cast<quint16>(address);
    record.interfaceNumber = 9; // neither of these counts
    record.mode = 2;
    record.serialNumber = QStringLiteral("other");
    QCOMPARE(usb::device_addressing_compare(usb::Device(device), record), expected);
    libusb_unref_device(device);
}

void TestUsbAccess::compareRejectsADeviceWithoutDescriptor()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    libusb_ref_device(device);
    const DeviceDescription record = recordOf(device);
    device->descriptorResults = {LIBUSB_ERROR_IO};
    QVERIFY(!usb::device_addressing_compare(usb::Device(device), record));
    QVERIFY(usb::device_addressing_compare(usb::Device(device), record));
    libusb_unref_device(device);
}

void TestUsbAccess::aListedDeviceIsOpenedAndClaimed()
{
    ScriptedUsb bus;
    bus.plug("hub", 0x1D6B, 0x0003);
    DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));

    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.handleCalls(),
             (QStringList{"open a", "kernel_driver_active a 0", "claim_interface a 0"}));
    QCOMPARE(bus.callsOf("free_device_list"), QStringList{"free_device_list 1"});
    QCOMPARE(clogText(), QStringLiteral("Open device by adressing info\n"
                                        "Found 2 devices. Search needed...\n"
                                        "Device found: id=1\n"
                                        "Device found. Opening...\n"
                                        "Device opened.\n"));
    QCOMPARE(cerrText(), QString());
    usb::deinit_device(handle, record);
}

void TestUsbAccess::anActiveKernelDriverIsDetachedFirst_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("interface");
    QTest::newRow("bound") << 1 << 0;
    QTest::newRow("bound to another interface") << 1 << 3;
    QTest::newRow("not to be found out") << int(LIBUSB_ERROR_NOT_SUPPORTED) << 0;
    QTest::newRow("no device") << int(LIBUSB_ERROR_NO_DEVICE) << 0;
}

void TestUsbAccess::anActiveKernelDriverIsDetachedFirst()
{
    QFETCH(int, active);
    QFETCH(int, interface);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->kernelDriver = active;
    DeviceDescription record = recordOf(device);
    record.interfaceNumber = static_cast<quint16>(interface);

    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QStringList calls{"open a", "kernel_driver_active a %1", "detach_kernel_driver a %1",
                      "claim_interface a %1"};
    QCOMPARE(bus.handleCalls(), calls.replaceInStrings("%1", QString::number(interface)));
    usb::deinit_device(handle, record);
}

void TestUsbAccess::aRecordWithItsDeviceIsOpenedWithoutSearching()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    bus.unplug(device);
    libusb_ref_device(device);
    {
        DeviceDescription record{}; // the addressing fields would find nothing
        record.device = libusb_ref_device(device);
        libusb_device_handle *handle = usb::init_device(record);
        QVERIFY(handle != nullptr);
        QVERIFY(bus.callsOf("get_device_list").isEmpty());
        QCOMPARE(bus.handleCalls(),
                 (QStringList{"open a", "kernel_driver_active a 0", "claim_interface a 0"}));
        // The line carries a line end of its own; it still ends in one.
        QCOMPARE(clogText(), QStringLiteral("Open device by reference\n"
                                            "Device found. Opening...\n"
                                            "Device opened.\n"));
        QCOMPARE(cerrText(), QString());
        usb::deinit_device(handle, record);
    }
    libusb_unref_device(device);
}

void TestUsbAccess::aRecordWithItsDeviceThatDoesNotOpenYieldsNull()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->openResult = LIBUSB_ERROR_ACCESS;
    libusb_ref_device(device);
    {
        DeviceDescription record{};
        record.device = libusb_ref_device(device);
        QVERIFY(usb::init_device(record) == nullptr);
        QCOMPARE(bus.handleCalls(), QStringList{"open a"});
        QCOMPARE(clogText(), QStringLiteral("Open device by reference\n"
                                            "Device found. Opening...\n"));
        QCOMPARE(cerrText(), QStringLiteral("Can't open device\n"));
    }
    libusb_unref_device(device);
}

void TestUsbAccess::anEmptyBusYieldsNoDevice()
{
    ScriptedUsb bus;
    DeviceDescription record{};
    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(bus.calls(), (QStringList{"get_device_list", "free_device_list 1"}));
    QCOMPARE(clogText(), searchAmong(0, ""));
    QCOMPARE(cerrText(), QStringLiteral("No device\n"));
}

void TestUsbAccess::aListErrorYieldsNull_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("no memory") << int(LIBUSB_ERROR_NO_MEM) << "LIBUSB_ERROR_NO_MEM";
    QTest::newRow("other") << int(LIBUSB_ERROR_OTHER) << "LIBUSB_ERROR_OTHER";
    QTest::newRow("unheard of") << -77 << "**UNKNOWN**";
}

void TestUsbAccess::aListErrorYieldsNull()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    ScriptedUsb bus;
    DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    bus.answerDeviceList({code});
    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(bus.calls(), QStringList{"get_device_list"}); // there is no list to free
    QCOMPARE(clogText(), QStringLiteral("Open device by adressing info\n"));
    QCOMPARE(cerrText(), QStringLiteral("Can't get UBS device list: %1\n").arg(name));
}

void TestUsbAccess::aDeviceOnAnotherPortOrBusIsNotFound_data()
{
    QTest::addColumn<int>("busNumber");
    QTest::addColumn<int>("portNumber");
    QTest::newRow("other port") << 1 << 2;
    QTest::newRow("other bus") << 2 << 1;
}

void TestUsbAccess::aDeviceOnAnotherPortOrBusIsNotFound()
{
    QFETCH(int, busNumber);
    QFETCH(int, portNumber);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    DeviceDescription record = recordOf(device);
    record.deviceAddress = 0xFFFF;
    device->bus = static_cast<quint8>(busNumber);
    device->port = static_cast<quint8>(portNumber);

    QVERIFY(usb::init_device(record) == nullptr);
    QVERIFY(bus.handleCalls().isEmpty());
    QCOMPARE(bus.callsOf("free_device_list"), QStringList{"free_device_list 1"});
    QCOMPARE(clogText(), searchAmong(1, ""));
    QCOMPARE(cerrText(), QStringLiteral("No device\n"));
}

void TestUsbAccess::aWildcardAddressFindsTheDeviceAnywhere_data()
{
    QTest::addColumn<int>("wildcard");
    QTest::addColumn<int>("address");
    for (const int wildcard : {0x8000, 0xFFFF}) {
        for (const int address : {1, 99, 255}) {
            QTest::addRow("%x finds %d", wildcard, address) << wildcard << address;
        }
    }
}

void TestUsbAccess::aWildcardAddressFindsTheDeviceAnywhere()
{
    QFETCH(int, wildcard);
    QFETCH(int, address);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x360F);
    DeviceDescription record = recordOf(device);
    device->address = static_cast<quint8>(address);
    record.deviceAddress = static_cast<quint16>(wildcard);
    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(record.deviceAddress, quint16(wildcard));
    QVERIFY(record.device == nullptr);
    usb::deinit_device(handle, record);
}

void TestUsbAccess::aSecondMatchIsOpenedWhenTheFirstCannotBe()
{
    ScriptedUsb bus;
    libusb_device *first = bus.plug("a", 0xE5C1, 0x3601);
    bus.plug("mouse", 0x1234, 0x0001);
    bus.plug("b", 0xE5C1, 0x3601);
    first->openResult = LIBUSB_ERROR_ACCESS;
    DeviceDescription record = recordOf(first);

    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.handleCalls(),
             (QStringList{"open a", "open b", "kernel_driver_active b 0", "claim_interface b 0"}));
    QCOMPARE(clogText(), QStringLiteral("Open device by adressing info\n"
                                        "Found 3 devices. Search needed...\n"
                                        "Device found: id=2\n"
                                        "Device found. Opening...\n"
                                        "Device opened.\n"));
    QCOMPARE(cerrText(), QStringLiteral("Can't open device: id=0, code=-3, LIBUSB_ERROR_ACCESS. "
                                        "Continue search...\n"));
    usb::deinit_device(handle, record);
}

void TestUsbAccess::theWalkStopsAtTheFirstDeviceThatOpens()
{
    ScriptedUsb bus;
    DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    bus.plug("b", 0xE5C1, 0x3601);
    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.callsOf("open"), QStringList{"open a"});
    QVERIFY(bus.callsOf("get_device_descriptor").filter(" b").isEmpty());
    usb::deinit_device(handle, record);
}

void TestUsbAccess::theLastMatchGetsOneMoreAttempt()
{
    ScriptedUsb bus;
    libusb_device *first = bus.plug("a", 0xE5C1, 0x3601);
    libusb_device *second = bus.plug("b", 0xE5C1, 0x3601);
    bus.plug("mouse", 0x1234, 0x0001);
    first->openResult = LIBUSB_ERROR_ACCESS;
    second->openResults = {LIBUSB_ERROR_BUSY}; // and then it opens
    DeviceDescription record = recordOf(first);

    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.handleCalls(), (QStringList{"open a", "open b", "open b",
                                             "kernel_driver_active b 0", "claim_interface b 0"}));
    QCOMPARE(clogText(), searchAmong(3, "Device found. Opening...\n"
                                        "Device opened.\n"));
    QCOMPARE(cerrText(),
             QStringLiteral(
                 "Can't open device: id=0, code=-3, LIBUSB_ERROR_ACCESS. Continue search...\n"
                 "Can't open device: id=1, code=-6, LIBUSB_ERROR_BUSY. Continue search...\n"));
    usb::deinit_device(handle, record);
}

void TestUsbAccess::theLastMatchIsGivenUpAfterTheSecondAttempt()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->openResult = LIBUSB_ERROR_ACCESS;
    DeviceDescription record = recordOf(device);

    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(bus.handleCalls(), (QStringList{"open a", "open a"}));
    QCOMPARE(clogText(), searchAmong(1, "Device found. Opening...\n"));
    QCOMPARE(cerrText(), QStringLiteral("Can't open device: id=0, code=-3, LIBUSB_ERROR_ACCESS. "
                                        "Continue search...\n"
                                        "Can't open device\n"));
}

void TestUsbAccess::everyOpenErrorIsNamedInTheLog_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("io") << -1 << "LIBUSB_ERROR_IO";
    QTest::newRow("invalid") << -2 << "LIBUSB_ERROR_INVALID_PARAM";
    QTest::newRow("access") << -3 << "LIBUSB_ERROR_ACCESS";
    QTest::newRow("no device") << -4 << "LIBUSB_ERROR_NO_DEVICE";
    QTest::newRow("not found") << -5 << "LIBUSB_ERROR_NOT_FOUND";
    QTest::newRow("busy") << -6 << "LIBUSB_ERROR_BUSY";
    QTest::newRow("timeout") << -7 << "LIBUSB_ERROR_TIMEOUT";
    QTest::newRow("overflow") << -8 << "LIBUSB_ERROR_OVERFLOW";
    QTest::newRow("pipe") << -9 << "LIBUSB_ERROR_PIPE";
    QTest::newRow("interrupted") << -10 << "LIBUSB_ERROR_INTERRUPTED";
    QTest::newRow("no memory") << -11 << "LIBUSB_ERROR_NO_MEM";
    QTest::newRow("not supported") << -12 << "LIBUSB_ERROR_NOT_SUPPORTED";
    QTest::newRow("other") << -99 << "LIBUSB_ERROR_OTHER";
    QTest::newRow("unheard of") << -77 << "**UNKNOWN**";
}

void TestUsbAccess::everyOpenErrorIsNamedInTheLog()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->openResult = code;
    DeviceDescription record = recordOf(device);
    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(cerrText(), QStringLiteral("Can't open device: id=0, code=%1, %2. Continue search...\n"
                                        "Can't open device\n")
                             .arg(code)
                             .arg(name));
}

void TestUsbAccess::aFailedClaimLeavesTheHandleOpen_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("busy") << int(LIBUSB_ERROR_BUSY);
    QTest::newRow("not found") << int(LIBUSB_ERROR_NOT_FOUND);
    QTest::newRow("no device") << int(LIBUSB_ERROR_NO_DEVICE);
    QTest::newRow("positive") << 1;
}

void TestUsbAccess::aFailedClaimLeavesTheHandleOpen()
{
    QFETCH(int, code);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->kernelDriver = 1;
    device->claimResult = code;
    DeviceDescription record = recordOf(device);

    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(bus.handleCalls(), (QStringList{"open a", "kernel_driver_active a 0",
                                             "detach_kernel_driver a 0", "claim_interface a 0"}));
    QCOMPARE(clogText(), searchAmong(1, "Device found: id=0\n"
                                        "Device found. Opening...\n"
                                        "Device opened.\n"));
    QCOMPARE(cerrText(), QStringLiteral("Error claim usb interface: %1\n").arg(code));
    QCOMPARE(bus.opens(), 1);
    QCOMPARE(bus.closes(), 0);
    usb::close_unclaimed_device();
}

void TestUsbAccess::theNextOpeningClosesItFirst()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->claimResult = LIBUSB_ERROR_BUSY;
    DeviceDescription record = recordOf(device);
    QVERIFY(usb::init_device(record) == nullptr);
    for (int attempt = 0; attempt < 10; ++attempt) {
        bus.clearLog();
        QVERIFY(usb::init_device(record) == nullptr);
        QCOMPARE(bus.calls().first(), QStringLiteral("close a"));
        QCOMPARE(bus.openHandles(), 1);
    }

    // A record that still holds its device needs no list: the claim comes soon.
    device->claimResult = 0;
    record.device = libusb_ref_device(device);
    bus.clearLog();
    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.handleCalls().mid(0, 2), (QStringList{"close a", "open a"}));
    // What was claimed is its owner's.
    usb::close_unclaimed_device();
    QCOMPARE(bus.openHandles(), 1);
    usb::deinit_device(handle, record);
}

void TestUsbAccess::whatAFailedClaimLeftIsClosedOnce()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->claimResult = LIBUSB_ERROR_BUSY;
    DeviceDescription record = recordOf(device);
    QVERIFY(usb::init_device(record) == nullptr);
    usb::close_unclaimed_device();
    usb::close_unclaimed_device();
    QCOMPARE(bus.callsOf("close"), QStringList{"close a"});
}

void TestUsbAccess::aFailedClaimIsTheBusinessOfItsThread()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->claimResult = LIBUSB_ERROR_BUSY;
    DeviceDescription record = recordOf(device);
    QVERIFY(usb::init_device(record) == nullptr);
    const std::unique_ptr<QThread> other(QThread::create([] { usb::close_unclaimed_device(); }));
    other->start();
    QVERIFY(other->wait(60000));
    QCOMPARE(bus.closes(), 0);
    usb::close_unclaimed_device();
    QCOMPARE(bus.closes(), 1);
}

void TestUsbAccess::failingDetachIsNotLookedAt()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->kernelDriver = 1;
    device->detachResult = LIBUSB_ERROR_NOT_FOUND;
    DeviceDescription record = recordOf(device);
    libusb_device_handle *handle = usb::init_device(record);
    QVERIFY(handle != nullptr);
    QCOMPARE(bus.handleCalls().last(), QStringLiteral("claim_interface a 0"));
    usb::deinit_device(handle, record);
}

void TestUsbAccess::givingBackAttachesThenReleasesThenCloses_data()
{
    QTest::addColumn<int>("interface");
    QTest::addColumn<int>("attached");
    QTest::addColumn<int>("released");
    QTest::newRow("all goes well") << 0 << 0 << 0;
    QTest::newRow("another interface") << 2 << 0 << 0;
    QTest::newRow("both are refused") << 0 << int(LIBUSB_ERROR_BUSY) << int(LIBUSB_ERROR_NO_DEVICE);
}

void TestUsbAccess::givingBackAttachesThenReleasesThenCloses()
{
    QFETCH(int, interface);
    QFETCH(int, attached);
    QFETCH(int, released);
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->attachResult = attached;
    device->releaseResult = released;
    DeviceDescription record = recordOf(device);
    record.interfaceNumber = static_cast<quint16>(interface);
    libusb_device_handle *handle = usb::init_device(record);
    bus.clearLog();
    usb::deinit_device(handle, record);
    QStringList calls{"attach_kernel_driver a %1", "release_interface a %1", "close a"};
    QCOMPARE(bus.calls(), calls.replaceInStrings("%1", QString::number(interface)));
    QCOMPARE(bus.opens(), bus.closes());
}

void TestUsbAccess::givingBackNothingCallsNothing()
{
    ScriptedUsb bus;
    usb::deinit_device(nullptr, DeviceDescription{});
    QVERIFY(bus.calls().isEmpty());
}

void TestUsbAccess::aHeldDeviceIsUnreferencedOnceForEachCopy()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    libusb_ref_device(device);
    {
        const usb::Device first(device);
        QCOMPARE(device->references, 2);
        const usb::Device second(first); // NOLINT(performance-unnecessary-copy-initialization)
        QCOMPARE(device->references, 3);
    }
    QCOMPARE(device->references, 1);
    libusb_unref_device(device);
}

void TestUsbAccess::assigningADeviceMovesTheReference()
{
    ScriptedUsb bus;
    libusb_device *first = bus.plug("a", 0xE5C1, 0x3601);
    libusb_device *second = bus.plug("b", 0xE5C1, 0x3601);
    {
        usb::Device device(first);
        device = usb::Device(second);
        QVERIFY(device.get() == second);
        QCOMPARE(first->references, 0);
        QCOMPARE(second->references, 1);
    }
    QCOMPARE(second->references, 0);
}

void TestUsbAccess::withoutAContextLibusbIsNotReached()
{
    ScriptedUsb bus;
    DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    usb::set_context_ready(false);
    libusb_device_handle *handle = usb::init_device(record);
    usb::set_context_ready(true);
    QVERIFY(handle == nullptr);
    QCOMPARE(bus.calls(), QStringList());
    QCOMPARE(cerrText(), QStringLiteral("Can't get UBS device list: LIBUSB_ERROR_OTHER\n"));
}

void TestUsbAccess::errorsWithoutANameDoNotSilenceTheLog()
{
    ScriptedUsb bus;
    bus.giveNullTexts();
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->openResult = -77;
    DeviceDescription record = recordOf(device);
    bus.answerDeviceList({-77});
    QVERIFY(usb::init_device(record) == nullptr);
    QVERIFY(usb::init_device(record) == nullptr);
    QCOMPARE(cerrText(), QStringLiteral("Can't get UBS device list: \n"
                                        "Can't open device: id=0, code=-77, . Continue search...\n"
                                        "Can't open device\n"));
    QCOMPARE(usb::error_name(-77), QString());
    QCOMPARE(usb::error_sentence(-77), QString());
}

// They are wanted before the context is made, which may have something to say itself. The scripted
// libusb has a message as soon as somebody listens.
void TestUsbAccess::libusbsMessagesGoToWhoWantsThem()
{
    static QStringList s_heard;
    ScriptedUsb bus;
    {
        const usb::Context context(usb::Context::Messages::Warnings,
                                   [](const char *text) { s_heard += QString::fromUtf8(text); });
    }
    QCOMPARE(s_heard, QStringList{QStringLiteral("libusb: a warning\n")});
    QCOMPARE(bus.calls(), (QStringList{QStringLiteral("set_log_cb"), QStringLiteral("init"),
                                       QStringLiteral("set_debug 2"), QStringLiteral("exit")}));
}

QTEST_GUILESS_MAIN(TestUsbAccess)
#include "tst_usbaccess.moc"
