#include "everyfailure.h"
#include "libziptexts.h"
#include "updaterun.h"

#include "updatetask.h"

#include <QRegularExpression>
#include <QSemaphore>
#include <QtTest>

#include <zip.h>

// The regular update: what reaches the device, in which order, and what the user is told.
class TestUpdate : public QObject
{
    Q_OBJECT

private slots:
    void theCheckValueOfTheChecksumIsRight();

    void anUpdateReachesTheDeviceAsPublished_data();
    void anUpdateReachesTheDeviceAsPublished();
    void aVelk3UpdateByteForByte();
    void progressFollowsTheBytes_data();
    void progressFollowsTheBytes();
    void logLinesOfAWholeUpdate();

    void aRefusedPackageTouchesNoDevice_data();
    void aRefusedPackageTouchesNoDevice();
    void anotherProductsEdidIsNotWritten();

    void everyFailingRequestEndsTheUpdateWithItsOwnText_data();
    void everyFailingRequestEndsTheUpdateWithItsOwnText();
    void aMessageWithoutLibusbTextIsStillAMessage_data();
    void aMessageWithoutLibusbTextIsStillAMessage();
    void aRefusedChecksumIsReportedAndTheUpdateGoesOn();
    void aRefusedChecksumAndAFailedPollAreBothReported();
    void aRefusedRawCompletionEndsTheUpdate();
    void anUnknownBitstreamProtocolIsNotGuessed();
    void anyFailingCallGivesTheDeviceBack();

    void anEdidRequestWaitsTenSecondsAndEveryOtherOne_data();
    void anEdidRequestWaitsTenSecondsAndEveryOtherOne();
    void aPollThatTimesOutFailsAfterItsOneSecond_data();
    void aPollThatTimesOutFailsAfterItsOneSecond();
    void statusIsPolledUntilTheDeviceIsReady_data();
    void statusIsPolledUntilTheDeviceIsReady();
    void aStatusWithoutBytesCountsAsBusy();
    void anyStatusButZeroIsReady();

    void anUnknownModeTouchesNothing_data();
    void anUnknownModeTouchesNothing();
    void aDeviceThatIsGoneIsReported();
    void aFailedClaimIsReportedAndItsHandleClosedWithTheTask();
    void theRecordsDeviceIsLetGoWithTheUpdate_data();
    void theRecordsDeviceIsLetGoWithTheUpdate();
    void theInterfaceOfTheRecordIsUsed();
    void aKernelDriverIsDetached();

    void updatesForgetEachOther();
    void destroyingTheTaskWaitsForTheUpdate_data();
    void destroyingTheTaskWaitsForTheUpdate();
    void destroyingAnIdleTaskSaysNothing();
    void theDeviceIsGivenBackBeforeTheEndIsTold_data();
    void theDeviceIsGivenBackBeforeTheEndIsTold();
};

namespace {

// The signals that end an update with an error.
QStringList ending(const QString &text)
{
    return {"error " + text, "complete"};
}

} // namespace

void TestUpdate::theCheckValueOfTheChecksumIsRight()
{
    QCOMPARE(crc32Of("123456789"), 0xCBF43926U);
    QCOMPARE(crc32Of(QByteArray()), 0U);
}

void TestUpdate::anUpdateReachesTheDeviceAsPublished_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QByteArray>("id");
    for (const ProductFacts *product : allPackages()) {
        QTest::newRow(keyOf(*product)) << keyOf(*product) << QByteArray(product->runningId);
    }
    QTest::newRow("velk3_4k, second id") << QByteArray("velk3_4k") << QByteArray("e5c1:3641");
}

void TestUpdate::anUpdateReachesTheDeviceAsPublished()
{
    QFETCH(QByteArray, product);
    QFETCH(QByteArray, id);
    PackageContent images = smallContent(productOf(product));
    images.fx3 = patternBytes(10000, 2);
    images.fpga = patternBytes(9000, 3);
    const QByteArray edid = edidBlocks(2);
    if (images.edid) {
        images.edid = edidText(edid);
    }

    UpdateRun run;
    const auto *device = run.bus.plug("a", id);
    const QStringList events =
        run.run(recordOf(device), packageEntries(productOf(product), images));
    QCOMPARE(events.mid(events.size() - 2), (QStringList{"progress 100", "complete"}));
    QVERIFY(events.filter("error").isEmpty());

    QStringList expected = opening("a");
    expected += transferLines("a", microcodeRequests(*images.fx3));
    expected += "pause 1";
    expected += transferLines("a", bitstreamRequests(productOf(product), *images.fpga));
    if (images.edid) {
        expected += "pause 1";
        expected += transferLines("a", edidRequests(edid));
    }
    expected += givingBack("a");
    QCOMPARE(run.bus.handleCalls(), expected);
}

