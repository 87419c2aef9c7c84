#include "brokendevice.h"
#include "everyfailure.h"
#include "installerdouble.h"
#include "peakmemory.h"
#include "updaterun.h"

#include <QtTest>

#include <cstring>

// Repair mode: the sandbox on its way into the controller's RAM, its start, the search for the
// device that comes back, and the update that follows.
class TestRepair : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void aBrokenDeviceIsBroughtBack_data();
    void aBrokenDeviceIsBroughtBack();
    void aVelk3RepairByteForByte();
    void progressOfARepair_data();
    void progressOfARepair();
    void sectionsAreLoadedPieceByPiece();
    void everySectionIsLogged();
    void addressesWrapAt32Bits();
    void addressesAreSplitIntoValueAndIndex();

    void anImageWithoutItsSignatureSendsNothing_data();
    void anImageWithoutItsSignatureSendsNothing();
    void anImageThatCannotBeReadIsJudgedByItsSignature_data();
    void anImageThatCannotBeReadIsJudgedByItsSignature();
    void anImageThatIsCutStartsNothing();
    void aDamagedImageStartsNothing_data();
    void aDamagedImageStartsNothing();
    void aWrongChecksumIsFoundBeforeTheStart();
    void theLongestSectionIsTaken();
    void whatFollowsTheChecksumIsIgnored();
    void anImageWithoutSectionsIsStarted();
    void anImageThatCannotBeOpenedLooksLikeSuccess();
    void aPackageWithoutSandboxLooksLikeSuccess();

    void everyFailingRequestOfTheLoadingEndsIt_data();
    void everyFailingRequestOfTheLoadingEndsIt();
    void aByteThatReadsBackWrongEndsTheLoading_data();
    void aByteThatReadsBackWrongEndsTheLoading();
    void bytesThatDoNotComeBackCountAsDifferent_data();
    void bytesThatDoNotComeBackCountAsDifferent();

    void identitiesAreTriedInOrder();
    void theSecondIdentityIsFoundWithoutInstaller();
    void theDeviceIsFoundAtAnotherAddressOnly_data();
    void theDeviceIsFoundAtAnotherAddressOnly();
    void installationOutcomes_data();
    void installationOutcomes();
    void aDriverThatIsInstalledOpensTheDevice();
    void anInstalledDriverThatDoesNotHelpMovesOn();
    void aSandboxThatCannotBeClaimedIsLikeOneThatDoesNotOpen();
    void aRecordWithItsDeviceIsSearchedForAfterwards();
    void theSandboxsFirstInterfaceIsClaimed();

    void aFailingUpdateOfTheSandboxStillEndsAt100();
    void anyFailingCallGivesTheDevicesBack();
};

