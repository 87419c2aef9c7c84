#include "capturedoutput.h"
#include "scriptedwdi.h"
#include "winusbinstall.h"

#include <QtTest>

using scriptedwdi::Device;
using scriptedwdi::Script;

namespace {

const QByteArray s_list = "create_list all=1 hubs=0 trim=1";
const QByteArray s_destroy = "destroy_list";
const QByteArray s_package = " path=null inf='quorlin_capso_hdmi_configuration.inf' options=zero";

const Device s_bootLoader = {0x04b4, 0x00f3, 0, "WestBridge", "USB\\1", "USB\\VID_04B4&PID_00F3"};
const Device s_bootLoaderToo = {0x04b4, 0x00f3, 0, "FX3", "USB\\2", "USB\\VID_04B4&PID_00F3&REV_1"};
const Device s_otherProduct = {0x04b4, 0x00f4, 0, "Other product", "USB\\3", "HW3"};
const Device s_otherVendor = {0x04b5, 0x00f3, 0, "Other vendor", "USB\\4", "HW4"};

struct Outcome
{
    int result;
    QByteArray printed;
    QList<QByteArray> calls;
};

Outcome install(const Script &script, unsigned char interfaceNumber = 0, bool composite = false,
                char *description = nullptr)
{
    scriptedwdi::begin(script);
    CapturedStdout capture;
    const int result = usb::wdi::install(scriptedwdi::functions(), 0x04b4, 0x00f3, interfaceNumber,
                                         composite, description);
    return {result, QByteArray::fromStdString(capture.finish()), scriptedwdi::calls()};
}

// The first and the second list of devices, and what the installations give in turn.
Script listing(const QList<Device> &first, const QList<Device> &second,
               const QList<int> &installResults = {0})
{
    Script script;
    script.listings = {{0, first}, {0, second}};
    script.installResults = installResults;
    return script;
}

QByteArray bootLoaderRecord(const QByteArray &desc, const QByteArray &id = "null",
                            const QByteArray &hardware = "null")
{
    return "4b4:f3 composite=0 mi=0 desc=" + desc + " id=" + id + " hw=" + hardware + " rest=zero";
}

// The calls up to the preparation, of a device that is listed first under this name.
QList<QByteArray> preparation(const QByteArray &desc)
{
    return {"set_log_level 0", s_list, s_destroy,
            "prepare_driver " + bootLoaderRecord(desc) + s_package};
}

// The same where there is no list.
const QList<QByteArray> s_preparationUnlisted = {
    "set_log_level 0", s_list, "prepare_driver " + bootLoaderRecord("null") + s_package};

// The calls after it: an installation for each record.
QList<QByteArray> installations(const QList<QByteArray> &records)
{
    QList<QByteArray> calls{s_list};
    for (const QByteArray &record : records) {
        calls += "install_driver " + record + s_package;
    }
    return calls + QList<QByteArray>{s_destroy};
}

// s_bootLoader under the name that it was prepared with.
QByteArray connectedRecord(const QByteArray &desc)
{
    return bootLoaderRecord(desc, "'USB\\1'", "'USB\\VID_04B4&PID_00F3'");
}

const QByteArray s_named = "Set device desc: WestBridge\n";
const QByteArray s_prepared = "WDI driver prepare: Success\n"
                              "Installing driver(s)...\n";
const QByteArray s_foundAndInstalled =
    "Found device: USB\\VID_04B4&PID_00F3: Install status: Success (0)\n";
const QByteArray s_installed = "Install status: Success (0)\n";

} // namespace

// Compares a whole run: every call with its arguments, the printed lines, the result.
#define COMPARE_OUTCOME(outcome, expectedResult, expectedCalls, expectedText)                      \
    do {                                                                                           \
        const Outcome run = (outcome);                                                             \
        QCOMPARE(run.calls, expectedCalls);                                                        \
        QCOMPARE(run.printed, QByteArray(expectedText));                                           \
        QCOMPARE(run.result, expectedResult);                                                      \
        QCOMPARE(scriptedwdi::liveLists(), 0);                                                     \
    } while (false)

