#include "capturedoutput.h"
#include "everyfailure.h"
#include "installerdouble.h"
#include "scriptedlibusb.h"

#include "devicedescription.h"
#include "probes.h"

#include <QtTest>

using Probe = ProbeResult (*)(libusb_device *, DeviceDescription &);
Q_DECLARE_METATYPE(Probe)

// What each probe asks of a device, and what it makes of the answers.
class TestProbes : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void aRunningDeviceIsPingedAndDescribed();
    void theClaimIsLoggedWithItsResult();
    void sorn3IsProbedLikeVelk3();
    void aRepairDeviceIsDescribedWithoutARequest_data();
    void aRepairDeviceIsDescribedWithoutARequest();
    void aKernelDriverIsDetachedForThePing_data();
    void aKernelDriverIsDetachedForThePing();

    void aMissingSerialStringReadsFFFFFFFF_data();
    void aMissingSerialStringReadsFFFFFFFF();
    void anUnreadableSerialStringReadsFFFFFFFF_data();
    void anUnreadableSerialStringReadsFFFFFFFF();
    void aMissingVersionStringReadsZeros();
    void anUnreadableProductStringIsEmpty();
    void textsWithoutTerminatorAreCutAt127Bytes_data();
    void textsWithoutTerminatorAreCutAt127Bytes();
    void aShortTextWithoutTerminatorEndsWhereItEnds();
    void anEmptySerialTextIsEmpty();

    void aFailingDescriptorFailsTheProbe_data();
    void aFailingDescriptorFailsTheProbe();
    void everyOpenErrorGoesToTheDriverInstallation_data();
    void everyOpenErrorGoesToTheDriverInstallation();
    void theInstallationsOutcomeIsTheProbesResult_data();
    void theInstallationsOutcomeIsTheProbesResult();
    void notSupportedFailsWithoutInstallation_data();
    void notSupportedFailsWithoutInstallation();
    void onTheSecondPassOnlyTheSoftProbeInstallsForNotSupported_data();
    void onTheSecondPassOnlyTheSoftProbeInstallsForNotSupported();

    void aFailedClaimReattachesClosesAndFails_data();
    void aFailedClaimReattachesClosesAndFails();
    void aFailedPingReattachesReleasesClosesAndFails_data();
    void aFailedPingReattachesReleasesClosesAndFails();
    void aPingWithoutBytesIsAnAnswer();
    void anyFailingCallClosesWhatWasOpened_data();
    void anyFailingCallClosesWhatWasOpened();

private:
    std::unique_ptr<CapturedDebug> debug;
};

namespace {

libusb_device *grabber(ScriptedUsb &bus, quint16 productId)
{
    libusb_device *device = bus.plug("a", 0xE5C1, productId);
    device->bus = 2;
    device->address = 17;
    device->port = 5;
    device->productString = 2;
    device->serialString = 4;
    device->strings = {{2, "Grabber"}, {3, "1.2.3"}, {4, "A1B2C3D4"}};
    return device;
}

// Runs a probe as the scanner does: while the device is referenced.
ProbeResult run(Probe probe, libusb_device *device, DeviceDescription &record)
{
    libusb_ref_device(device);
    const ProbeResult result = probe(device, record);
    libusb_unref_device(device);
    return result;
}

void addProbes()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<bool>("composite");
    QTest::newRow("soft") << Probe(probeSoft) << false;
    QTest::newRow("velk3") << Probe(probeVelk3) << true;
    QTest::newRow("sorn3") << Probe(probeSorn3) << true;
    QTest::newRow("hard") << Probe(probeHard) << false;
}

} // namespace

void TestProbes::init()
{
    installer::reset();
    debug = std::make_unique<CapturedDebug>();
}

void TestProbes::cleanup()
{
    debug.reset();
}

void TestProbes::aRunningDeviceIsPingedAndDescribed()
{
    ScriptedUsb bus;
    DeviceDescription record{};
    record.secondPass = true;
    QCOMPARE(run(probeVelk3, grabber(bus, 0x3601), record), ProbeResult::Found);

    QCOMPARE(record.vendorId, quint16(0xE5C1));
    QCOMPARE(record.productId, quint16(0x3601));
    QCOMPARE(record.interfaceNumber, quint16(0));
    QCOMPARE(record.busNumber, quint8(2));
    QCOMPARE(record.deviceAddress, quint16(17));
    QCOMPARE(record.portNumber, quint8(5));
    QCOMPARE(record.mode, 0U);
    QCOMPARE(record.productName, QStringLiteral("Grabber"));
    QCOMPARE(record.serialNumber, QStringLiteral("A1B2C3D4"));
    QCOMPARE(record.versionString, QStringLiteral("1.2.3"));
    QCOMPARE(record.modeText, QString());
    QVERIFY(record.device == nullptr);

    QCOMPARE(bus.handleCalls(),
             (QStringList{"open a", "get_string_descriptor_ascii a 2 127",
                          "get_string_descriptor_ascii a 4 127",
                          "get_string_descriptor_ascii a 3 127", "kernel_driver_active a 0",
                          "claim_interface a 0", "control_transfer a < c8 v0 i0 1 t1000",
                          "attach_kernel_driver a 0", "release_interface a 0", "close a"}));
    const QStringList lines = debug->lines();
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.mid(0, 3), (QStringList{"Probe VELK3/SORN3", "Product string id: 2",
                                           "Serial number string id: 4"}));
    QCOMPARE(lines[3], QStringLiteral("Claim interface: 0 0"));
    QCOMPARE(lines[4], QStringLiteral("Ping device: 1"));
    QVERIFY(installer::calls().isEmpty());
}