namespace {

constexpr quint32 s_ram = 0x40003000;

std::vector<PackageEntry> packageWith(const ProductFacts &product, const QByteArray &sandbox)
{
    PackageContent images = smallContent(product);
    images.sandbox = sandbox;
    return packageEntries(product, images);
}

// A piece that is written and read back; where ("v3000 i4000") is written by hand.
QStringList piece(const QString &where, const QByteArray &data)
{
    return {QString("> a0 %1 %2 %3 t1000").arg(where).arg(data.size()).arg(showBytes(data)),
            QString("< a0 %1 %2 t1000").arg(where).arg(data.size())};
}

// The signals of a failed loading: the error, and 100 all the same.
QStringList failedLoading(const QStringList &progress, const QString &error)
{
    return progress + QStringList{"error " + error, "progress 100", "complete"};
}

bool wasStarted(const ScriptedUsb &bus)
{
    for (const ScriptedTransfer &transfer : bus.transfers()) {
        if (transfer.request == 0xA0 && !transfer.isIn() && transfer.length == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

void TestRepair::init()
{
    installer::reset();
}

void TestRepair::aBrokenDeviceIsBroughtBack_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<quint32>("mode");
    for (const ProductFacts *product : allPackages()) {
        const QByteArray key = keyOf(*product);
        QTest::newRow(key + ", soft") << key << QByteArray(product->softId) << 1U;
        QTest::newRow(key + ", hard") << key << QByteArray("04b4:00f3") << 2U;
    }
}

void TestRepair::aBrokenDeviceIsBroughtBack()
{
    QFETCH(QByteArray, product);
    QFETCH(QByteArray, id);
    QFETCH(quint32, mode);
    PackageContent images = smallContent(productOf(product));
    const QByteArray first = patternBytes(10000, 5);
    const QByteArray second = patternBytes(12, 6);
    images.sandbox = bootImage({{s_ram, first}, {0x10000, second}}, 0x40003210);
    images.fx3 = patternBytes(5000, 2);
    images.fpga = patternBytes(4097, 3);

    UpdateRun run;
    BrokenDevice device(run.bus, id);
    device.comesBackAs("sandbox", productOf(product).sandboxId);
    const QStringList events =
        run.run(recordOf(device.loader, mode), packageEntries(productOf(product), images));
    QVERIFY2(events.filter("error").isEmpty(), qPrintable(events.join('\n')));
    QCOMPARE(events.mid(events.size() - 2), (QStringList{"progress 100", "complete"}));

    QStringList expected = opening("loader");
    expected += transferLines("loader", loadingRequests({{s_ram, first}, {0x10000, second}}));
    expected += transferLines("loader", startRequests(0x40003210));
    expected += "pause 3";
    expected += givingBack("loader");
    expected += opening("sandbox");
    expected += "pause 1";
    expected += transferLines("sandbox", microcodeRequests(*images.fx3));
    expected += "pause 1";
    expected += transferLines("sandbox", bitstreamRequests(productOf(product), *images.fpga));
    if (images.edid) {
        expected += "pause 1";
        expected += transferLines("sandbox", edidRequests(edidBlocks(1)));
    }
    expected += givingBack("sandbox");
    QCOMPARE(run.bus.handleCalls(), expected);
    QVERIFY(installer::calls().isEmpty());
}

void TestRepair::aVelk3RepairByteForByte()
{
    // Words 0x01020304 and 0xFFFFFFFF sum to 0x01020303.
    const QByteArray image = QByteArray::fromHex("43591cb0"
                                                 "02000000"
                                                 "78563412"
                                                 "04030201ffffffff"
                                                 "00000000"
                                                 "21430087"
                                                 "03030201");
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    run.run(recordOf(device.loader, 1), packageWith(velk3, image));
    QCOMPARE(
        run.bus.handleCalls().mid(0, 15),
        (QStringList{"open loader", "kernel_driver_active loader 0", "claim_interface loader 0",
                     "control_transfer loader > a0 v5678 i1234 8 04030201ffffffff t1000",
                     "control_transfer loader < a0 v5678 i1234 8 t1000",
                     "control_transfer loader > a0 v4321 i8700 0 t1000", "pause 3",
                     "attach_kernel_driver loader 0", "release_interface loader 0", "close loader",
                     "open sandbox", "kernel_driver_active sandbox 0", "claim_interface sandbox 0",
                     "pause 1", "control_transfer sandbox > c5 v0 i0 0 t1000"}));
}

void TestRepair::progressOfARepair_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QStringList>("expected");
    // Sandbox of 4 + 8 + 5000 + 8 + 3000 + 12 = 8032 bytes: 5000 * 13 / 8032 + 2 = 10,
    // 8000 * 13 / 8032 + 2 = 14. Microcode of 10000 bytes, bitstream of 5000.
    QTest::newRow("with EDID: 15 to 43 to 71 to 99")
        << QByteArray("velk3")
        << progressLines({1, 2, 10, 14, 26, 37, 43, 65, 71, 76, 81, 86, 91, 96, 100});
    // 15 + 42 * 0.4096, 15 + 42 * 0.8192, 57; 57 + 42 * 0.8192, 99
    QTest::newRow("without EDID: 15 to 57 to 99")
        << QByteArray("sorn3") << progressLines({1, 2, 10, 14, 32, 49, 57, 91, 99, 100});
}

void TestRepair::progressOfARepair()
{
    QFETCH(QByteArray, product);
    QFETCH(QStringList, expected);
    PackageContent images = smallContent(productOf(product));
    images.sandbox = bootImage({{s_ram, patternBytes(5000)}, {s_ram, patternBytes(3000)}}, s_ram);
    images.fx3 = patternBytes(10000);
    images.fpga = patternBytes(5000);
    UpdateRun run;
    BrokenDevice device(run.bus, productOf(product).softId);
    device.comesBackAs("sandbox", productOf(product).sandboxId);
    QCOMPARE(run.run(recordOf(device.loader, 1), packageEntries(productOf(product), images)),
             expected + QStringList("complete"));
}

void TestRepair::sectionsAreLoadedPieceByPiece()
{
    const QByteArray data = patternBytes(10000);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.run(recordOf(device.loader, 1), packageWith(velk3, bootImage({{s_ram, data}}, s_ram)));
    QCOMPARE(run.bus.describedTransfers(),
             piece("v3000 i4000", data.mid(0, 4096)) + piece("v4000 i4000", data.mid(4096, 4096)) +
                 piece("v5000 i4000", data.mid(8192)) + QStringList("> a0 v3000 i4000 0 t1000"));
}

void TestRepair::everySectionIsLogged()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.run(recordOf(device.loader, 1),
            packageWith(velk3, bootImage({{0x40003ABC, QByteArray(5000, 'x')},
                                          {0x100, QByteArray(16, 'y')}},
                                         s_ram)));
    QStringList lines = run.debugLines().filter("Write chunk");
    lines.replaceInStrings(" ", "");
    QCOMPARE(lines,
             (QStringList{"Writechunk,addr0x40003abc,len=5000", "Writechunk,addr0x100,len=16"}));
}

void TestRepair::addressesWrapAt32Bits()
{
    const QByteArray data = patternBytes(8192);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.run(recordOf(device.loader, 1),
            packageWith(velk3, bootImage({{0xFFFFF000, data}}, 0xFFFFFFFF)));
    QCOMPARE(run.bus.describedTransfers(), piece("vf000 iffff", data.left(4096)) +
                                               piece("v0 i0", data.mid(4096)) +
                                               QStringList("> a0 vffff iffff 0 t1000"));
}

void TestRepair::addressesAreSplitIntoValueAndIndex()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.run(recordOf(device.loader, 1),
            packageWith(velk3, bootImage({{0x12345678, "abcd"}}, 0x9ABCDEF0)));
    QCOMPARE(run.bus.describedTransfers(),
             (QStringList{"> a0 v5678 i1234 4 61626364 t1000", "< a0 v5678 i1234 4 t1000",
                          "> a0 vdef0 i9abc 0 t1000"}));
}

