#include "capturedoutput.h"
#include "everyfailure.h"
#include "heldtransfer.h"
#include "installerdouble.h"
#include "products.h"
#include "scriptedlibusb.h"

#include "devicescanner.h"
#include "filters.h"
#include "probes.h"
#include "usbaccess.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QtTest>

// A scan of the bus: which devices are probed, which are reported, and how many passes it takes.
class TestDeviceScanner : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void theTableIsAsPublished();

    void signalsStandInTheirOrder();

    void anEmptyBusCompletesAtOnce();
    void devicesThatAreNotRecognisedAreNotProbed_data();
    void devicesThatAreNotRecognisedAreNotProbed();
    void aFailedListingCompletesEmpty_data();
    void aFailedListingCompletesEmpty();
    void withoutAContextTheScanCompletesEmpty();
    void aFailedDescriptorEndsTheScan_data();
    void aFailedDescriptorEndsTheScan();

    void everyRecognisedIdIsReportedInItsMode_data();
    void everyRecognisedIdIsReportedInItsMode();
    void devicesAreReportedInTheOrderOfTheBus();
    void recordsHoldNoDevice();
    void aDeviceWithoutAProbeIsLeftAlone();

    void whenAllFailThereIsOneMorePass();
    void whenOneWorksThereIsNoMorePass();
    void theSecondPassForcesADriverOnSoftRepairOnly();
    void theSecondPassMayFindWhatTheFirstDidNot();

    void anInstalledDriverLeadsToAnotherPass();
    void aDeviceFoundBesideAnInstallationIsReportedAgain();
    void aPassAfterAnInstallationIsAFirstPassAgain();

    void aScanEndsAfterTenPasses_data();
    void aScanEndsAfterTenPasses();

    void aDenialOfTheLastDeviceEndsTheScan();
    void aDenialOfAnEarlierDeviceDoesNotEndTheScan();
    void aDenialFollowedByAStrangerIsNotTheLast();
    void aDenialIsReportedOnceInEachPass_data();
    void aDenialIsReportedOnceInEachPass();
    void deniedDevicesDoNotCountAsFailed();

    void scansRunOneAfterAnother();
    void theScanRunsOnAThreadOfItsOwn();
    void destroyingTheScannerWaitsForTheScan();
    void anyFailingCallStillCompletesOnce();

private:
    // Runs one scan; "device NAME MODE", "error TEXT", "complete" in order.
    QStringList scan(const Filters &filters = s_filters);

    std::unique_ptr<CapturedDebug> debug;
};

namespace {

const char *s_denied =
    "error Access Denied: Administrative privilegies are required to access the device";

libusb_device *named(ScriptedUsb &bus, const char *name, quint16 vendorId, quint16 productId)
{
    libusb_device *device = bus.plug(name, vendorId, productId);
    device->strings = {{2, name}, {3, "1.2.3"}};
    return device;
}

} // namespace

void TestDeviceScanner::initTestCase()
{
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
}

void TestDeviceScanner::init()
{
    installer::reset();
    debug = std::make_unique<CapturedDebug>();
}

void TestDeviceScanner::cleanup()
{
    debug.reset();
}

QStringList TestDeviceScanner::scan(const Filters &filters)
{
    DeviceScanner scanner(nullptr, filters);
    QStringList events;
    connect(&scanner, &DeviceScanner::newDevice, &scanner, [&](const DeviceDescription &record) {
        events.append(QStringLiteral("device %1 %2").arg(record.productName).arg(record.mode));
    });
    connect(&scanner, &DeviceScanner::error, &scanner,
            [&](const QString &text) { events.append("error " + text); });
    connect(&scanner, &DeviceScanner::complete, &scanner, [&] { events.append("complete"); });
    QSignalSpy completed(&scanner, &DeviceScanner::complete);
    emit scanner.scan();
    if (!completed.wait(100000)) {
        return {"the scan did not end"};
    }
    return events;
}