class TestWdiInstall : public QObject
{
    Q_OBJECT

private slots:
    void connectedDeviceGetsTheDriverUnderItsListedName();
    void everyConnectedDeviceGetsTheDriver();
    void firstFailedInstallationIsTheLast();
    void secondInstallationDecidesTheResult();
    void lastMatchNamesTheDevice();
    void otherDevicesAreLeftAlone();
    void deviceThatIsNotConnectedIsInstalledOnce();
    void emptyListIsInstalledOnce();
    void deviceThatComesDuringPreparationIsFound();
    void deviceThatGoesDuringPreparationIsInstalledOnce();
    void failedFirstListingLeavesTheDeviceUnnamed();
    void failedSecondListingInstallsOnce();
    void failedListingsStillInstall();
    void failedPreparationEndsIt_data();
    void failedPreparationEndsIt();
    void failedPreparationOfAnUnlistedDeviceEndsIt();
    void resultOfTheInstallationIsMapped_data();
    void resultOfTheInstallationIsMapped();
    void resultOfTheInstallationWithoutAListIsMapped_data();
    void resultOfTheInstallationWithoutAListIsMapped();
    void compositeDeviceIsMatchedByItsInterface();
    void interfaceIsIgnoredUnlessComposite();
    void givenDescriptionSparesTheFirstListing();
    void givenDescriptionMayBeLong();
    void longDescriptionIsCutAt127_data();
    void longDescriptionIsCutAt127();
    void shorterNameLeavesNothingOfALongerOne();
    void percentSignsAreText();
    void missingTextsAreHarmless();
    void deviceWithoutANameKeepsTheEarlierName();
    void hardwareIdIsOnTheScreenDuringInstallation();
};

void TestWdiInstall::connectedDeviceGetsTheDriverUnderItsListedName()
{
    const QList<QByteArray> calls = {
        "set_log_level 0",
        s_list,
        s_destroy,
        "prepare_driver " + bootLoaderRecord("'WestBridge'") + s_package,
        s_list,
        "install_driver " +
            bootLoaderRecord("'WestBridge'", "'USB\\1'", "'USB\\VID_04B4&PID_00F3'") + s_package,
        s_destroy,
    };
    COMPARE_OUTCOME(install(listing({s_bootLoader}, {s_bootLoader})), 0, calls,
                    "Set device desc: WestBridge\n"
                    "WDI driver prepare: Success\n"
                    "Installing driver(s)...\n"
                    "Found device: USB\\VID_04B4&PID_00F3: Install status: Success (0)\n");
}

void TestWdiInstall::everyConnectedDeviceGetsTheDriver()
{
    const QByteArray second =
        bootLoaderRecord("'WestBridge'", "'USB\\2'", "'USB\\VID_04B4&PID_00F3&REV_1'");
    COMPARE_OUTCOME(
        install(listing({s_bootLoader}, {s_bootLoader, s_bootLoaderToo}, {0, 0})), 0,
        preparation("'WestBridge'") + installations({connectedRecord("'WestBridge'"), second}),
        s_named + s_prepared + s_foundAndInstalled +
            "Found device: USB\\VID_04B4&PID_00F3&REV_1: Install status: Success (0)\n");
}

void TestWdiInstall::firstFailedInstallationIsTheLast()
{
    COMPARE_OUTCOME(
        install(listing({s_bootLoader}, {s_bootLoader, s_bootLoaderToo}, {-1, 0})), -1,
        preparation("'WestBridge'") + installations({connectedRecord("'WestBridge'")}),
        s_named + s_prepared +
            "Found device: USB\\VID_04B4&PID_00F3: Install status: Input/output error (-1)\n");
}

void TestWdiInstall::secondInstallationDecidesTheResult()
{
    const Outcome outcome = install(
        listing({s_bootLoader}, {s_bootLoader, s_bootLoaderToo, s_bootLoader}, {0, -15, 0}));
    QCOMPARE(outcome.result, -2);
    QCOMPARE(outcome.printed, s_named + s_prepared + s_foundAndInstalled +
                                  "Found device: USB\\VID_04B4&PID_00F3&REV_1: Install status: "
                                  "Operation requires elevated privileges (-15)\n");
    QCOMPARE(outcome.calls.last(), s_destroy);
    QCOMPARE(scriptedwdi::liveLists(), 0);
}

void TestWdiInstall::lastMatchNamesTheDevice()
{
    const Outcome outcome = install(
        listing({s_bootLoader, s_otherProduct, s_bootLoaderToo, s_otherVendor}, {s_bootLoader}));
    QVERIFY2(outcome.calls.contains("prepare_driver " + bootLoaderRecord("'FX3'") + s_package),
             outcome.calls.value(3).constData());
    QVERIFY2(outcome.printed.startsWith(s_named + "Set device desc: FX3\n"
                                                  "WDI driver prepare: Success\n"),
             outcome.printed.constData());
}