void TestUpdate::aVelk3UpdateByteForByte()
{
    PackageContent images = smallContent(velk3);
    images.fx3 = QByteArray("123456781234");
    images.fpga = QByteArray("123456789");
    images.edid = "1\n2\n3\n" + QByteArray("|0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n").repeated(8);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    const QStringList events = run.run(recordOf(device), packageEntries(velk3, images));
    QCOMPARE(events,
             progressLines({1, 2, 34, 66, 72, 78, 84, 90, 96, 100}) + QStringList("complete"));

    QCOMPARE(run.bus.handleCalls(),
             (QStringList{
                 "open a",
                 "kernel_driver_active a 0",
                 "claim_interface a 0",
                 "control_transfer a > c5 v0 i0 0 t1000",
                 "control_transfer a < c8 v0 i0 1 t1000",
                 "control_transfer a > c6 v0 i0 12 313233343536373831323334 t1000",
                 "control_transfer a < c8 v0 i0 1 t1000",
                 "control_transfer a > c7 v0 i0 0 t1000",
                 "pause 1",
                 "control_transfer a > c1 v0 i0 0 t1000",
                 "control_transfer a < c4 v0 i0 1 t1000",
                 // CRC-32 of 46 50 47 41 09 00 00 00 by an independent tool: 0xa3c3f913
                 "control_transfer a > c2 v0 i0 12 465047410900000013f9c3a3 t1000",
                 "control_transfer a > c2 v0 i0 9 313233343536373839 t1000",
                 "control_transfer a < c4 v0 i0 1 t1000",
                 "control_transfer a > c2 v0 i0 4 2639f4cb t1000",
                 "control_transfer a < c4 v0 i0 1 t1000",
                 "control_transfer a > c3 v0 i0 0 t1000",
                 "pause 1",
                 "control_transfer a > cf v0 i0 0 t10000",
                 // SHA-1 of 128 zero bytes, by an independent tool
                 "control_transfer a > d2 v0 i0 128 sha1:0ae4f711ef5d6e9d26c611fd2c8c8ac45ecbf9e7 "
                 "t10000",
                 "control_transfer a > d4 v0 i0 0 t10000",
                 "attach_kernel_driver a 0",
                 "release_interface a 0",
                 "close a",
             }));
}

void TestUpdate::progressFollowsTheBytes_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<bool>("edidOnly");
    QTest::addColumn<QStringList>("expected");
    // Microcode of 10000 bytes, bitstream of 5000.
    QTest::newRow("with EDID: 2 to 34 to 66 to 98")
        << QByteArray("velk3") << false
        << progressLines({1, 2, 15, 28, 34, 60, 66, 72, 78, 84, 90, 96, 100});
    QTest::newRow("raw bitstream")
        << QByteArray("velk3_4k") << false
        << progressLines({1, 2, 15, 28, 34, 60, 66, 72, 78, 84, 90, 96, 100});
    QTest::newRow("without EDID: 2 to 51 to 100")
        << QByteArray("sorn3") << false << progressLines({1, 2, 22, 42, 51, 91, 100, 100});
    QTest::newRow("EDID only: 2 to 100")
        << QByteArray("velk3") << true << progressLines({1, 2, 21, 40, 59, 78, 97, 100});
}

void TestUpdate::progressFollowsTheBytes()
{
    QFETCH(QByteArray, product);
    QFETCH(bool, edidOnly);
    QFETCH(QStringList, expected);
    PackageContent images = smallContent(productOf(product));
    images.fx3 = patternBytes(10000);
    images.fpga = patternBytes(5000);
    if (edidOnly) {
        images = PackageContent{{}, {}, {}, images.edid};
    }
    UpdateRun run;
    const auto *device = run.bus.plug("a", productOf(product).runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(productOf(product), images)),
             expected + QStringList("complete"));
    if (edidOnly) {
        QCOMPARE(run.bus.handleCalls(), opening("a") + QStringList("pause 1") +
                                            transferLines("a", edidRequests(edidBlocks(1))) +
                                            givingBack("a"));
        QVERIFY(run.debugLines().contains("Update steps: 1"));
    }
}