void TestProbes::theClaimIsLoggedWithItsResult()
{
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    QStringList before{"never claimed"};
    bus.onCall([&](const QString &call) {
        if (call.startsWith("claim_interface")) {
            before = debug->lines().filter("Claim interface");
        }
    });
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(before, QStringList());
    QCOMPARE(debug->lines().filter("Claim interface"), QStringList{"Claim interface: 0 0"});
}

void TestProbes::sorn3IsProbedLikeVelk3()
{
    ScriptedUsb bus;
    DeviceDescription record{};
    QCOMPARE(run(probeSorn3, grabber(bus, 0x3621), record), ProbeResult::Found);
    QCOMPARE(record.productId, quint16(0x3621));
    QCOMPARE(record.mode, 0U);
    QCOMPARE(record.versionString, QStringLiteral("1.2.3"));
    QCOMPARE(bus.callsOf("control_transfer"), QStringList{"control_transfer a < c8 v0 i0 1 t1000"});
    QCOMPARE(debug->lines().first(), QStringLiteral("Probe VELK3/SORN3"));
}

void TestProbes::aRepairDeviceIsDescribedWithoutARequest_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<quint32>("mode");
    QTest::addColumn<QString>("modeText");
    QTest::addColumn<QString>("banner");
    QTest::newRow("soft") << Probe(probeSoft) << 1U << "Soft Repair Mode"
                          << "Probe Soft";
    QTest::newRow("hard") << Probe(probeHard) << 2U << "Hard Repair Mode"
                          << "Probe Hard";
}

void TestProbes::aRepairDeviceIsDescribedWithoutARequest()
{
    QFETCH(Probe, probe);
    QFETCH(quint32, mode);
    QFETCH(QString, modeText);
    QFETCH(QString, banner);
    ScriptedUsb bus;
    DeviceDescription record{};
    QCOMPARE(run(probe, grabber(bus, 0x3600), record), ProbeResult::Found);

    QCOMPARE(record.vendorId, quint16(0xE5C1));
    QCOMPARE(record.productId, quint16(0x3600));
    QCOMPARE(record.interfaceNumber, quint16(0));
    QCOMPARE(record.busNumber, quint8(2));
    QCOMPARE(record.deviceAddress, quint16(17));
    QCOMPARE(record.portNumber, quint8(5));
    QCOMPARE(record.mode, mode);
    QCOMPARE(record.productName, QStringLiteral("Grabber"));
    QCOMPARE(record.serialNumber, QStringLiteral("A1B2C3D4"));
    QCOMPARE(record.versionString, QString());
    QCOMPARE(record.modeText, modeText);
    QVERIFY(record.device == nullptr);
    QCOMPARE(bus.handleCalls(), (QStringList{"open a", "get_string_descriptor_ascii a 2 127",
                                             "get_string_descriptor_ascii a 4 127", "close a"}));
    QCOMPARE(debug->lines(),
             (QStringList{banner, "Product string id: 2", "Serial number string id: 4"}));
}

void TestProbes::aKernelDriverIsDetachedForThePing_data()
{
    QTest::addColumn<int>("active");
    QTest::newRow("bound") << 1;
    QTest::newRow("not to be found out") << int(LIBUSB_ERROR_NOT_SUPPORTED);
}

void TestProbes::aKernelDriverIsDetachedForThePing()
{
    QFETCH(int, active);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->kernelDriver = active;
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(bus.handleCalls().mid(4, 3),
             (QStringList{"kernel_driver_active a 0", "detach_kernel_driver a 0",
                          "claim_interface a 0"}));
}

void TestProbes::aMissingSerialStringReadsFFFFFFFF_data()
{
    addProbes();
}