void TestWdiInstall::otherDevicesAreLeftAlone()
{
    COMPARE_OUTCOME(install(listing({s_otherProduct, s_bootLoader, s_otherVendor},
                                    {s_otherVendor, s_bootLoader, s_otherProduct})),
                    0,
                    preparation("'WestBridge'") + installations({connectedRecord("'WestBridge'")}),
                    s_named + s_prepared + s_foundAndInstalled);
}

void TestWdiInstall::deviceThatIsNotConnectedIsInstalledOnce()
{
    COMPARE_OUTCOME(
        install(listing({s_otherProduct, s_otherVendor}, {s_otherVendor, s_otherProduct})), 0,
        preparation("''") + installations({bootLoaderRecord("''")}), s_prepared + s_installed);
}

void TestWdiInstall::emptyListIsInstalledOnce()
{
    COMPARE_OUTCOME(install(listing({}, {})), 0,
                    preparation("''") + installations({bootLoaderRecord("''")}),
                    s_prepared + s_installed);
}

void TestWdiInstall::deviceThatComesDuringPreparationIsFound()
{
    COMPARE_OUTCOME(install(listing({s_otherProduct}, {s_otherProduct, s_bootLoader})), 0,
                    preparation("''") + installations({connectedRecord("''")}),
                    s_prepared + s_foundAndInstalled);
}

void TestWdiInstall::deviceThatGoesDuringPreparationIsInstalledOnce()
{
    COMPARE_OUTCOME(install(listing({s_bootLoader}, {s_otherProduct})), 0,
                    preparation("'WestBridge'") + installations({bootLoaderRecord("'WestBridge'")}),
                    s_named + s_prepared + s_installed);
}

void TestWdiInstall::failedFirstListingLeavesTheDeviceUnnamed()
{
    Script script = listing({}, {s_bootLoader});
    script.listings[0].result = -2;
    COMPARE_OUTCOME(install(script), 0,
                    s_preparationUnlisted + installations({connectedRecord("null")}),
                    s_prepared + s_foundAndInstalled);
}

void TestWdiInstall::failedSecondListingInstallsOnce()
{
    Script script = listing({s_bootLoader, s_bootLoaderToo}, {});
    script.listings[1].result = -1;
    const QList<QByteArray> unlisted = {s_list,
                                        "install_driver " + bootLoaderRecord("'FX3'") + s_package};
    COMPARE_OUTCOME(install(script), 0, preparation("'FX3'") + unlisted,
                    s_named + "Set device desc: FX3\n" + s_prepared + s_installed);
}

void TestWdiInstall::failedListingsStillInstall()
{
    Script script = listing({}, {});
    script.listings[0].result = script.listings[1].result = -2;
    const QList<QByteArray> unlisted = {s_list,
                                        "install_driver " + bootLoaderRecord("null") + s_package};
    COMPARE_OUTCOME(install(script), 0, s_preparationUnlisted + unlisted, s_prepared + s_installed);
}

void TestWdiInstall::failedPreparationEndsIt_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("input/output") << -1 << -1 << QByteArray("Input/output error");
    QTest::newRow("no device") << -2 << -1 << QByteArray("Other error");
    QTest::newRow("other") << -99 << -1 << QByteArray("Other error");
    QTest::newRow("next to needs admin") << -14 << -1 << QByteArray("Other error");
    QTest::newRow("needs admin") << -15 << -2
                                 << QByteArray("Operation requires elevated privileges");
    QTest::newRow("beyond needs admin") << -16 << -1 << QByteArray("Other error");
    QTest::newRow("positive") << 1 << -1 << QByteArray("Other error");
}

void TestWdiInstall::failedPreparationEndsIt()
{
    QFETCH(int, code);
    QFETCH(int, result);
    QFETCH(QByteArray, text);
    Script script = listing({s_bootLoader}, {});
    script.prepareResult = code;
    COMPARE_OUTCOME(install(script), result, preparation("'WestBridge'"),
                    s_named + "WDI driver prepare: " + text + "\n");
}

void TestWdiInstall::failedPreparationOfAnUnlistedDeviceEndsIt()
{
    Script script;
    script.listings = {{-2, {}}};
    script.prepareResult = -15;
    COMPARE_OUTCOME(install(script), -2, s_preparationUnlisted,
                    "WDI driver prepare: Operation requires elevated privileges\n");
}