void TestUpdate::logLinesOfAWholeUpdate()
{
    PackageContent images = smallContent(velk3);
    images.fx3 = patternBytes(5000);
    images.fpga = patternBytes(4097);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    run.run(recordOf(device), packageEntries(velk3, images));
    QCOMPARE(run.debugLines(),
             (QStringList{"Updater start", "Deal with product:  velk3",
                          "optional file found:  edid_velk3_uvc.edid", "Update steps: 3",
                          "Initing flash...", "Flashing FX3 firmware...",
                          "Write chunk [ 1 ] size:  4096", "Write chunk [ 2 ] size:  904",
                          "Flashing complete.", "Initing flash...", "Flashing Fpga...",
                          "Write chunk [ 1 ] size:  4096", "Write chunk [ 2 ] size:  1",
                          "Flashing complete."}));
    // The sentinel update adds nothing to these streams.
    QVERIFY(QString::fromStdString(run.standardLog.flushedText()).endsWith("FPGA size: 4097\n"));
    QCOMPARE(run.standardLog.text(), run.standardLog.flushedText());
    QCOMPARE(run.standardError.text(), std::string());
}

void TestUpdate::aRefusedPackageTouchesNoDevice_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QStringList>("expected");
    const QStringList opened = progressLines({1});
    const auto with = [](const char *info, const char *missing) {
        auto entries = packageEntries(velk3, smallContent(velk3));
        entries[0].data = info;
        for (PackageEntry &entry : entries) {
            if (entry.name == missing) {
                entry.name = "other";
            }
        }
        return zipArchive(entries);
    };
    QTest::newRow("no archive") << QByteArray("text")
                                << ending("Cannot open firmware package: " +
                                          libzipText(ZIP_ER_NOZIP));
    QTest::newRow("unsupported product")
        << with("other\n", "") << opened + ending("Unsupported product: 'other'");
    QTest::newRow("incomplete") << with("velk3\n", "velk3.img")
                                << opened + ending("Invalid firmware package. File(s) not found: "
                                                   "velk3.img");
    QTest::newRow("for another device")
        << zipArchive(packageEntries(sorn3, smallContent(sorn3)))
        << opened + ending("Selected device and firmware incompatible");
}

void TestUpdate::aRefusedPackageTouchesNoDevice()
{
    QFETCH(QByteArray, file);
    QFETCH(QStringList, expected);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    const QString path = run.directory.filePath("file.fw");
    writeFile(path, file);
    QCOMPARE(run.run(recordOf(device), path), expected);
    QCOMPARE(run.bus.handleCalls(), QStringList());
}

void TestUpdate::anotherProductsEdidIsNotWritten()
{
    auto package = packageEntries(sorn3, smallContent(sorn3));
    package.push_back({"edid_velk3_uvc.edid", edidText(edidBlocks(1))});
    UpdateRun run;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    QVERIFY(run.run(recordOf(device), package).contains("progress 100"));
    QVERIFY(run.debugLines().contains("Update steps: 2"));
    QVERIFY(run.bus.describedTransfers().filter("> cf").isEmpty());
}

