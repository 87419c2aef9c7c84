#include "edidwriter.h"
#include "imagewriter.h"
#include "libziptexts.h"
#include "updaterun.h"
#include "ziparchive.h"
#include "zipcalls.h"

#include <QtTest>

#include <zip.h>
#include <zlib.h>

#include <iostream>

// The writers of the images: sizes around every boundary, images that cannot be read, devices that
// take less than they are given, and the EDID file.
class TestImages : public QObject
{
    Q_OBJECT

private slots:
    void microcodeIsSentInBlocks_data();
    void microcodeIsSentInBlocks();
    void microcodeFillsItsShareFrom10To40();
    void microcodeThatIsNoMultipleOfFourStopsAtItsLastBlock_data();
    void microcodeThatIsNoMultipleOfFourStopsAtItsLastBlock();
    void microcodeThatCannotBeReadStops_data();
    void microcodeThatCannotBeReadStops();
    void microcodeThatCannotBeOpenedIsReportedAfterTheStart();
    void aRefusedStartComesBeforeTheImage();

    void framedBitstreamIsSentInBlocks_data();
    void framedBitstreamIsSentInBlocks();
    void framedBitstreamOf5000BytesByteForByte();
    void framedBitstreamThatCannotBeReadStopsWithoutChecksum_data();
    void framedBitstreamThatCannotBeReadStopsWithoutChecksum();
    void rawBitstreamIsSentInBlocks_data();
    void rawBitstreamIsSentInBlocks();
    void rawBitstreamThatCannotBeReadIsCompletedAndReported_data();
    void rawBitstreamThatCannotBeReadIsCompletedAndReported();
    void bitstreamThatCannotBeOpenedIsReportedAfterTheStart_data();
    void bitstreamThatCannotBeOpenedIsReportedAfterTheStart();

    void shortTransfersLeaveTheProgressBehind_data();
    void shortTransfersLeaveTheProgressBehind();
    void aLyingSizeIsNotTrusted_data();
    void aLyingSizeIsNotTrusted();
    void aSizeOfZeroEmitsNoProgress_data();
    void aSizeOfZeroEmitsNoProgress();

    void aCountFarBeyondTheStatedSizeIsNoOverflow();

    void edidOfAnySizeIsSentAtOnce_data();
    void edidOfAnySizeIsSentAtOnce();
    void edidOfWhichNothingArrivesIsCompleted();
    void badEdidIsReportedBeforeAnyRequest_data();
    void badEdidIsReportedBeforeAnyRequest();
    void edidIsReadUpToABound_data();
    void edidIsReadUpToABound();
    void edidThatCannotBeReadToItsEndIsNotSent_data();
    void edidThatCannotBeReadToItsEndIsNotSent();
    void edidProgressComesBetweenReadingAndParsing();
    void edidThatCannotBeOpenedIsReported();
    void edidIsReadInPiecesThatANulCutsShort();
    void edidFailuresAreLogged_data();
    void edidFailuresAreLogged();
};

namespace {

const QList<int> s_sizes{0, 1, 4, 4095, 4096, 4097, 8192, 10000};

// Replaces the entry of this name.
std::vector<PackageEntry> with(std::vector<PackageEntry> package, const PackageEntry &entry)
{
    for (PackageEntry &one : package) {
        if (one.name == entry.name) {
            one = entry;
        }
    }
    return package;
}

std::vector<PackageEntry> sorn3Package(const QByteArray &fx3, const QByteArray &fpga)
{
    PackageContent images = smallContent(sorn3);
    images.fx3 = fx3;
    images.fpga = fpga;
    return packageEntries(sorn3, images);
}

std::vector<PackageEntry> raw4kPackage(const QByteArray &fpga)
{
    PackageContent images = smallContent(velk3_4k);
    images.fpga = fpga;
    images.edid.reset();
    return packageEntries(velk3_4k, images);
}

// Images that cannot be read to their end: after so many bytes comes this error.
void addDamages()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("deflated");
    QTest::addColumn<QString>("reason");
    const QString wrongCrc = libzipText(ZIP_ER_CRC);
    const QString wrongData = libzipText(ZIP_ER_ZLIB, Z_DATA_ERROR);
    QTest::newRow("found out behind the last whole block") << 8192 << false << wrongCrc;
    QTest::newRow("found out behind a short block") << 5000 << false << wrongCrc;
    QTest::newRow("found out behind a short block, deflated") << 5000 << true << wrongCrc;
    QTest::newRow("found out at once") << 0 << true << wrongData;
}