void TestDeviceScanner::theTableIsAsPublished()
{
    const std::vector<Identity> &identities = allIdentities();
    QCOMPARE(s_filters.size(), identities.size());
    for (std::size_t i = 0; i < identities.size(); ++i) {
        const Identity &identity = identities[i];
        QCOMPARE(int(s_filters[i].id.vendorId), int(identity.vendorId));
        QCOMPARE(int(s_filters[i].id.productId), int(identity.productId));
        const Probe probe = identity.mode == 2           ? probeHard
                            : identity.mode == 1         ? probeSoft
                            : identity.product == &sorn3 ? probeSorn3
                                                         : probeVelk3;
        QVERIFY(s_filters[i].probe == probe);
        QVERIFY(!s_filters[i].reserved);
    }
}

void TestDeviceScanner::signalsStandInTheirOrder()
{
    const QMetaObject &scanner = DeviceScanner::staticMetaObject;
    QList<QByteArray> found;
    for (int i = scanner.methodOffset(); i < scanner.methodCount(); ++i) {
        found.append(scanner.method(i).methodSignature());
    }
    QCOMPARE(found, (QList<QByteArray>{"newDevice(DeviceDescription)", "error(QString)",
                                       "complete()", "scan()"}));
}

void TestDeviceScanner::anEmptyBusCompletesAtOnce()
{
    ScriptedUsb bus;
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(bus.calls(), (QStringList{"get_device_list", "free_device_list 1"}));
    QCOMPARE(debug->lines(), QStringList{"Scan devices"});
}

void TestDeviceScanner::devicesThatAreNotRecognisedAreNotProbed_data()
{
    QTest::addColumn<int>("vendorId");
    QTest::addColumn<int>("productId");
    QTest::newRow("a hub") << 0x1D6B << 0x0002;
    QTest::newRow("the maker's, but unknown") << 0xE5C1 << 0x3602;
    QTest::newRow("other vendor, known product") << 0x1234 << 0x3601;
    QTest::newRow("second vendor, repair product") << 0x5555 << 0x3600;
    QTest::newRow("controller's vendor, other product") << 0x04B4 << 0x00F0;
}

void TestDeviceScanner::devicesThatAreNotRecognisedAreNotProbed()
{
    QFETCH(int, vendorId);
    QFETCH(int, productId);
    ScriptedUsb bus;
    bus.plug("a", static_cast<quint16>(vendorId), static_cast<quint16>(productId));
    QCOMPARE(scan(), QStringList{"complete"});
    QVERIFY(bus.handleCalls().isEmpty());
    QCOMPARE(
        debug->lines(),
        (QStringList{
            "Scan devices",
            QStringLiteral("check device %1 / %2").arg(vendorId, 0, 16).arg(productId, 0, 16)}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

void TestDeviceScanner::aFailedListingCompletesEmpty_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("no memory") << int(LIBUSB_ERROR_NO_MEM) << "LIBUSB_ERROR_NO_MEM";
    QTest::newRow("other") << int(LIBUSB_ERROR_OTHER) << "LIBUSB_ERROR_OTHER";
}

void TestDeviceScanner::aFailedListingCompletesEmpty()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    bus.answerDeviceList({code});
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(bus.calls(), QStringList{"get_device_list"});
    QCOMPARE(debug->lines(), (QStringList{"Scan devices", "Can't get UBS device list " + name}));
}

void TestDeviceScanner::withoutAContextTheScanCompletesEmpty()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    usb::set_context_ready(false);
    const QStringList events = scan();
    usb::set_context_ready(true);
    QCOMPARE(events, QStringList{"complete"});
    QCOMPARE(bus.calls(), QStringList());
}

void TestDeviceScanner::aFailedDescriptorEndsTheScan_data()
{
    QTest::addColumn<int>("failing");
    QTest::newRow("first device") << 0;
    QTest::newRow("second device") << 1;
    QTest::newRow("last device") << 2;
}

void TestDeviceScanner::aFailedDescriptorEndsTheScan()
{
    QFETCH(int, failing);
    ScriptedUsb bus;
    const std::vector<libusb_device *> devices{named(bus, "a", 0xE5C1, 0x3600),
                                               named(bus, "b", 0xE5C1, 0x3620),
                                               named(bus, "c", 0xE5C1, 0x3630)};
    devices[static_cast<std::size_t>(failing)]->descriptorResults = {LIBUSB_ERROR_IO};
    const QStringList all{"device a 1", "device b 1", "device c 1"};
    QCOMPARE(scan(), all.mid(0, failing) + QStringList("complete"));
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
    QCOMPARE(bus.callsOf("free_device_list"), QStringList{"free_device_list 1"});
}