void TestWdiInstall::resultOfTheInstallationIsMapped_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("status");
    QTest::newRow("success") << 0 << 0 << QByteArray("Success (0)");
    QTest::newRow("input/output") << -1 << -1 << QByteArray("Input/output error (-1)");
    QTest::newRow("no device") << -2 << -1 << QByteArray("Other error (-2)");
    QTest::newRow("next to needs admin") << -14 << -1 << QByteArray("Other error (-14)");
    QTest::newRow("needs admin") << -15 << -2
                                 << QByteArray("Operation requires elevated privileges (-15)");
    QTest::newRow("beyond needs admin") << -16 << -1 << QByteArray("Other error (-16)");
    QTest::newRow("positive") << 5 << -1 << QByteArray("Other error (5)");
}

void TestWdiInstall::resultOfTheInstallationIsMapped()
{
    QFETCH(int, code);
    QFETCH(QByteArray, status);
    const Outcome outcome = install(listing({s_bootLoader}, {s_bootLoader}, {code}));
    QTEST(outcome.result, "result");
    QVERIFY2(outcome.printed.endsWith("PID_00F3: Install status: " + status + "\n"),
             outcome.printed.constData());
    QCOMPARE(outcome.calls.last(), s_destroy);
    QCOMPARE(scriptedwdi::liveLists(), 0);
}

void TestWdiInstall::resultOfTheInstallationWithoutAListIsMapped_data()
{
    resultOfTheInstallationIsMapped_data();
}

void TestWdiInstall::resultOfTheInstallationWithoutAListIsMapped()
{
    QFETCH(int, code);
    QFETCH(QByteArray, status);
    Script script;
    script.listings = {{0, {}}, {-1, {}}};
    script.installResults = {code};
    const Outcome outcome = install(script);
    QTEST(outcome.result, "result");
    QVERIFY2(outcome.printed.endsWith("...\nInstall status: " + status + "\n"),
             outcome.printed.constData());
    QCOMPARE(scriptedwdi::liveLists(), 0);
}

void TestWdiInstall::compositeDeviceIsMatchedByItsInterface()
{
    const Device first = {0x04b4, 0x00f3, 0, "Interface 0", "ID0", "HW&MI_00"};
    const Device second = {0x04b4, 0x00f3, 2, "Interface 2", "ID2", "HW&MI_02"};
    const Device third = {0x04b4, 0x00f3, 3, "Interface 3", "ID3", "HW&MI_03"};
    const QList<Device> devices{first, second, third};
    const QByteArray record = "4b4:f3 composite=1 mi=2 desc='Interface 2'";
    const QList<QByteArray> calls = {
        "set_log_level 0",
        s_list,
        s_destroy,
        "prepare_driver " + record + " id=null hw=null rest=zero" + s_package,
        s_list,
        "install_driver " + record + " id='ID2' hw='HW&MI_02' rest=zero" + s_package,
        s_destroy,
    };
    COMPARE_OUTCOME(install(listing(devices, devices), 2, true), 0, calls,
                    "Set device desc: Interface 2\n" + s_prepared +
                        "Found device: HW&MI_02: Install status: Success (0)\n");
}

void TestWdiInstall::interfaceIsIgnoredUnlessComposite()
{
    const Device second = {0x04b4, 0x00f3, 2, "Interface 2", "ID2", "HW&MI_02"};
    COMPARE_OUTCOME(install(listing({s_bootLoader, second}, {second, s_bootLoader}), 2, false), 0,
                    preparation("'WestBridge'") + installations({connectedRecord("'WestBridge'")}),
                    s_named + s_prepared + s_foundAndInstalled);
}

void TestWdiInstall::givenDescriptionSparesTheFirstListing()
{
    char given[] = "Capture device";
    Script script;
    script.listings = {{0, {s_bootLoader}}};
    script.installResults = {0};
    const QList<QByteArray> calls = {
        "set_log_level 0", "prepare_driver " + bootLoaderRecord("'Capture device'") + s_package};
    COMPARE_OUTCOME(install(script, 0, false, given), 0,
                    calls + installations({connectedRecord("'Capture device'")}),
                    s_prepared + s_foundAndInstalled);
}