PackageEntry damagedEntry(const QByteArray &name, const QByteArray &data, bool deflated)
{
    PackageEntry entry{name, data, deflated};
    entry.statedCrc = 0x12345678;
    if (data.isEmpty()) {
        entry.data = QByteArray(40, 'x');
        entry.damagedBytes = 2;
    }
    return entry;
}

QStringList lastEvents(const QStringList &events, int count)
{
    return events.mid(events.size() - count);
}

QStringList errorEnding(const QString &text)
{
    return {"error " + text, "complete"};
}

} // namespace

void TestImages::microcodeIsSentInBlocks_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QStringList>("progress");
    // From 2 to 51, in shares of the bytes taken.
    QTest::newRow("0") << 0 << QStringList();
    QTest::newRow("4") << 4 << progressLines({51});
    QTest::newRow("4092") << 4092 << progressLines({51});
    QTest::newRow("4096") << 4096 << progressLines({51});
    QTest::newRow("4100") << 4100 << progressLines({50, 51});
    QTest::newRow("8192") << 8192 << progressLines({26, 51});
    QTest::newRow("10000") << 10000 << progressLines({22, 42, 51});
}

void TestImages::microcodeIsSentInBlocks()
{
    QFETCH(int, size);
    QFETCH(QStringList, progress);
    const QByteArray image = patternBytes(size);
    UpdateRun run;
    run.bus.answer(0xC1, {LIBUSB_ERROR_PIPE}); // the microcode is all that this is about
    const auto *device = run.bus.plug("a", sorn3.runningId);
    QCOMPARE(run.run(recordOf(device), sorn3Package(image, "x")),
             progressLines({1, 2}) + progress +
                 errorEnding("Error: failed to start FPGA reflashing: LIBUSB_ERROR_PIPE"));
    QCOMPARE(run.bus.describedTransfers().mid(0, run.bus.describedTransfers().size() - 1),
             microcodeRequests(image));
}

// The share need not be one that an update has today.
void TestImages::microcodeFillsItsShareFrom10To40()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("package.fw");
    writeFile(path, zipArchive({{"a.img", patternBytes(10000)}}));
    Zip zip(path.toStdString());
    ScriptedUsb bus;
    libusb_device *device = libusb_ref_device(bus.plug("a", velk3.runningId));
    libusb_device_handle *handle = nullptr;
    QCOMPARE(libusb_open(device, &handle), 0);
    QCOMPARE(libusb_claim_interface(handle, 0), 0);
    QList<int> progress;
    const UpdateReport report{[&](int percent) { progress.append(percent); },
                              [](const QString &text) { QFAIL(qPrintable(text)); }};
    const auto ready = [](VendorRequests) { return 0; };
    QVERIFY(ImageWriter(s_fx3Image, handle, report, ready).write(10, 40, "a.img", zip) >= 0);
    libusb_release_interface(handle, 0);
    libusb_close(handle);
    libusb_unref_device(device);
    // 10 + 30 * 4096 / 10000, 10 + 30 * 8192 / 10000, 40
    QCOMPARE(progress, (QList<int>{22, 34, 40}));
}

void TestImages::microcodeThatIsNoMultipleOfFourStopsAtItsLastBlock_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 2, 3, 5, 4095, 4097, 4098, 8193, 9999}) {
        QTest::addRow("%d", size) << size;
    }
}