void TestDeviceScanner::everyRecognisedIdIsReportedInItsMode_data()
{
    QTest::addColumn<int>("vendorId");
    QTest::addColumn<int>("productId");
    QTest::addColumn<int>("mode");
    for (const Identity &one : allIdentities()) {
        QTest::addRow("%04x:%04x", one.vendorId, one.productId)
            << int(one.vendorId) << int(one.productId) << one.mode;
    }
}

void TestDeviceScanner::everyRecognisedIdIsReportedInItsMode()
{
    QFETCH(int, vendorId);
    QFETCH(int, productId);
    QFETCH(int, mode);
    ScriptedUsb bus;
    named(bus, "a", static_cast<quint16>(vendorId), static_cast<quint16>(productId));
    QCOMPARE(scan(), (QStringList{QStringLiteral("device a %1").arg(mode), "complete"}));
    // Only a running device is asked anything.
    QCOMPARE(int(bus.transfers().size()), mode == 0 ? 1 : 0);
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

void TestDeviceScanner::devicesAreReportedInTheOrderOfTheBus()
{
    ScriptedUsb bus;
    named(bus, "first", 0x04B4, 0x00F3);
    bus.plug("hub", 0x1D6B, 0x0002);
    named(bus, "second", 0xE5C1, 0x3621);
    named(bus, "third", 0xE5C1, 0x3600);
    named(bus, "fourth", 0xE5C1, 0x3621);
    QCOMPARE(scan(), (QStringList{"device first 2", "device second 0", "device third 1",
                                  "device fourth 0", "complete"}));
}

void TestDeviceScanner::recordsHoldNoDevice()
{
    ScriptedUsb bus;
    libusb_device *device = named(bus, "a", 0xE5C1, 0x3601);
    device->bus = 3;
    device->address = 44;
    device->port = 5;
    DeviceScanner scanner;
    QSignalSpy found(&scanner, &DeviceScanner::newDevice);
    QSignalSpy completed(&scanner, &DeviceScanner::complete);
    emit scanner.scan();
    QVERIFY(completed.wait(100000));
    QCOMPARE(found.count(), 1);
    const auto record = found.at(0).at(0).value<DeviceDescription>();
    QVERIFY(record.device == nullptr);
    QCOMPARE(record.vendorId, quint16(0xE5C1));
    QCOMPARE(record.productId, quint16(0x3601));
    QCOMPARE(record.busNumber, quint8(3));
    QCOMPARE(record.deviceAddress, quint16(44));
    QCOMPARE(record.portNumber, quint8(5));
    QCOMPARE(record.interfaceNumber, quint16(0));
    QCOMPARE(record.versionString, QStringLiteral("1.2.3"));
    QCOMPARE(record.serialNumber, QStringLiteral("FFFFFFFF"));
    QVERIFY(!record.secondPass);
    QCOMPARE(device->references, 0);
}

void TestDeviceScanner::aDeviceWithoutAProbeIsLeftAlone()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    QCOMPARE(scan(Filters{{{{0xE5C1, 0x3601}, false, nullptr}}}), QStringList{"complete"});
    QCOMPARE(bus.callsOf("open"), QStringList());
    // It does not count as failed either: then there would be a second pass.
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

void TestDeviceScanner::whenAllFailThereIsOneMorePass()
{
    ScriptedUsb bus;
    bus.plug("hub", 0x1D6B, 0x0002);
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    named(bus, "b", 0xE5C1, 0x3621)->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
    QCOMPARE(bus.callsOf("free_device_list").size(), 2);
    QCOMPARE(bus.callsOf("open"), (QStringList{"open a", "open b", "open a", "open b"}));
    QCOMPARE(debug->lines().filter("Scan devices").size(), 1);
}

void TestDeviceScanner::whenOneWorksThereIsNoMorePass()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    named(bus, "b", 0xE5C1, 0x3621);
    QCOMPARE(scan(), (QStringList{"device b 0", "complete"}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

void TestDeviceScanner::theSecondPassForcesADriverOnSoftRepairOnly()
{
    ScriptedUsb bus;
    for (const auto &[name, vendor, product] :
         {std::tuple{"a", 0xE5C1, 0x3601}, {"b", 0xE5C1, 0x360F}, {"c", 0x04B4, 0x00F3}}) {
        named(bus, name, static_cast<quint16>(vendor), static_cast<quint16>(product))->openResult =
            LIBUSB_ERROR_NOT_SUPPORTED;
    }
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(installer::calls(), QStringList{"e5c1 360f 0 single null"});
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
}

void TestDeviceScanner::theSecondPassMayFindWhatTheFirstDidNot()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    bus.answer(0xC8, {LIBUSB_ERROR_TIMEOUT});
    DeviceScanner scanner;
    QSignalSpy found(&scanner, &DeviceScanner::newDevice);
    QSignalSpy completed(&scanner, &DeviceScanner::complete);
    emit scanner.scan();
    QVERIFY(completed.wait(100000));
    QCOMPARE(found.count(), 1);
    QVERIFY(found.at(0).at(0).value<DeviceDescription>().secondPass);
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
}

void TestDeviceScanner::anInstalledDriverLeadsToAnotherPass()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResults = {LIBUSB_ERROR_ACCESS};
    installer::answer({0});
    QCOMPARE(scan(), (QStringList{"device a 0", "complete"}));
    QCOMPARE(installer::calls(), QStringList{"e5c1 3601 0 composite null"});
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
    QCOMPARE(bus.callsOf("free_device_list").size(), 2);
}

void TestDeviceScanner::aDeviceFoundBesideAnInstallationIsReportedAgain()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    named(bus, "b", 0xE5C1, 0x3621)->openResults = {LIBUSB_ERROR_ACCESS};
    installer::answer({0});
    QCOMPARE(scan(), (QStringList{"device a 0", "device a 0", "device b 0", "complete"}));
}