void TestProbes::aMissingSerialStringReadsFFFFFFFF()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->serialString = 0;
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::Found);
    QCOMPARE(record.serialNumber, QStringLiteral("FFFFFFFF"));
    QVERIFY(!bus.calls().contains("get_string_descriptor_ascii a 0 127"));
}

void TestProbes::anUnreadableSerialStringReadsFFFFFFFF_data()
{
    addProbes();
}

void TestProbes::anUnreadableSerialStringReadsFFFFFFFF()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->strings.erase(4);
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::Found);
    QCOMPARE(record.serialNumber, QStringLiteral("FFFFFFFF"));
    QCOMPARE(record.productName, QStringLiteral("Grabber"));
}

void TestProbes::aMissingVersionStringReadsZeros()
{
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->strings.erase(3);
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(record.versionString, QStringLiteral("0.0.0"));
}

void TestProbes::anUnreadableProductStringIsEmpty()
{
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->strings.erase(2);
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(record.productName, QString());
    QCOMPARE(record.serialNumber, QStringLiteral("A1B2C3D4"));
    QCOMPARE(record.versionString, QStringLiteral("1.2.3"));
}

void TestProbes::textsWithoutTerminatorAreCutAt127Bytes_data()
{
    addProbes();
}

void TestProbes::textsWithoutTerminatorAreCutAt127Bytes()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->terminatesStrings = false;
    device->strings = {
        {2, QByteArray(200, 'p')}, {3, QByteArray(200, 'v')}, {4, QByteArray(200, 's')}};
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::Found);
    QCOMPARE(record.productName, QString(127, 'p'));
    QCOMPARE(record.serialNumber, QString(127, 's'));
    if (record.mode == 0) {
        QCOMPARE(record.versionString, QString(127, 'v'));
    }
}

void TestProbes::aShortTextWithoutTerminatorEndsWhereItEnds()
{
    // Shorter than the preset, which must not show through behind it.
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->terminatesStrings = false;
    device->strings[4] = "A1";
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(record.serialNumber, QStringLiteral("A1"));
}

void TestProbes::anEmptySerialTextIsEmpty()
{
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->strings[4] = "";
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Found);
    QCOMPARE(record.serialNumber, QString());
}

void TestProbes::aFailingDescriptorFailsTheProbe_data()
{
    addProbes();
}

void TestProbes::aFailingDescriptorFailsTheProbe()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->descriptorResults = {LIBUSB_ERROR_IO};
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::Failed);
    QVERIFY(bus.handleCalls().isEmpty());
    QVERIFY(installer::calls().isEmpty());
}

void TestProbes::everyOpenErrorGoesToTheDriverInstallation_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<bool>("composite");
    QTest::addColumn<int>("code");
    const std::pair<const char *, Probe> probes[] = {
        {"soft", probeSoft}, {"velk3", probeVelk3}, {"sorn3", probeSorn3}, {"hard", probeHard}};
    for (const auto &[name, probe] : probes) {
        for (const int code : {-1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -99}) {
            QTest::addRow("%s, %d", name, code)
                << probe << (probe == probeVelk3 || probe == probeSorn3) << code;
        }
    }
}

void TestProbes::everyOpenErrorGoesToTheDriverInstallation()
{
    QFETCH(Probe, probe);
    QFETCH(bool, composite);
    QFETCH(int, code);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->openResult = code;
    installer::answer({0});
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::DriverInstalled);
    QCOMPARE(installer::calls(),
             QStringList{composite ? "e5c1 3601 0 composite null" : "e5c1 3601 0 single null"});
    QCOMPARE(debug->lines().last(),
             QStringLiteral("Can't open device, try to install WinUSB driver"));
    QCOMPARE(bus.handleCalls(), QStringList{"open a"});
}

void TestProbes::theInstallationsOutcomeIsTheProbesResult_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("logged");
    const std::pair<const char *, Probe> probes[] = {
        {"soft", probeSoft}, {"velk3", probeVelk3}, {"sorn3", probeSorn3}, {"hard", probeHard}};
    const QString starting = "Can't open device, try to install WinUSB driver";
    const QString failing = "Error during driver installation";
    for (const auto &[name, probe] : probes) {
        QTest::addRow("%s, installed", name) << probe << 0 << 1 << starting;
        QTest::addRow("%s, needs rights", name) << probe << -2 << 3 << "access";
        QTest::addRow("%s, failed", name) << probe << -1 << 2 << failing;
        QTest::addRow("%s, failed otherwise", name) << probe << -15 << 2 << failing;
        QTest::addRow("%s, positive", name) << probe << 1 << 2 << failing;
    }
}

void TestProbes::theInstallationsOutcomeIsTheProbesResult()
{
    QFETCH(Probe, probe);
    QFETCH(int, outcome);
    QFETCH(int, result);
    QFETCH(QString, logged);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->openResult = LIBUSB_ERROR_ACCESS;
    installer::answer({outcome});
    DeviceDescription record{};
    QCOMPARE(static_cast<int>(run(probe, device, record)), result);
    QCOMPARE(debug->lines().last(), logged);
}