void TestWdiInstall::givenDescriptionMayBeLong()
{
    QByteArray given(300, 'g');
    Script script;
    script.listings = {{-1, {}}};
    script.installResults = {0};
    const Outcome outcome = install(script, 0, false, given.data());
    QVERIFY(outcome.calls.contains("install_driver " + bootLoaderRecord("'" + given + "'") +
                                   s_package));
}

void TestWdiInstall::longDescriptionIsCutAt127_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("kept");
    QTest::newRow("126") << 126 << 126;
    QTest::newRow("127") << 127 << 127;
    QTest::newRow("128") << 128 << 127;
    QTest::newRow("129") << 129 << 127;
    QTest::newRow("1000") << 1000 << 127;
}

void TestWdiInstall::longDescriptionIsCutAt127()
{
    QFETCH(int, length);
    QFETCH(int, kept);
    const QByteArray name(length, 'n');
    Device device = s_bootLoader;
    device.desc = name.constData();
    Script script;
    script.listings = {{0, {device}}, {-1, {}}};
    script.installResults = {0};
    const Outcome outcome = install(script);
    const QByteArray record = bootLoaderRecord("'" + QByteArray(kept, 'n') + "'");
    QCOMPARE(outcome.calls.value(3), "prepare_driver " + record + s_package);
    QCOMPARE(outcome.calls.value(5), "install_driver " + record + s_package);
    // The log shows the device's whole name.
    QVERIFY2(outcome.printed.startsWith("Set device desc: " + name + "\nWDI"),
             outcome.printed.constData());
}

void TestWdiInstall::shorterNameLeavesNothingOfALongerOne()
{
    const QByteArray name(200, 'n');
    Device device = s_bootLoader;
    device.desc = name.constData();
    Script script;
    script.listings = {{0, {device, s_bootLoaderToo}}, {-1, {}}};
    script.installResults = {0};
    const Outcome outcome = install(script);
    QCOMPARE(outcome.calls.value(3), "prepare_driver " + bootLoaderRecord("'FX3'") + s_package);
}

void TestWdiInstall::percentSignsAreText()
{
    Device device = s_bootLoader;
    device.desc = "100%s %n";
    device.hardwareId = "HW%s%d";
    const Outcome outcome = install(listing({device}, {device}));
    QCOMPARE(outcome.calls.value(3),
             "prepare_driver " + bootLoaderRecord("'100%s %n'") + s_package);
    QCOMPARE(outcome.printed, QByteArray("Set device desc: 100%s %n\n"
                                         "WDI driver prepare: Success\n"
                                         "Installing driver(s)...\n"
                                         "Found device: HW%s%d: Install status: Success (0)\n"));
}

void TestWdiInstall::missingTextsAreHarmless()
{
    const Device device = {0x04b4, 0x00f3, 0, nullptr, nullptr, nullptr};
    Script script = listing({device}, {device});
    script.hasErrorTexts = false;
    COMPARE_OUTCOME(install(script), 0, preparation("''") + installations({bootLoaderRecord("''")}),
                    "Set device desc: (null)\n"
                    "WDI driver prepare: (null)\n"
                    "Installing driver(s)...\n"
                    "Found device: (null): Install status: (null) (0)\n");
}

void TestWdiInstall::deviceWithoutANameKeepsTheEarlierName()
{
    Device nameless = s_bootLoaderToo;
    nameless.desc = nullptr;
    Script script;
    script.listings = {{0, {s_bootLoader, nameless}}, {-1, {}}};
    script.installResults = {0};
    const Outcome outcome = install(script);
    QCOMPARE(outcome.calls.value(3),
             "prepare_driver " + bootLoaderRecord("'WestBridge'") + s_package);
}

void TestWdiInstall::hardwareIdIsOnTheScreenDuringInstallation()
{
    Script script;
    script.listings = {{0, {}}, {0, {s_bootLoader}}};
    script.installResults = {0};
    CapturedStdout capture;
    QByteArray seen;
    script.onInstall = [&] { seen = QByteArray::fromStdString(capture.flushedText()); };
    scriptedwdi::begin(script);
    usb::wdi::install(scriptedwdi::functions(), 0x04b4, 0x00f3, 0, false, nullptr);
    capture.finish();
    QCOMPARE(seen, QByteArray("WDI driver prepare: Success\n"
                              "Installing driver(s)...\n"
                              "Found device: USB\\VID_04B4&PID_00F3: "));
}

QTEST_GUILESS_MAIN(TestWdiInstall)
#include "tst_winusbinstall.moc"