void TestImages::microcodeThatIsNoMultipleOfFourStopsAtItsLastBlock()
{
    QFETCH(int, size);
    const QByteArray image = patternBytes(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    const QStringList events = run.run(recordOf(device), sorn3Package(image, "x"));
    QCOMPARE(lastEvents(events, 2), errorEnding("Error: failed to read archieve %d"));
    QVERIFY(!events.contains("progress 100"));

    auto expected = microcodeRequests(image.left(size / 4096 * 4096));
    expected.removeLast(); // no FX3_COMPLETE
    QCOMPARE(run.bus.handleCalls(), opening("a") + transferLines("a", expected) + givingBack("a"));
}

void TestImages::microcodeThatCannotBeReadStops_data()
{
    addDamages();
}

void TestImages::microcodeThatCannotBeReadStops()
{
    QFETCH(int, size);
    QFETCH(bool, deflated);
    const QByteArray image = patternBytes(20).repeated(500).left(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    const QStringList events = run.run(
        recordOf(device), with(sorn3Package("", "x"), damagedEntry("sorn3.img", image, deflated)));
    QCOMPARE(lastEvents(events, 2), errorEnding("Error: failed to read archieve %d"));
    QCOMPARE(events.filter("error").size(), 1);
    auto expected = microcodeRequests(image);
    expected.removeLast();
    QCOMPARE(run.bus.describedTransfers(), expected);
}

void TestImages::microcodeThatCannotBeOpenedIsReportedAfterTheStart()
{
    PackageEntry secret{"sorn3.img", "12345678"};
    secret.encrypted = true;
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    QCOMPARE(run.run(recordOf(device), with(sorn3Package("", "x"), secret)),
             progressLines({1, 2}) + errorEnding("Error: failed to find microcode image"));
    QCOMPARE(run.bus.describedTransfers(), QStringList{"> c5 v0 i0 0 t1000"});
}

void TestImages::aRefusedStartComesBeforeTheImage()
{
    PackageEntry secret{"sorn3.img", "12345678"};
    secret.encrypted = true;
    UpdateRun run;
    run.bus.failTransfer(0, LIBUSB_ERROR_PIPE);
    const auto *device = run.bus.plug("a", sorn3.runningId);
    QCOMPARE(run.run(recordOf(device), with(sorn3Package("", "x"), secret)),
             progressLines({1, 2}) +
                 errorEnding("Error: failed to start microcode reflashing: Pipe error"));
}

void TestImages::framedBitstreamIsSentInBlocks_data()
{
    QTest::addColumn<int>("size");
    for (const int size : s_sizes) {
        QTest::addRow("%d", size) << size;
    }
}

void TestImages::framedBitstreamIsSentInBlocks()
{
    QFETCH(int, size);
    const QByteArray image = patternBytes(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    const QStringList events = run.run(recordOf(device), sorn3Package("1234", image));
    QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
    QVERIFY(events.filter("error").isEmpty());
    QCOMPARE(run.bus.describedTransfers().mid(5), bitstreamRequests(sorn3, image));
    QVERIFY(QString::fromStdString(run.standardLog.text())
                .endsWith(QStringLiteral("\nFPGA size: %1\n").arg(size)));
}

void TestImages::framedBitstreamOf5000BytesByteForByte()
{
    // The checksums were computed by another tool.
    const QByteArray image(5000, '\x5A');
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    run.run(recordOf(device), sorn3Package("1234", image));
    QCOMPARE(run.bus.describedTransfers().mid(5),
             (QStringList{"> c1 v0 i0 0 t1000", "< c4 v0 i0 1 t1000",
                          "> c2 v0 i0 12 4650474188130000643546e8 t1000",
                          "> c2 v0 i0 4096 sha1:bc47c3cd7fd42b01ff5cb7f0b81826450cb3318a t1000",
                          "< c4 v0 i0 1 t1000",
                          "> c2 v0 i0 904 sha1:930e6c100f4a07adbf5b0fc299ed331e389ef66b t1000",
                          "< c4 v0 i0 1 t1000", "> c2 v0 i0 4 e2b373b7 t1000", "< c4 v0 i0 1 t1000",
                          "> c3 v0 i0 0 t1000"}));
}

void TestImages::framedBitstreamThatCannotBeReadStopsWithoutChecksum_data()
{
    addDamages();
}

void TestImages::framedBitstreamThatCannotBeReadStopsWithoutChecksum()
{
    QFETCH(int, size);
    QFETCH(bool, deflated);
    QFETCH(QString, reason);
    const QByteArray image = patternBytes(20).repeated(500).left(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    const QStringList events =
        run.run(recordOf(device),
                with(sorn3Package("1234", ""), damagedEntry("sorn3.bin", image, deflated)));
    QCOMPARE(lastEvents(events, 2), errorEnding("Error: failed to read FPGA image: " + reason));
    QCOMPARE(events.filter("error").size(), 1);
    // Start, poll, header and the blocks that could be read with their polls; no checksum, no poll,
    // no completion. An entry that fails at once still states the 40 bytes that it should have.
    auto expected = bitstreamRequests(sorn3, size != 0 ? image : QByteArray(40, 'x'));
    expected = expected.mid(0, size != 0 ? expected.size() - 3 : 3);
    QCOMPARE(run.bus.describedTransfers().mid(5), expected);
    QCOMPARE(lastEvents(run.bus.handleCalls(), 3), givingBack("a"));
}

void TestImages::rawBitstreamIsSentInBlocks_data()
{
    QTest::addColumn<int>("size");
    for (const int size : s_sizes) {
        QTest::addRow("%d", size) << size;
    }
}

void TestImages::rawBitstreamIsSentInBlocks()
{
    QFETCH(int, size);
    const QByteArray image = patternBytes(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3_4k.runningId);
    const QStringList events = run.run(recordOf(device), raw4kPackage(image));
    QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
    QVERIFY(events.filter("error").isEmpty());
    QCOMPARE(run.bus.describedTransfers().mid(5), bitstreamRequests(velk3_4k, image));
    QVERIFY(!QString::fromStdString(run.standardLog.text()).contains("FPGA size"));
}

void TestImages::rawBitstreamThatCannotBeReadIsCompletedAndReported_data()
{
    addDamages();
}

void TestImages::rawBitstreamThatCannotBeReadIsCompletedAndReported()
{
    QFETCH(int, size);
    QFETCH(bool, deflated);
    QFETCH(QString, reason);
    const QByteArray image = patternBytes(20).repeated(500).left(size);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3_4k.runningId);
    const QStringList events = run.run(
        recordOf(device), with(raw4kPackage(""), damagedEntry("velk3_4k.bin", image, deflated)));
    QCOMPARE(events.filter("error"),
             QStringList{"error Error: failed to read FPGA image: " + reason});
    QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
    QCOMPARE(run.bus.describedTransfers().mid(5), bitstreamRequests(velk3_4k, image));
}

void TestImages::bitstreamThatCannotBeOpenedIsReportedAfterTheStart_data()
{
    QTest::addColumn<bool>("raw");
    QTest::newRow("framed") << false;
    QTest::newRow("raw") << true;
}

void TestImages::bitstreamThatCannotBeOpenedIsReportedAfterTheStart()
{
    QFETCH(bool, raw);
    PackageEntry secret{raw ? "velk3_4k.bin" : "sorn3.bin", "12345678"};
    secret.encrypted = true;
    UpdateRun run;
    const auto *device = run.bus.plug("a", raw ? velk3_4k.runningId : sorn3.runningId);
    const QStringList events =
        run.run(recordOf(device), with(raw ? raw4kPackage("") : sorn3Package("1234", ""), secret));
    QCOMPARE(lastEvents(events, 2), errorEnding("Error: failed to find FPGA image"));
    QCOMPARE(run.bus.describedTransfers().mid(5), QStringList{"> c1 v0 i0 0 t1000"});
}

void TestImages::shortTransfersLeaveTheProgressBehind_data()
{
    QTest::addColumn<bool>("raw");
    QTest::newRow("framed") << false;
    QTest::newRow("raw") << true;
}

void TestImages::shortTransfersLeaveTheProgressBehind()
{
    QFETCH(bool, raw);
    // The device says that it took half of each block.
    UpdateRun run;
    run.bus.onTransfer([](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.length >= 100) {
            return transfer.length / 2;
        }
        return {};
    });
    const QByteArray fx3 = patternBytes(8192);
    const QByteArray fpga = patternBytes(5000, 2);
    auto package = raw ? raw4kPackage(fpga) : sorn3Package(fx3, fpga);
    if (raw) {
        package = with(package, {"velk3_4k.img", fx3});
    }
    const auto *device = run.bus.plug("a", raw ? velk3_4k.runningId : sorn3.runningId);
    // 2 + 49 * 2048 / 8192, 2 + 49 * 4096 / 8192; 51 + 49 * 2048 / 5000, 51 + 49 * 2500 / 5000
    QCOMPARE(run.run(recordOf(device), package),
             progressLines({1, 2, 14, 26, 71, 75, 100}) + QStringList("complete"));
    QCOMPARE(run.bus.describedTransfers(),
             microcodeRequests(fx3) + bitstreamRequests(raw ? velk3_4k : sorn3, fpga));
    QVERIFY(run.debugLines().contains("Write chunk [ 1 ] size:  2048"));
}

void TestImages::aLyingSizeIsNotTrusted_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("stated");
    QTest::addColumn<bool>("deflated");
    for (const char *name : {"sorn3.img", "sorn3.bin", "velk3_4k.img", "velk3_4k.bin"}) {
        for (const int stated : {0, 4, 4096, 5004, 100000}) {
            for (const bool deflated : {false, true}) {
                QTest::addRow("%s of 5000 bytes says %d, %s", name, stated,
                              deflated ? "deflated" : "stored")
                    << QByteArray(name) << stated << deflated;
            }
        }
    }
}

void TestImages::aLyingSizeIsNotTrusted()
{
    // libzip gives what is there. At the end of a stored entry it finds the lie; that of a deflated
    // one it lets pass, since the data and their checksum are right.
    QFETCH(QByteArray, name);
    QFETCH(int, stated);
    QFETCH(bool, deflated);
    const QByteArray product = name.left(name.indexOf('.'));
    const bool framed = name == "sorn3.bin";
    PackageEntry liar{name, patternBytes(5000), deflated};
    liar.statedSize = static_cast<quint32>(stated);
    UpdateRun run;
    const auto *device = run.bus.plug("a", productOf(product).runningId);
    const QStringList events =
        run.run(recordOf(device),
                with(packageEntries(productOf(product), smallContent(productOf(product))), liar));

    QCOMPARE(events.count("complete"), 1);
    QCOMPARE(events.filter("error ").size(), deflated ? 0 : 1);
    const bool microcode = name.endsWith(".img");
    int bytes = 0;
    for (const ScriptedTransfer &transfer : run.bus.transfers()) {
        if (transfer.request == (microcode ? 0xC6 : 0xC2) && transfer.length > 12) {
            bytes += transfer.length;
        }
    }
    QVERIFY(bytes <= 5000);
    if (deflated) {
        QCOMPARE(bytes, 5000);
        QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
    }
    if (framed) {
        const QByteArray header = "FPGA" + le32(static_cast<quint32>(stated));
        QVERIFY(run.bus.describedTransfers().contains(
            requestLine({Direction::Out, 0xC2, 0, 0, 12}, header + le32(crc32Of(header))) +
            " t1000"));
    }
    if (!deflated && name != "velk3_4k.bin") {
        QVERIFY(lastEvents(events, 2).first().startsWith("error "));
        QVERIFY(!microcode || run.bus.describedTransfers().filter("> c1").isEmpty());
    }
}

void TestImages::aSizeOfZeroEmitsNoProgress_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QStringList>("before"); // what the image before it emits
    QTest::newRow("microcode") << QByteArray("sorn3.img") << QStringList();
    QTest::newRow("framed bitstream") << QByteArray("sorn3.bin") << progressLines({51});
    QTest::newRow("raw bitstream") << QByteArray("velk3_4k.bin") << progressLines({34});
}