void TestRepair::anImageWithoutItsSignatureSendsNothing_data()
{
    QTest::addColumn<QByteArray>("image");
    const QByteArray good = bootImage({{s_ram, "abcd"}}, s_ram);
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("one byte") << QByteArray("C");
    QTest::newRow("other letters") << "CZ" + good.mid(2);
    QTest::newRow("swapped") << "YC" + good.mid(2);
    QTest::newRow("small letters") << "cy" + good.mid(2);
}

void TestRepair::anImageWithoutItsSignatureSendsNothing()
{
    QFETCH(QByteArray, image);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    QCOMPARE(run.run(recordOf(device.loader, 1), packageWith(velk3, image)),
             failedLoading(progressLines({1, 2}), "Error: failed to verify microcode signature"));
    QCOMPARE(run.bus.handleCalls(), opening("loader") + givingBack("loader"));
}

void TestRepair::anImageThatCannotBeReadIsJudgedByItsSignature_data()
{
    QTest::addColumn<QByteArray>("readable");
    QTest::addColumn<QString>("text");
    const QString signature("Error: failed to verify microcode signature");
    QTest::newRow("nothing") << QByteArray("") << signature;
    QTest::newRow("half a signature") << QByteArray("C") << signature;
    QTest::newRow("another signature") << QByteArray("PK") << signature;
    QTest::newRow("the signature") << QByteArray("CY") << "FX3 checksum error";
    QTest::newRow("the head") << QByteArray("CY\x1C\xB0", 4) << "FX3 checksum error";
}