void TestUpdate::everyFailingRequestEndsTheUpdateWithItsOwnText_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("progress");

    struct Row
    {
        int number;
        const char *title;
        const char *text;
        enum { Name, Sentence, Number } kind;
        QStringList progress;
    };
    const QStringList start = progressLines({1, 2});
    const QStringList fx3 = progressLines({1, 2, 34});
    const QStringList fpga = progressLines({1, 2, 34, 66});
    // Microcode and bitstream are one block each. Number 10, the checksum, has tests of its own.
    const Row rows[] = {
        {0, "FX3_START", "Error: failed to start microcode reflashing: %1", Row::Sentence, start},
        {1, "FX3_STATUS", "Error: failed to connect to FPGA: %1", Row::Name, start},
        {2, "FX3_WRITE", "Error: failed to write microcode block: %1", Row::Sentence, start},
        {3, "FX3_STATUS after a block", "Error: failed to connect to FPGA: %1", Row::Name, fx3},
        {4, "FX3_COMPLETE", "Error: failed to complete microcode reflash: %1", Row::Sentence, fx3},
        {5, "FPGA_START", "Error: failed to start FPGA reflashing: %1", Row::Name, fx3},
        {6, "FPGA_STATUS", "Error: failed to connect to FPGA: %1", Row::Name, fx3},
        {7, "header", "Error: failed to write FPGA header block:  %1", Row::Name, fx3},
        {8, "FPGA_WRITE", "Error: failed to write FPGA block:  %1", Row::Name, fx3},
        {9, "FPGA_STATUS after a block", "Error: failed to connect to FPGA: %1", Row::Name, fpga},
        {11, "FPGA_STATUS after the checksum", "Error: failed to connect to FPGA: %1", Row::Name,
         fpga},
        {12, "FPGA_COMPLETE", "Error: failed to complete FPGA reflash: %1", Row::Name, fpga},
        {13, "EDID_START", "Can't initiate EDID IO access (err: %1)", Row::Number,
         fpga + progressLines({72, 78})},
        {14, "EDID_WRITE", "Can't send EDID data to the device (err: %1)", Row::Number,
         fpga + progressLines({72, 78, 84})},
        {15, "EDID_COMPLETE", "Can't finalize EDID IO access (err: %1)", Row::Number,
         fpga + progressLines({72, 78, 84, 90})},
    };
    struct Code
    {
        int code;
        const char *name;
        const char *sentence;
    };
    const Code codes[] = {
        {-1, "LIBUSB_ERROR_IO", "Input/Output Error"},
        {-4, "LIBUSB_ERROR_NO_DEVICE", "No such device (it may have been disconnected)"},
        {-7, "LIBUSB_ERROR_TIMEOUT", "Operation timed out"},
        {-9, "LIBUSB_ERROR_PIPE", "Pipe error"},
        {-99, "LIBUSB_ERROR_OTHER", "Other error"},
    };
    for (const Row &row : rows) {
        for (const Code &code : codes) {
            const QString part = row.kind == Row::Name       ? QString(code.name)
                                 : row.kind == Row::Sentence ? QString(code.sentence)
                                                             : QString::number(code.code);
            QTest::addRow("%s, %s", row.title, code.name)
                << row.number << code.code << QString(row.text).arg(part) << row.progress;
        }
    }
}

void TestUpdate::everyFailingRequestEndsTheUpdateWithItsOwnText()
{
    QFETCH(int, failing);
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(QStringList, progress);
    UpdateRun run;
    run.bus.failTransfer(failing, code);
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             progress + ending(text));
    QCOMPARE(int(run.bus.transfers().size()), failing + 1);
    const QStringList calls = run.bus.handleCalls();
    QCOMPARE(calls.mid(calls.size() - 3), givingBack("a"));
    QVERIFY(calls.at(calls.size() - 4).startsWith("control_transfer"));
    QCOMPARE(run.bus.opens(), run.bus.closes());
    if (failing == 4 || failing == 12) {
        QCOMPARE(run.debugLines().last(), QStringLiteral("Flashing complete."));
    }
}

void TestUpdate::aMessageWithoutLibusbTextIsStillAMessage_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<QString>("text");
    QTest::newRow("sentence") << 0 << "Error: failed to start microcode reflashing: ";
    QTest::newRow("name") << 1 << "Error: failed to connect to FPGA: ";
}

void TestUpdate::aMessageWithoutLibusbTextIsStillAMessage()
{
    QFETCH(int, failing);
    QFETCH(QString, text);
    UpdateRun run;
    run.bus.giveNullTexts();
    run.bus.failTransfer(failing, LIBUSB_ERROR_IO);
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             (QStringList{"progress 1", "progress 2", "error " + text, "complete"}));
}

void TestUpdate::aRefusedChecksumIsReportedAndTheUpdateGoesOn()
{
    UpdateRun run;
    run.bus.failTransfer(10, LIBUSB_ERROR_PIPE);
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             progressLines({1, 2, 34, 66}) +
                 QStringList("error Error: failed FPGA CRC check: LIBUSB_ERROR_PIPE") +
                 progressLines({72, 78, 84, 90, 96, 100}) + QStringList("complete"));
    QCOMPARE(int(run.bus.transfers().size()), 16);
}