void TestImages::aSizeOfZeroEmitsNoProgress()
{
    QFETCH(QByteArray, name);
    QFETCH(QStringList, before);
    const QByteArray product = name.left(name.indexOf('.'));
    PackageEntry liar{name, patternBytes(8192)};
    liar.statedSize = 0;
    UpdateRun run;
    const auto *device = run.bus.plug("a", productOf(product).runningId);
    const QStringList events =
        run.run(recordOf(device),
                with(packageEntries(productOf(product), smallContent(productOf(product))), liar));
    const QStringList expected = progressLines({1, 2}) + before;
    QCOMPARE(events.mid(0, expected.size()), expected);
    QVERIFY2(events.at(expected.size()).startsWith("error "), qPrintable(events.join('\n')));
}

void TestImages::aCountFarBeyondTheStatedSizeIsNoOverflow()
{
    // A package that states a few bytes and unpacks to hundreds of megabytes gets here block by
    // block; a device that claims as much gets here at once. The number is nonsense, but it must
    // not be undefined, which UndefinedBehaviorSanitizer watches.
    const qint64 claimed = 0x7FFFFFFF;
    UpdateRun run;
    run.bus.answer(0xC6, {int(claimed)});
    const auto *device = run.bus.plug("a", velk3.runningId);
    PackageContent images = smallContent(velk3);
    images.fx3 = patternBytes(32);
    const QStringList events = run.run(recordOf(device), packageEntries(velk3, images));
    // 2 + 32 * claimed / 32, of which an int keeps the low 32 bits: 0x80000001
    QCOMPARE(events.mid(0, 3), progressLines({1, 2, -0x7FFFFFFF}));
    QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
}