void TestDeviceScanner::aPassAfterAnInstallationIsAFirstPassAgain()
{
    // First pass: both fail. Second pass: a driver is forced on the soft-repair device. Third pass,
    // a first one again: both fail once more. Fourth pass: the driver is forced again, in vain.
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3600)->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    installer::answer({0, -1});
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(bus.callsOf("get_device_list").size(), 4);
    QCOMPARE(installer::calls().size(), 2);
}

void TestDeviceScanner::aScanEndsAfterTenPasses_data()
{
    QTest::addColumn<int>("productId");
    QTest::addColumn<int>("openResult");
    QTest::addColumn<int>("installations");
    QTest::newRow("installed in each pass") << 0x3601 << int(LIBUSB_ERROR_ACCESS) << 10;
    // Every other pass is a second one, in which the driver is forced.
    QTest::newRow("installed in second passes") << 0x3600 << int(LIBUSB_ERROR_NOT_SUPPORTED) << 5;
}

// The installation always succeeds, and the device never opens.
void TestDeviceScanner::aScanEndsAfterTenPasses()
{
    QFETCH(int, productId);
    QFETCH(int, openResult);
    QFETCH(int, installations);
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, static_cast<quint16>(productId))->openResult = openResult;
    installer::answer(std::deque<int>(40, 0));
    QCOMPARE(scan(), QStringList{"complete"});
    QCOMPARE(bus.callsOf("get_device_list").size(), 10);
    QCOMPARE(bus.callsOf("free_device_list").size(), 10);
    QCOMPARE(installer::calls().size(), installations);
}