void TestUpdate::aRefusedChecksumAndAFailedPollAreBothReported()
{
    UpdateRun run;
    run.bus.failTransfer(11, LIBUSB_ERROR_NO_DEVICE);
    run.bus.onTransfer([](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.number == 10) {
            return LIBUSB_ERROR_PIPE;
        }
        return {};
    });
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             progressLines({1, 2, 34, 66}) +
                 QStringList("error Error: failed FPGA CRC check: LIBUSB_ERROR_PIPE") +
                 ending("Error: failed to connect to FPGA: LIBUSB_ERROR_NO_DEVICE"));
}

void TestUpdate::aRefusedRawCompletionEndsTheUpdate()
{
    UpdateRun run;
    run.bus.answer(0xC3, {LIBUSB_ERROR_PIPE});
    const auto *device = run.bus.plug("a", velk3_4k.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3_4k, smallContent(velk3_4k))),
             progressLines({1, 2, 34, 66}) +
                 ending("Error: failed to complete FPGA reflash: LIBUSB_ERROR_PIPE"));
    QCOMPARE(run.debugLines().last(), QStringLiteral("Flashing complete."));
    QVERIFY(run.bus.describedTransfers().last().startsWith("> c3"));
}

void TestUpdate::anUnknownBitstreamProtocolIsNotGuessed()
{
    ProductCatalogue catalogue = s_products;
    catalogue.at("sorn3").fpgaVersion = 99;
    const PackageContent images = smallContent(sorn3);
    UpdateRun run;
    run.catalogue = &catalogue;
    const auto *device = run.bus.plug("a", sorn3.runningId);
    // The microcode is written, then the update ends without having reached 100 percent.
    QCOMPARE(run.run(recordOf(device), packageEntries(sorn3, images)),
             progressLines({1, 2, 51}) + QStringList("complete"));
    QCOMPARE(run.bus.handleCalls(), opening("a") +
                                        transferLines("a", microcodeRequests(*images.fx3)) +
                                        QStringList("pause 1") + givingBack("a"));
}

void TestUpdate::anyFailingCallGivesTheDeviceBack()
{
    const auto attempt = [](int failing) {
        UpdateRun run;
        run.bus.failCall(failing, LIBUSB_ERROR_NO_DEVICE);
        const auto *device = run.bus.plug("a", velk3.runningId);
        const QStringList events =
            run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)));
        [&] { QCOMPARE(events.count("complete"), 1); }();
        [&] { QCOMPARE(events.last(), QStringLiteral("complete")); }();
        if (run.bus.failedCall().startsWith("control_transfer")) {
            [&] { QCOMPARE(events.filter("error ").size(), 1); }();
        }
        return run.bus.fallibleCalls();
    };
    failEachCallOnce(attempt, 21);
}

void TestUpdate::anEdidRequestWaitsTenSecondsAndEveryOtherOne_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<int>("edidRequests");
    QTest::newRow("velk3") << QByteArray("velk3") << 3;
    QTest::newRow("velk3_4k") << QByteArray("velk3_4k") << 3;
    QTest::newRow("sorn3, which takes no EDID") << QByteArray("sorn3") << 0;
}

void TestUpdate::anEdidRequestWaitsTenSecondsAndEveryOtherOne()
{
    QFETCH(QByteArray, product);
    QFETCH(int, edidRequests);
    const ProductFacts &facts = productOf(product);
    UpdateRun run;
    const auto *device = run.bus.plug("a", facts.runningId);
    QVERIFY(run.run(recordOf(device), packageEntries(facts, smallContent(facts)))
                .contains("progress 100"));
    int ofTheEdid = 0;
    for (const QString &transfer : run.bus.describedTransfers()) {
        const bool edid = QStringList{"> cf", "> d2", "> d4"}.contains(transfer.left(4));
        QVERIFY2(transfer.endsWith(edid ? " t10000" : " t1000"), qPrintable(transfer));
        ofTheEdid += edid ? 1 : 0;
    }
    QCOMPARE(ofTheEdid, edidRequests);
}

void TestUpdate::aPollThatTimesOutFailsAfterItsOneSecond_data()
{
    QTest::addColumn<int>("request");
    QTest::newRow("FX3_STATUS, which is said of the FPGA too") << 0xC8;
    QTest::newRow("FPGA_STATUS") << 0xC4;
}