void TestImages::edidOfAnySizeIsSentAtOnce_data()
{
    QTest::addColumn<int>("blocks");
    QTest::newRow("128 bytes") << 1;
    QTest::newRow("256 bytes") << 2;
    QTest::newRow("text of many pieces") << 32;
}

void TestImages::edidOfAnySizeIsSentAtOnce()
{
    QFETCH(int, blocks);
    const QByteArray edid = edidBlocks(blocks);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    const PackageContent images{{}, {}, {}, edidText(edid)};
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, images)),
             progressLines({1, 2, 21, 40, 59, 78, 97, 100}) + QStringList("complete"));
    QCOMPARE(run.bus.describedTransfers(), edidRequests(edid));
}

// A transfer fails by its code alone; how much went through says nothing.
void TestImages::edidOfWhichNothingArrivesIsCompleted()
{
    UpdateRun run;
    run.bus.onTransfer([](const ScriptedTransfer &transfer) -> std::optional<int> {
        return transfer.request == 0xD2 ? std::optional<int>(0) : std::nullopt;
    });
    const auto *device = run.bus.plug("a", velk3.runningId);
    const PackageContent images{{}, {}, {}, edidText(edidBlocks(1))};
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, images)),
             progressLines({1, 2, 21, 40, 59, 78, 97, 100}) + QStringList("complete"));
    QCOMPARE(run.bus.describedTransfers(), edidRequests(edidBlocks(1)));
}