// The archive finds the damage after these bytes.
void TestRepair::anImageThatCannotBeReadIsJudgedByItsSignature()
{
    QFETCH(QByteArray, readable);
    QFETCH(QString, text);
    auto package = packageWith(velk3, readable);
    QCOMPARE(package[3].name, QByteArray("velk3-sandbox.img"));
    package[3].statedCrc = 0x12345678;
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    QCOMPARE(run.run(recordOf(device.loader, 1), package),
             failedLoading(progressLines({1, 2}), text));
    QVERIFY(run.bus.transfers().empty());
}

void TestRepair::anImageThatIsCutStartsNothing()
{
    const QByteArray whole = bootImage({{s_ram, "abcdefgh"}, {0x100, "ijkl"}}, s_ram);
    // 4 bytes of head, 8 + 8, 8 + 4, 8, 4.
    QCOMPARE(whole.size(), 44);
    for (int size = 2; size < whole.size(); ++size) {
        UpdateRun run;
        BrokenDevice device(run.bus, velk3.softId);
        const QStringList events =
            run.run(recordOf(device.loader, 1), packageWith(velk3, whole.left(size)));
        QCOMPARE(events.mid(events.size() - 3), failedLoading({}, "FX3 checksum error"));
        QCOMPARE(events.filter("error").size(), 1);
        QVERIFY(!wasStarted(run.bus));
        // Only whole sections are written.
        const int sections = size >= 32 ? 2 : size >= 20 ? 1 : 0;
        QCOMPARE(int(run.bus.transfers().size()), 2 * sections);
        const QStringList calls = run.bus.handleCalls();
        QCOMPARE(calls.mid(calls.size() - 3), givingBack("loader"));
    }
}

void TestRepair::aDamagedImageStartsNothing_data()
{
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<int>("requests"); // for what comes before the damage
    const QByteArray head("CY\x1C\xB0", 4);
    const QByteArray good = le32(1) + le32(s_ram) + "abcd";
    const QByteArray tail = le32(0) + le32(s_ram) + le32(0x64636261);
    QTest::newRow("length past the end of the entry")
        << head + le32(3) + le32(s_ram) + "abcdefgh" << 0;
    QTest::newRow("length past the end, after a good section")
        << head + good + le32(1000) + le32(s_ram) + "abcd" << 2;
    QTest::newRow("length that is 0 when multiplied by 4")
        << head + le32(0x40000000) + le32(s_ram) + "abcd" + tail << 0;
    QTest::newRow("length that is 4 when multiplied by 4")
        << head + le32(0x40000001) + le32(s_ram) + "abcd" + tail << 0;
    QTest::newRow("length that is negative") << head + le32(0x80000000) + le32(s_ram) + tail << 0;
    QTest::newRow("the longest length") << head + le32(0xFFFFFFFF) + le32(s_ram) + tail << 0;
    QTest::newRow("no terminating record") << head + good << 2;
    QTest::newRow("no checksum") << head + good + le32(0) + le32(s_ram) << 2;
    QTest::newRow("half a checksum") << head + good + tail.chopped(2) << 2;
    QTest::newRow("wrong checksum") << head + good + tail.chopped(1) + "\x65" << 2;
    const QByteArray tooLong(0x200004, '\0');
    QTest::newRow("a word more than the longest section")
        << head + le32(0x80001) + le32(s_ram) + tooLong + le32(0) + le32(s_ram) + le32(0) << 0;
    QTest::newRow("a section that is too long, after a good one")
        << head + good + le32(0x80001) + le32(s_ram) + tooLong + tail << 2;
}