// It is given its second once, and is not asked again.
void TestUpdate::aPollThatTimesOutFailsAfterItsOneSecond()
{
    QFETCH(int, request);
    UpdateRun run;
    run.bus.answer(static_cast<quint8>(request), {LIBUSB_ERROR_TIMEOUT});
    const auto *device = run.bus.plug("a", velk3.runningId);
    const QStringList events =
        run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(
        events.mid(events.size() - 2),
        (QStringList{"error Error: failed to connect to FPGA: LIBUSB_ERROR_TIMEOUT", "complete"}));
    const QString poll = QString::asprintf("< %02x v0 i0 1 t1000", request);
    QCOMPARE(run.bus.describedTransfers().filter(
                 QRegularExpression(QString::asprintf("^< %02x ", request))),
             QStringList{poll});
    QCOMPARE(run.bus.describedTransfers().last(), poll);
}

void TestUpdate::statusIsPolledUntilTheDeviceIsReady_data()
{
    QTest::addColumn<int>("request");
    QTest::newRow("microcode") << 0xC8;
    QTest::newRow("bitstream") << 0xC4;
}

void TestUpdate::statusIsPolledUntilTheDeviceIsReady()
{
    QFETCH(int, request);
    UpdateRun run;
    const QByteArray busy(1, '\0');
    run.bus.answerData(static_cast<quint8>(request), {busy, busy, busy, QByteArray(1, '\1')});
    const auto *device = run.bus.plug("a", velk3.runningId);
    QVERIFY(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)))
                .contains("progress 100"));

    const QString poll = QString::asprintf("< %02x v0 i0 1 t1000", request);
    const QStringList transfers = run.bus.describedTransfers();
    const int first = transfers.indexOf(poll);
    QCOMPARE(transfers.mid(first, 4), QStringList({poll, poll, poll, poll}));
    QVERIFY(transfers.at(first + 4).startsWith("> "));
}

void TestUpdate::aStatusWithoutBytesCountsAsBusy()
{
    UpdateRun run;
    std::vector<int> found; // in the byte before each poll
    run.bus.onTransfer([&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.request != 0xC8) {
            return {};
        }
        found.push_back(*transfer.buffer);
        if (found.size() <= 2) {
            return 0; // nothing written
        }
        return {};
    });
    const auto *device = run.bus.plug("a", velk3.runningId);
    QVERIFY(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)))
                .contains("progress 100"));
    QCOMPARE(found, (std::vector<int>{0, 0, 0, 0}));
}

void TestUpdate::anyStatusButZeroIsReady()
{
    UpdateRun run;
    run.bus.answerData(0xC8, {QByteArray(1, '\x80'), QByteArray(1, '\xFF')});
    const auto *device = run.bus.plug("a", velk3.runningId);
    QVERIFY(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)))
                .contains("progress 100"));
    QCOMPARE(int(run.bus.transfers().size()), 16);
}

void TestUpdate::anUnknownModeTouchesNothing_data()
{
    QTest::addColumn<quint32>("mode");
    QTest::newRow("3") << 3U;
    QTest::newRow("4294967295") << 0xFFFFFFFFU;
}

void TestUpdate::anUnknownModeTouchesNothing()
{
    QFETCH(quint32, mode);
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    QCOMPARE(run.run(recordOf(device, mode), packageEntries(velk3, smallContent(velk3))),
             (QStringList{"progress 1", "progress 2", "complete"}));
    QCOMPARE(run.bus.handleCalls(), opening("a") + givingBack("a"));
}

void TestUpdate::aDeviceThatIsGoneIsReported()
{
    UpdateRun run;
    auto *device = run.bus.plug("a", velk3.runningId);
    run.bus.unplug(device);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             (QStringList{"progress 1", "progress 2",
                          "error Cannot Access Device. Administrative privilegies may be required",
                          "complete"}));
    QVERIFY(run.bus.handleCalls().isEmpty());
}

void TestUpdate::aFailedClaimIsReportedAndItsHandleClosedWithTheTask()
{
    UpdateRun run;
    auto *device = run.bus.plug("a", velk3.runningId);
    device->claimResult = LIBUSB_ERROR_BUSY;
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3, smallContent(velk3))),
             (QStringList{"progress 1", "progress 2",
                          "error Cannot Access Device. Administrative privilegies may be required",
                          "complete"}));
    QCOMPARE(run.bus.handleCalls(), opening("a") + QStringList("close a"));
}