void TestProbes::notSupportedFailsWithoutInstallation_data()
{
    addProbes();
}

void TestProbes::notSupportedFailsWithoutInstallation()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    DeviceDescription record{};
    QCOMPARE(run(probe, device, record), ProbeResult::Failed);
    QVERIFY(installer::calls().isEmpty());
    QCOMPARE(bus.handleCalls(), QStringList{"open a"});
    const QString sentence = "Operation not supported or unimplemented on this platform";
    QCOMPARE(debug->lines().last(), probe == probeHard
                                        ? QStringLiteral("Can't open device: (%1)").arg(sentence)
                                        : QStringLiteral("Can't open device: %1").arg(sentence));
}

void TestProbes::onTheSecondPassOnlyTheSoftProbeInstallsForNotSupported_data()
{
    addProbes();
}

void TestProbes::onTheSecondPassOnlyTheSoftProbeInstallsForNotSupported()
{
    QFETCH(Probe, probe);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3600);
    device->openResult = LIBUSB_ERROR_NOT_SUPPORTED;
    installer::answer({0});
    DeviceDescription record{};
    record.secondPass = true;
    if (probe == probeSoft) {
        QCOMPARE(run(probe, device, record), ProbeResult::DriverInstalled);
        QCOMPARE(installer::calls(), QStringList{"e5c1 3600 0 single null"});
    } else {
        QCOMPARE(run(probe, device, record), ProbeResult::Failed);
        QVERIFY(installer::calls().isEmpty());
    }
}

void TestProbes::aFailedClaimReattachesClosesAndFails_data()
{
    QTest::addColumn<int>("code");
    QTest::newRow("busy") << int(LIBUSB_ERROR_BUSY);
    QTest::newRow("not found") << int(LIBUSB_ERROR_NOT_FOUND);
    QTest::newRow("positive") << 1;
}

void TestProbes::aFailedClaimReattachesClosesAndFails()
{
    QFETCH(int, code);
    ScriptedUsb bus;
    libusb_device *device = grabber(bus, 0x3601);
    device->kernelDriver = 1;
    device->claimResult = code;
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, device, record), ProbeResult::Failed);
    QCOMPARE(bus.handleCalls().mid(4),
             (QStringList{"kernel_driver_active a 0", "detach_kernel_driver a 0",
                          "claim_interface a 0", "attach_kernel_driver a 0", "close a"}));
    QCOMPARE(debug->lines().at(3), QStringLiteral("Claim interface: 0 %1").arg(code));
    QCOMPARE(debug->lines().mid(4),
             QStringList{QStringLiteral("Error claim usb interface:  %1").arg(code)});
}

void TestProbes::aFailedPingReattachesReleasesClosesAndFails_data()
{
    QTest::addColumn<int>("code");
    for (const int code : {-1, -4, -7, -8, -9, -99}) {
        QTest::addRow("%d", code) << code;
    }
}

void TestProbes::aFailedPingReattachesReleasesClosesAndFails()
{
    QFETCH(int, code);
    ScriptedUsb bus;
    bus.answer(0xC8, {code});
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, grabber(bus, 0x3601), record), ProbeResult::Failed);
    QCOMPARE(bus.handleCalls().mid(6),
             (QStringList{"control_transfer a < c8 v0 i0 1 t1000", "attach_kernel_driver a 0",
                          "release_interface a 0", "close a"}));
    QCOMPARE(debug->lines().last(), QStringLiteral("Ping device: %1").arg(code));
}

void TestProbes::aPingWithoutBytesIsAnAnswer()
{
    ScriptedUsb bus;
    bus.answer(0xC8, {0});
    DeviceDescription record{};
    QCOMPARE(run(probeVelk3, grabber(bus, 0x3601), record), ProbeResult::Found);
}

void TestProbes::anyFailingCallClosesWhatWasOpened_data()
{
    addProbes();
}

void TestProbes::anyFailingCallClosesWhatWasOpened()
{
    // The bus itself fails the test when a handle stays open.
    QFETCH(Probe, probe);
    QFETCH(bool, composite);
    const auto attempt = [probe](int failing) {
        ScriptedUsb bus;
        bus.failCall(failing, LIBUSB_ERROR_NO_DEVICE);
        DeviceDescription record{};
        run(probe, grabber(bus, 0x3601), record);
        return bus.fallibleCalls();
    };
    failEachCallOnce(attempt, composite ? 10 : 4);
}

QTEST_GUILESS_MAIN(TestProbes)
#include "tst_probes.moc"