void TestRepair::aDamagedImageStartsNothing()
{
    QFETCH(QByteArray, image);
    QFETCH(int, requests);
    const long memoryBefore = peakMemory();
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    const QStringList events = run.run(recordOf(device.loader, 1), packageWith(velk3, image));
    QCOMPARE(events.mid(events.size() - 3), failedLoading({}, "FX3 checksum error"));
    QCOMPARE(events.filter("error").size(), 1);
    QCOMPARE(int(run.bus.transfers().size()), requests);
    QVERIFY(!wasStarted(run.bus));
    // A length of gigabytes must not be believed, not even for a moment.
    QVERIFY(peakMemory() - memoryBefore < 256);
}

void TestRepair::aWrongChecksumIsFoundBeforeTheStart()
{
    const QByteArray data = patternBytes(6000);
    QByteArray image = bootImage({{s_ram, data}, {0x100, "abcd"}}, s_ram);
    image[image.size() - 4] = char(image[image.size() - 4] + 1);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    // 6000 and 6004 bytes of 6032, in thirteenths, from 2.
    QCOMPARE(run.run(recordOf(device.loader, 1), packageWith(velk3, image)),
             failedLoading(progressLines({1, 2, 14, 14}), "FX3 checksum error"));
    QCOMPARE(run.bus.describedTransfers(), loadingRequests({{s_ram, data}, {0x100, "abcd"}}));
}

void TestRepair::theLongestSectionIsTaken()
{
    const QByteArray data = patternBytes(0x200000);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.run(recordOf(device.loader, 1), packageWith(velk3, bootImage({{0, data}}, s_ram)));
    QCOMPARE(int(run.bus.transfers().size()), 2 * 512 + 1);
    QVERIFY(wasStarted(run.bus));
}

void TestRepair::whatFollowsTheChecksumIsIgnored()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    const QByteArray image = bootImage({{s_ram, "abcd"}}, s_ram) + QByteArray(777, 'z');
    const QStringList events = run.run(recordOf(device.loader, 1), packageWith(velk3, image));
    QVERIFY(events.filter("error").isEmpty());
    QVERIFY(wasStarted(run.bus));
}

void TestRepair::anImageWithoutSectionsIsStarted()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageWith(velk3, bootImage({}, 0x1234)));
    QVERIFY(events.filter("error").isEmpty());
    QCOMPARE(run.bus.describedTransfers().first(), QStringLiteral("> a0 v1234 i0 0 t1000"));
}

void TestRepair::anImageThatCannotBeOpenedLooksLikeSuccess()
{
    auto package = packageEntries(velk3, smallContent(velk3));
    package[3].encrypted = true;
    QCOMPARE(package[3].name, QByteArray("velk3-sandbox.img"));
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    QCOMPARE(run.run(recordOf(device.loader, 1), package),
             progressLines({1, 2, 100}) + QStringList("complete"));
    QCOMPARE(run.debugLines().last(), QStringLiteral("Can't open file"));
    QCOMPARE(run.bus.handleCalls(), opening("loader") + givingBack("loader"));
}

void TestRepair::aPackageWithoutSandboxLooksLikeSuccess()
{
    const PackageContent images{{}, {}, {}, smallContent(velk3).edid};
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    QCOMPARE(run.run(recordOf(device.loader, 1), packageEntries(velk3, images)),
             progressLines({1, 2, 100}) + QStringList("complete"));
    QVERIFY(run.bus.transfers().empty());
}

void TestRepair::everyFailingRequestOfTheLoadingEndsIt_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("progress");
    const std::pair<int, const char *> codes[] = {{-1, "LIBUSB_ERROR_IO"},
                                                  {-4, "LIBUSB_ERROR_NO_DEVICE"},
                                                  {-7, "LIBUSB_ERROR_TIMEOUT"},
                                                  {-9, "LIBUSB_ERROR_PIPE"}};
    // Two sections of 8 bytes in an image of 44: 8 * 13 / 44 + 2 = 4, 16 * 13 / 44 + 2 = 6.
    const QStringList one = progressLines({1, 2, 4});
    const QStringList two = progressLines({1, 2, 4, 6});
    for (const auto &[code, name] : codes) {
        const QString written = QStringLiteral("Error: failed to write microcode: %1").arg(name);
        const QString started = QStringLiteral("Error: failed to start microcode: %1").arg(name);
        QTest::addRow("write, %s", name) << 0 << code << written << one;
        QTest::addRow("read-back, %s", name) << 1 << code << written << one;
        QTest::addRow("second write, %s", name) << 2 << code << written << two;
        QTest::addRow("second read-back, %s", name) << 3 << code << written << two;
        QTest::addRow("start, %s", name) << 4 << code << started << two;
    }
}