void TestUpdate::theInterfaceOfTheRecordIsUsed()
{
    UpdateRun run;
    run.bus.failTransfer(0, LIBUSB_ERROR_IO);
    DeviceDescription record = recordOf(run.bus.plug("a", velk3.runningId));
    record.interfaceNumber = 2;
    run.run(record, packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(run.bus.handleCalls(),
             (QStringList{"open a", "kernel_driver_active a 2", "claim_interface a 2",
                          "control_transfer a > c5 v0 i0 0 t1000", "attach_kernel_driver a 2",
                          "release_interface a 2", "close a"}));
}

void TestUpdate::aKernelDriverIsDetached()
{
    UpdateRun run;
    run.bus.failTransfer(0, LIBUSB_ERROR_IO);
    auto *device = run.bus.plug("a", velk3.runningId);
    device->kernelDriver = 1;
    run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)));
    QCOMPARE(run.bus.handleCalls().mid(0, 4),
             (QStringList{"open a", "kernel_driver_active a 0", "detach_kernel_driver a 0",
                          "claim_interface a 0"}));
}

void TestUpdate::updatesForgetEachOther()
{
    // The key, the missing images and the EDID of one package must not show in the next.
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3.runningId);
    const PackageContent all = smallContent(velk3);
    const std::vector<std::vector<PackageEntry>> packages{
        packageEntries(velk3, all),
        packageEntries(legacyVelk3, PackageContent{{}, {}, {}, all.edid}),
        packageEntries(legacyVelk3, PackageContent{all.fpga, all.fx3, all.sandbox, {}}),
    };

    UpdateTask task;
    QSignalSpy completed(&task, &UpdateTask::complete);
    QSignalSpy failed(&task, &UpdateTask::error);
    for (std::size_t i = 0; i < packages.size(); ++i) {
        const QString path = run.directory.filePath(QStringLiteral("%1.fw").arg(i));
        writeFile(path, zipArchive(packages[i]));
        emit task.start(recordOf(device), path);
    }
    QTRY_COMPARE_WITH_TIMEOUT(completed.count(), 3, 60000);
    QCOMPARE(failed.count(), 0);
    QCOMPARE(int(run.bus.transfers().size()), 16 + 3 + 13);
}

void TestUpdate::destroyingTheTaskWaitsForTheUpdate_data()
{
    QTest::addColumn<int>("firstResult"); // of the first request
    QTest::addColumn<int>("requests");
    QTest::addColumn<QString>("end");
    QTest::newRow("which succeeds") << 0 << 16 << "Update ended\n";
    QTest::newRow("which fails") << int(LIBUSB_ERROR_PIPE) << 1
                                 << "Update failed: Error: failed to start microcode reflashing: "
                                    "Pipe error\n";
}

void TestUpdate::destroyingTheTaskWaitsForTheUpdate()
{
    QFETCH(int, firstResult);
    QFETCH(int, requests);
    QFETCH(QString, end);
    UpdateRun run;
    QSemaphore reached;
    QSemaphore goOn;
    run.bus.onTransfer([&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.number > 1) {
            return {};
        }
        reached.release();
        goOn.acquire();
        return transfer.number == 0 ? int(LIBUSB_ERROR_PIPE) : firstResult;
    });
    const auto *device = run.bus.plug("a", velk3.runningId);
    const QString path = run.directory.filePath("package.fw");
    writeFile(path, zipArchive(packageEntries(velk3, smallContent(velk3))));
    auto task = std::make_unique<UpdateTask>();
    emit task->start(recordOf(device), path);
    QVERIFY(reached.tryAcquire(1, 60000));
    // Two more wait while this one, which fails, is under way, so that the thread takes them from
    // its queue together. The second has not begun when the task is destroyed, so it never does.
    emit task->start(recordOf(device), path);
    emit task->start(recordOf(device), path);
    goOn.release();
    QVERIFY(reached.tryAcquire(1, 60000));
    QCOMPARE(int(run.bus.transfers().size()), 2);
    run.standardLog.clear();

    // The device answers only once the task has said that it waits.
    const std::string waiting = "Update under way, waiting for its end\n";
    std::unique_ptr<QThread> releaser(QThread::create([&] {
        for (int i = 0; i < 6000 && run.standardLog.flushedText() != waiting; ++i) {
            QThread::msleep(10);
        }
        goOn.release();
    }));
    releaser->start();
    task.reset();
    QVERIFY(releaser->wait(60000));
    QCOMPARE(int(run.bus.transfers().size()), 1 + requests);
    QCOMPARE(run.bus.opens(), 2);
    QCOMPARE(run.bus.handleCalls().last(), QStringLiteral("close a"));
    const QStringList lines = QString::fromStdString(run.standardLog.flushedText()).split('\n');
    QCOMPARE(lines.first() + '\n', QString::fromStdString(waiting));
    QVERIFY(QString::fromStdString(run.standardLog.flushedText()).endsWith('\n' + end));
    QCOMPARE(lines.filter("Update ").size(), 2);
}