void TestImages::badEdidIsReportedBeforeAnyRequest_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("diagnostic");
    const QByteArray line("0 | 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
    QTest::newRow("empty file") << QByteArray("") << "EDID data has incorrect format"
                                << "Unexpected lines count: 0, should be dividable by 8\n";
    QTest::newRow("only the heading") << QByteArray("1\n2\n3\n") << "EDID data has incorrect format"
                                      << "Unexpected lines count: 0, should be dividable by 8\n";
    QTest::newRow("nine lines") << "1\n2\n3\n" + line.repeated(9)
                                << "EDID data has incorrect format"
                                << "Unexpected lines count: 9, should be dividable by 8\n";
    QTest::newRow("no bar") << QByteArray("1\n2\n3\nx\n") << "EDID data has incorrect format"
                            << "Error: vertical delimiter (|) not found, line: 1\n";
    QTest::newRow("good lines without end")
        << "1\n2\n3\n" + line.repeated(8 * 60000) << "EDID data has incorrect format"
        << "";
    QTest::newRow("checksum") << "1\n2\n3\n" + line.repeated(7) +
                                     "0 | 40 0 0 0 0 0 0 0 0 0 0 0 0 0 0 30\n"
                              << "EDID data has incorrect checksum"
                              << "Checksum of the block 0 mismatch, expected: 0x40, readed: 0x30\n";
}

void TestImages::badEdidIsReportedBeforeAnyRequest()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, error);
    QFETCH(QString, diagnostic);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, PackageContent{{}, {}, {}, text})),
             progressLines({1, 2, 21}) + errorEnding(error));
    QCOMPARE(QString::fromStdString(run.standardError.text()), diagnostic);
    QVERIFY(run.bus.transfers().empty());
    QCOMPARE(run.bus.handleCalls(), opening("a") + QStringList("pause 1") + givingBack("a"));
}

void TestImages::edidIsReadUpToABound_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("taken");
    // Whatever the heading holds is skipped, and NUL bytes in it do not even make the text longer.
    // Letters after them keep what follows in pieces of its own.
    const QByteArray text = QByteArray(4095, 'x') + edidText(edidBlocks(1));
    const int rest = 16 * 1024 * 1024 - text.size();
    QTest::newRow("16777216 bytes") << QByteArray(rest, 'x') + text << true;
    QTest::newRow("16777217 bytes") << QByteArray(rest + 1, 'x') + text << false;
    QTest::newRow("16777216 bytes, most of them NUL") << QByteArray(rest, '\0') + text << true;
    QTest::newRow("16777217 bytes, most of them NUL") << QByteArray(rest + 1, '\0') + text << false;
}

void TestImages::edidIsReadUpToABound()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, taken);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    const PackageEntry edid{"edid_velk3_uvc.edid", text, true};
    const QStringList events = run.run(recordOf(device), {{"product.info", "velk3\n"}, edid});
    if (taken) {
        QCOMPARE(lastEvents(events, 2), (QStringList{"progress 100", "complete"}));
        QCOMPARE(run.bus.describedTransfers(), edidRequests(edidBlocks(1)));
    } else {
        QCOMPARE(events, progressLines({1, 2, 21}) + errorEnding("EDID data has incorrect format"));
        QVERIFY(run.bus.transfers().empty());
    }
}