void TestRepair::everyFailingRequestOfTheLoadingEndsIt()
{
    QFETCH(int, failing);
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(QStringList, progress);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    run.bus.failTransfer(failing, code);
    const QByteArray image = bootImage({{s_ram, "abcdefgh"}, {0x100, "ijklmnop"}}, s_ram);
    QCOMPARE(image.size(), 48);
    QCOMPARE(run.run(recordOf(device.loader, 1), packageWith(velk3, image)),
             failedLoading(progress, text));
    QCOMPARE(int(run.bus.transfers().size()), failing + 1);
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 3), givingBack("loader"));
    QVERIFY(!calls.contains("pause 3"));
}

void TestRepair::aByteThatReadsBackWrongEndsTheLoading_data()
{
    QTest::addColumn<int>("wrong");
    for (const int wrong : {0, 1, 4095, 4096, 4999}) {
        QTest::addRow("byte %d", wrong) << wrong;
    }
}

void TestRepair::aByteThatReadsBackWrongEndsTheLoading()
{
    QFETCH(int, wrong);
    const QByteArray data = patternBytes(5000);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.fault = [&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (!transfer.isIn()) {
            return {};
        }
        const int offset = transfer.value - 0x3000;
        QByteArray read = data.mid(offset, transfer.length);
        if (wrong >= offset && wrong < offset + read.size()) {
            read[wrong - offset] = char(read[wrong - offset] ^ 0x01);
        }
        std::memcpy(transfer.buffer, read.constData(), static_cast<std::size_t>(read.size()));
        return read.size();
    };
    QCOMPARE(
        run.run(recordOf(device.loader, 1), packageWith(velk3, bootImage({{s_ram, data}}, s_ram))),
        failedLoading(progressLines({1, 2, 14}), "Fail to verify image"));
    QCOMPARE(int(run.bus.transfers().size()), wrong < 4096 ? 2 : 4);
}

void TestRepair::bytesThatDoNotComeBackCountAsDifferent_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("returned");
    QTest::newRow("all but one") << patternBytes(400) << 399;
    QTest::newRow("none") << patternBytes(400) << 0;
    // A buffer that starts as zeros, or still holds the last piece, must not pass for an answer.
    QTest::newRow("none, of zeros") << QByteArray(400, '\0') << 0;
    QTest::newRow("all but one, of zeros") << QByteArray(400, '\0') << 399;
    QTest::newRow("none of the second piece, equal to the first") << QByteArray(8192, 'x') << 0;
}

void TestRepair::bytesThatDoNotComeBackCountAsDifferent()
{
    QFETCH(QByteArray, data);
    QFETCH(int, returned);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.fault = [&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (!transfer.isIn() || (data.size() > 4096 && transfer.value == 0x3000)) {
            return {};
        }
        std::memcpy(transfer.buffer, data.constData(), static_cast<std::size_t>(returned));
        return returned;
    };
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageWith(velk3, bootImage({{s_ram, data}}, s_ram)));
    QCOMPARE(events.mid(events.size() - 3), failedLoading({}, "Fail to verify image"));
    QVERIFY(!wasStarted(run.bus));
}

void TestRepair::identitiesAreTriedInOrder()
{
    // None comes back; each is asked a driver for, in order, and there is none to be had.
    UpdateRun run;
    BrokenDevice device(run.bus, velk3_4k.softId);
    const auto package = packageWith(velk3_4k, bootImage({{s_ram, "abcd"}}, s_ram));
    QCOMPARE(run.run(recordOf(device.loader, 1), package),
             progressLines({1, 2, 3}) +
                 QStringList({"error Error: Failed to install driver", "complete"}));
    QCOMPARE(installer::calls(),
             (QStringList{"e5c1 363f 0 single null", "e5c1 364f 0 single null"}));
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 4), QStringList("pause 3") + givingBack("loader"));
}