void TestUpdate::destroyingAnIdleTaskSaysNothing()
{
    UpdateRun run;
    run.bus.answer(0xC5, {LIBUSB_ERROR_IO});
    const auto *device = run.bus.plug("a", velk3.runningId);
    run.run(recordOf(device), packageEntries(velk3, smallContent(velk3)));
    const UpdateTask neverUsed;
    QVERIFY(!QString::fromStdString(run.standardLog.text()).contains("Update "));
}

void TestUpdate::theDeviceIsGivenBackBeforeTheEndIsTold_data()
{
    QTest::addColumn<int>("firstResult"); // of the first request
    QTest::addColumn<QStringList>("end");
    QTest::newRow("of an update which succeeds") << 0 << QStringList{"100", "complete"};
    QTest::newRow("of an update which fails") << int(LIBUSB_ERROR_PIPE) << QStringList{"complete"};
}

// Whoever hears that an update is complete may open the device at once.
void TestUpdate::theDeviceIsGivenBackBeforeTheEndIsTold()
{
    QFETCH(int, firstResult);
    QFETCH(QStringList, end);
    UpdateRun run;
    run.bus.answer(0xC5, {firstResult});
    const auto *device = run.bus.plug("a", velk3.runningId);
    const QString path = run.directory.filePath("package.fw");
    writeFile(path, zipArchive(packageEntries(velk3, smallContent(velk3))));
    UpdateTask task;
    QStringList told;
    connect(&task, &UpdateTask::progress, this, [&](int percent) {
        if (percent == 100) {
            told.append("100");
        }
    });
    connect(&task, &UpdateTask::complete, this, [&] { told.append("complete"); });
    // Signals are delivered in order: what was emitted before the device is closed arrives before
    // this.
    QStringList toldBefore{"never asked"};
    run.bus.onCall([&](const QString &call) {
        if (call != "close a") {
            return;
        }
        QSemaphore asked;
        QMetaObject::invokeMethod(this, [&] {
            toldBefore = told;
            asked.release();
        });
        asked.tryAcquire(1, 60000);
    });
    emit task.start(recordOf(device), path);
    QTRY_COMPARE_WITH_TIMEOUT(told, end, 60000);
    QCOMPARE(toldBefore, QStringList());
}

void TestUpdate::theRecordsDeviceIsLetGoWithTheUpdate_data()
{
    QTest::addColumn<int>("openResult");
    QTest::newRow("after an update") << 0;
    QTest::newRow("not opened") << int(LIBUSB_ERROR_ACCESS);
}

// A record may hold its device; the task that lives on does not.
void TestUpdate::theRecordsDeviceIsLetGoWithTheUpdate()
{
    QFETCH(int, openResult);
    UpdateRun run;
    auto *device = run.bus.plug("a", velk3.runningId);
    device->openResult = openResult;
    const QString path = run.directory.filePath("package.fw");
    writeFile(path, zipArchive(packageEntries(velk3, smallContent(velk3))));
    UpdateTask task;
    QSignalSpy completed(&task, &UpdateTask::complete);
    {
        DeviceDescription record = recordOf(device);
        record.device = libusb_ref_device(device);
        emit task.start(record, path);
    }
    // When the second has ended, the worker has done with what the first was asked with.
    emit task.start(recordOf(device), run.directory.filePath("no such file"));
    QTRY_COMPARE_WITH_TIMEOUT(completed.count(), 2, 60000);
    QCOMPARE(run.bus.transfers().empty(), openResult != 0);
    QCOMPARE(device->references, 0);
}

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_update.moc"