void TestDeviceScanner::aDenialOfTheLastDeviceEndsTheScan()
{
    // The first device would have led to another pass.
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_ACCESS;
    named(bus, "b", 0xE5C1, 0x3621)->openResult = LIBUSB_ERROR_ACCESS;
    installer::answer({0, -2});
    QCOMPARE(scan(), (QStringList{s_denied, "complete"}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
    QCOMPARE(bus.callsOf("free_device_list"), QStringList{"free_device_list 1"});
}

void TestDeviceScanner::aDenialOfAnEarlierDeviceDoesNotEndTheScan()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_ACCESS;
    named(bus, "b", 0xE5C1, 0x3621)->openResults = {LIBUSB_ERROR_ACCESS};
    installer::answer({-2, 0, -2});
    QCOMPARE(scan(), (QStringList{s_denied, s_denied, "device b 0", "complete"}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
}

void TestDeviceScanner::aDenialFollowedByAStrangerIsNotTheLast()
{
    // Only the last device of the list counts, recognised or not.
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResults = {LIBUSB_ERROR_ACCESS};
    named(bus, "b", 0xE5C1, 0x3621)->openResult = LIBUSB_ERROR_ACCESS;
    bus.plug("hub", 0x1D6B, 0x0002);
    installer::answer({0, -2, -2});
    QCOMPARE(scan(), (QStringList{s_denied, "device a 0", s_denied, "complete"}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 2);
}

void TestDeviceScanner::aDenialIsReportedOnceInEachPass_data()
{
    QTest::addColumn<int>("passes");
    QTest::newRow("one pass") << 1;
    QTest::newRow("two passes") << 2;
    QTest::newRow("three passes") << 3;
}

void TestDeviceScanner::aDenialIsReportedOnceInEachPass()
{
    QFETCH(int, passes);
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_ACCESS;
    libusb_device *other = named(bus, "b", 0xE5C1, 0x3621);
    QStringList expected{s_denied, "device b 0", "complete"};
    std::deque<int> installations{-2};
    for (int pass = 1; pass < passes; ++pass) {
        other->openResults.push_back(LIBUSB_ERROR_ACCESS); // and a driver is installed for it
        expected.prepend(s_denied);
        installations.insert(installations.end(), {0, -2});
    }
    installer::answer(installations);
    QCOMPARE(scan(), expected);
    QCOMPARE(bus.callsOf("get_device_list").size(), passes);
}

void TestDeviceScanner::deniedDevicesDoNotCountAsFailed()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601)->openResult = LIBUSB_ERROR_ACCESS;
    named(bus, "b", 0xE5C1, 0x3621)->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    installer::answer({-2, -2});
    QCOMPARE(scan(), (QStringList{s_denied, "complete"}));
    QCOMPARE(bus.callsOf("get_device_list").size(), 1);
}

void TestDeviceScanner::scansRunOneAfterAnother()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    DeviceScanner scanner;
    QStringList events;
    connect(&scanner, &DeviceScanner::newDevice, &scanner, [&] { events.append("device"); });
    connect(&scanner, &DeviceScanner::complete, &scanner, [&] { events.append("complete"); });
    emit scanner.scan();
    emit scanner.scan();
    emit scanner.scan();
    QTRY_COMPARE_WITH_TIMEOUT(events.count("complete"), 3, 60000);
    QCOMPARE(events,
             (QStringList{"device", "complete", "device", "complete", "device", "complete"}));
}

void TestDeviceScanner::theScanRunsOnAThreadOfItsOwn()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    std::atomic<bool> elsewhere{true};
    const QThread *here = QThread::currentThread();
    bus.onCall([&](const QString &) {
        if (QThread::currentThread() == here) {
            elsewhere = false;
        }
    });
    QCOMPARE(scan(), (QStringList{"device a 0", "complete"}));
    QVERIFY(elsewhere);
}

void TestDeviceScanner::destroyingTheScannerWaitsForTheScan()
{
    ScriptedUsb bus;
    named(bus, "a", 0xE5C1, 0x3601);
    HeldTransfer ping(bus);
    auto scanner = std::make_unique<DeviceScanner>();
    emit scanner->scan();
    QVERIFY(ping.waitUntilReached());
    ping.endDuring([&] { scanner.reset(); });
    QCOMPARE(bus.handleCalls().last(), QStringLiteral("close a"));
}

void TestDeviceScanner::anyFailingCallStillCompletesOnce()
{
    const auto attempt = [this](int failing) {
        ScriptedUsb bus;
        named(bus, "a", 0xE5C1, 0x3601);
        named(bus, "b", 0xE5C1, 0x3600);
        bus.failCall(failing, LIBUSB_ERROR_NO_DEVICE);
        const QStringList events = scan();
        [&] { QCOMPARE(events.count("complete"), 1); }();
        [&] { QCOMPARE(events.last(), QStringLiteral("complete")); }();
        return bus.fallibleCalls();
    };
    failEachCallOnce(attempt, 16);
}

QTEST_GUILESS_MAIN(TestDeviceScanner)
#include "tst_devicescanner.moc"