void TestRepair::theSecondIdentityIsFoundWithoutInstaller()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3_4k.softId);
    device.comesBackAs("sandbox", "e5c1:364f");
    const auto package = packageWith(velk3_4k, bootImage({{s_ram, "abcd"}}, s_ram));
    const QStringList events = run.run(recordOf(device.loader, 1), package);
    QVERIFY(events.filter("error").isEmpty());
    QCOMPARE(events.mid(events.size() - 2), (QStringList{"progress 100", "complete"}));
    QCOMPARE(installer::calls(), QStringList{"e5c1 363f 0 single null"});
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 3), givingBack("sandbox"));
}

void TestRepair::theDeviceIsFoundAtAnotherAddressOnly_data()
{
    QTest::addColumn<int>("bus");
    QTest::addColumn<int>("port");
    QTest::addColumn<int>("address");
    QTest::addColumn<bool>("found");
    QTest::newRow("another address") << 2 << 6 << 127 << true;
    QTest::newRow("the same address") << 2 << 6 << 9 << true;
    QTest::newRow("another port") << 2 << 5 << 9 << false;
    QTest::newRow("another bus") << 3 << 6 << 9 << false;
}

void TestRepair::theDeviceIsFoundAtAnotherAddressOnly()
{
    QFETCH(int, bus);
    QFETCH(int, port);
    QFETCH(int, address);
    QFETCH(bool, found);
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    device.prepareSandbox = [&](libusb_device *sandbox) {
        sandbox->bus = static_cast<quint8>(bus);
        sandbox->port = static_cast<quint8>(port);
        sandbox->address = static_cast<quint8>(address);
    };
    DeviceDescription record = recordOf(device.loader, 1);
    const QStringList events = run.run(record, packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(events.contains("progress 100"), found);
    QCOMPARE(run.bus.handleCalls().contains("open sandbox"), found);
}

void TestRepair::installationOutcomes_data()
{
    QTest::addColumn<bool>("installerExists");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("installations");
    const QString failed = "Error: Failed to install driver";
    const QString denied =
        "Access Denied: Administrative privilegies are required to access the device";
    const QString notOpened = "Error: Failed to init device for repair";
    QTest::newRow("needs rights") << true << -2 << denied << 1;
    QTest::newRow("fails") << true << -1 << failed << 1;
    QTest::newRow("fails in another way") << true << -15 << failed << 1;
    QTest::newRow("positive") << true << 1 << failed << 1;
    QTest::newRow("installed, but no device") << true << 0 << notOpened << 2;
    QTest::newRow("no installer") << false << -1 << failed << 2;
}

void TestRepair::installationOutcomes()
{
    QFETCH(bool, installerExists);
    QFETCH(int, outcome);
    QFETCH(QString, error);
    QFETCH(int, installations);
    installer::existsOnThisPlatform(installerExists);
    installer::answer({outcome, outcome});
    UpdateRun run;
    BrokenDevice device(run.bus, velk3_4k.softId);
    const auto package = packageWith(velk3_4k, bootImage({{s_ram, "abcd"}}, s_ram));
    QCOMPARE(run.run(recordOf(device.loader, 1), package),
             progressLines({1, 2, 3}) + QStringList({"error " + error, "complete"}));
    QCOMPARE(installer::calls().size(), installations);
    QCOMPARE(run.bus.opens(), 1);
    QCOMPARE(run.bus.closes(), 1);
}

void TestRepair::aDriverThatIsInstalledOpensTheDevice()
{
    installer::existsOnThisPlatform(true);
    installer::answer({0});
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    device.prepareSandbox = [](libusb_device *sandbox) {
        // The search and its last attempt; then there is a driver.
        sandbox->openResults = {LIBUSB_ERROR_ACCESS, LIBUSB_ERROR_ACCESS};
    };
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageEntries(velk3, smallContent(velk3)));
    QVERIFY2(events.filter("error").isEmpty(), qPrintable(events.join('\n')));
    QVERIFY(events.contains("progress 100"));
    QCOMPARE(installer::calls(), QStringList{"e5c1 360f 0 single null"});
    QCOMPARE(run.bus.callsOf("open"),
             (QStringList{"open loader", "open sandbox", "open sandbox", "open sandbox"}));
}