void TestImages::edidThatCannotBeReadToItsEndIsNotSent_data()
{
    QTest::addColumn<bool>("deflated");
    QTest::addColumn<bool>("cut"); // the archive states one byte too many
    QTest::newRow("wrong CRC, stored") << false << false;
    QTest::newRow("wrong CRC, deflated") << true << false;
    QTest::newRow("shorter than stated") << false << true;
}

// All of the text arrives before the damage shows.
void TestImages::edidThatCannotBeReadToItsEndIsNotSent()
{
    QFETCH(bool, deflated);
    QFETCH(bool, cut);
    PackageEntry damaged{"edid_velk3_uvc.edid", edidText(edidBlocks(1)), deflated};
    if (cut) {
        damaged.statedSize = static_cast<quint32>(damaged.data.size() + 1);
    } else {
        damaged.statedCrc = 0x12345678;
    }
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), {{"product.info", "velk3\n"}, damaged}),
             progressLines({1, 2, 21}) + errorEnding("EDID data has incorrect format"));
    QVERIFY(run.bus.transfers().empty());
}

void TestImages::edidProgressComesBetweenReadingAndParsing()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("package.fw");
    writeFile(path, zipArchive({{"a.edid", "1\n2\n3\nno delimiter\n"}}));
    Zip zip(path.toStdString());
    const CapturedStream standardError(std::cerr);
    QStringList events;
    // Parsing is seen by what it says of the text.
    const UpdateReport report{
        [&](int percent) {
            const auto reads = zipcalls::log().filter("zip_fread").size();
            events.append(QStringLiteral("progress %1, %2, %3")
                              .arg(percent)
                              .arg(reads > 1 ? "read" : "not read")
                              .arg(standardError.text().empty() ? "not parsed" : "parsed"));
        },
        [&](const QString &text) { events.append(text); }};
    zipcalls::reset();
    QCOMPARE(write_edid(nullptr, report, 0, 100, "a.edid", zip), -1);
    QCOMPARE(events,
             (QStringList{"progress 20, read, not parsed", "EDID data has incorrect format"}));
    QVERIFY(!standardError.text().empty());
}

void TestImages::edidThatCannotBeOpenedIsReported()
{
    PackageEntry secret{"edid_velk3_uvc.edid", edidText(edidBlocks(1))};
    secret.encrypted = true;
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), {{"product.info", "velk3\n"}, secret}),
             progressLines({1, 2}) + errorEnding("Can't open EDID file"));
    QCOMPARE(run.debugLines().last(), QStringLiteral("Can't open file"));
    QVERIFY(run.bus.transfers().empty());
}

void TestImages::edidIsReadInPiecesThatANulCutsShort()
{
    // The first piece is 4095 bytes; what stands between a NUL in it and its end is lost, and the
    // text goes on with the second piece. The junk would spoil the text if it were kept.
    const QByteArray text = edidText(edidBlocks(1));
    QByteArray file = text.left(300);
    file += '\0';
    file += QByteArray(4095 - file.size(), 'J');
    file += text.mid(300);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    QVERIFY(run.run(recordOf(device), packageEntries(velk3, PackageContent{{}, {}, {}, file}))
                .contains("progress 100"));
    QCOMPARE(run.bus.describedTransfers(), edidRequests(edidBlocks(1)));
}

void TestImages::edidFailuresAreLogged_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<QString>("log");
    QTest::newRow("start") << 0 << "Can't initiate EDID IO access (err: -9";
    QTest::newRow("write") << 1 << "Can't send EDID data to the device (err:  -9";
    QTest::newRow("complete") << 2 << "Can't finalize EDID IO access (err:  -9";
}

void TestImages::edidFailuresAreLogged()
{
    QFETCH(int, failing);
    QFETCH(QString, log);
    UpdateRun run;
    run.bus.failTransfer(failing, LIBUSB_ERROR_PIPE);
    const auto *device = run.bus.plug("a", velk3.runningId);
    const PackageContent images{{}, {}, {}, smallContent(velk3).edid};
    run.run(recordOf(device), packageEntries(velk3, images));
    QVERIFY2(run.debugLines().last().startsWith(log), qPrintable(run.debugLines().last()));
}

QTEST_GUILESS_MAIN(TestImages)
#include "tst_images.moc"