void TestRepair::anInstalledDriverThatDoesNotHelpMovesOn()
{
    installer::existsOnThisPlatform(true);
    installer::answer({0});
    UpdateRun run;
    BrokenDevice device(run.bus, velk3_4k.softId);
    device.comesBackAs("sandbox", "e5c1:364f");
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageEntries(velk3_4k, smallContent(velk3_4k)));
    QVERIFY(events.filter("error").isEmpty());
    QVERIFY(events.contains("progress 100"));
    QCOMPARE(installer::calls(), QStringList{"e5c1 363f 0 single null"});
}

void TestRepair::aSandboxThatCannotBeClaimedIsLikeOneThatDoesNotOpen()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    device.prepareSandbox = [](libusb_device *sandbox) {
        sandbox->claimResult = LIBUSB_ERROR_BUSY;
    };
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(events.mid(events.size() - 2),
             (QStringList{"error Error: Failed to install driver", "complete"}));
    QCOMPARE(installer::calls().size(), 1);
    QCOMPARE(run.bus.handleCalls().last(), QStringLiteral("close sandbox"));
}

void TestRepair::aRecordWithItsDeviceIsSearchedForAfterwards()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    {
        DeviceDescription record = recordOf(device.loader, 1);
        record.device = libusb_ref_device(device.loader);
        const QStringList events = run.run(record, packageEntries(velk3, smallContent(velk3)));
        QVERIFY(events.contains("progress 100"));
    }
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 3), givingBack("sandbox"));
    QCOMPARE(run.bus.callsOf("get_device_list").size(), 1);
}

// Whichever interface the boot loader was reached through.
void TestRepair::theSandboxsFirstInterfaceIsClaimed()
{
    UpdateRun run;
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    device.prepareSandbox = [](libusb_device *sandbox) {
        sandbox->claimResult = LIBUSB_ERROR_BUSY; // the claim is all that is asked for here
    };
    DeviceDescription record = recordOf(device.loader, 1);
    record.interfaceNumber = 2;
    run.run(record, packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(run.bus.callsOf("claim_interface"),
             (QStringList{"claim_interface loader 2", "claim_interface sandbox 0"}));
}

void TestRepair::aFailingUpdateOfTheSandboxStillEndsAt100()
{
    UpdateRun run;
    run.bus.answer(0xC6, {LIBUSB_ERROR_PIPE});
    BrokenDevice device(run.bus, velk3.softId);
    device.comesBackAs("sandbox", velk3.sandboxId);
    const QStringList events =
        run.run(recordOf(device.loader, 1), packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(events.mid(events.size() - 3),
             (QStringList{"error Error: failed to write microcode block: Pipe error",
                          "progress 100", "complete"}));
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 3), givingBack("sandbox"));
}

void TestRepair::anyFailingCallGivesTheDevicesBack()
{
    const auto attempt = [](int failing) {
        UpdateRun run;
        BrokenDevice device(run.bus, velk3.softId);
        device.comesBackAs("sandbox", velk3.sandboxId);
        run.bus.failCall(failing, LIBUSB_ERROR_NO_DEVICE);
        const QStringList events =
            run.run(recordOf(device.loader, 1), packageEntries(velk3, smallContent(velk3)));
        [&] { QCOMPARE(events.count("complete"), 1); }();
        [&] { QCOMPARE(events.last(), QStringLiteral("complete")); }();
        if (run.bus.failedCall().startsWith("control_transfer")) {
            [&] { QCOMPARE(events.filter("error ").size(), 1); }();
        }
        return run.bus.fallibleCalls();
    };
    failEachCallOnce(attempt, 31);
}

QTEST_GUILESS_MAIN(TestRepair)
#include "tst_repair.moc"
