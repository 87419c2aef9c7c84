#include "devicetest.h"

#include <QTest>

// Repair mode: the sandbox goes into a boot loader's RAM, is started, comes back under an identity
// of its own and takes a regular update there.
class TestRepair : public DeviceTest
{
    Q_OBJECT

private slots:
    void velk3FromSoftRepair();
    void velk3FromHardRepair();
    void sorn3FromSoftRepair();
    void sorn3FromHardRepair();
    void velk3_4kFromSoftRepair();
    void velk3_4kFromHardRepair();
    void legacyPackageFromSoftRepair();
    void deviceUnderItsOtherRepairIdentity();
    void progressIsCountedFromTheSandboxOn();
    void secondIdentityIsTriedAfterTheFirst();
    void foreignIdentityIsNotTaken();
    void deviceThatNeverComesBack();
    void deviceThatComesBackLateIsRepairedByASecondPress();
    void deviceThatComesBackDenied();
    void runningSandboxIsLoadedAnew();
    void packageOfAnotherProductFindsNoDevice();
    void badRamIsFoundByReadingBack();
    void piecesAreReadBackOneByOne();
    void addressesWrapAtTheTop();
    void longestSection();
    void trailingBytesAreIgnored();
    void imagesWithoutASignature();
    void imageCutAtEveryByte();
    void sectionsThatAreTooLong();
    void lengthThatReachesPastTheEntry();
    void wrongChecksumIsFoundAfterTheLastSection();
    void damagedEntries();
    void missingEntryDoesNothingAndSaysNothing();
    void refusedRequests();
    void shortReadBackCountsAsDifferent();
    void failureInTheSandboxStillEndsAtAHundred();

private:
    void compareRepair(const ProductFacts &product, const char *mode);
    void compareAborted(const QByteArray &sandbox, const QString &error, const QStringList &wire,
                        const QList<int> &loading);
};

namespace {

// A sandbox of several sections, one of them of several pieces.
Images repairImages(const ProductFacts &product)
{
    Images images = makeImages(product, 8192, 4100);
    images.sections = {{0x40008000, patternBytes(10000, 31)}, {0x4000C000, patternBytes(4096, 32)}};
    images.entry = 0x40008010;
    return images;
}

// Two short sections: 4 bytes, 8 + 8, 8 + 4, 8 + 4.
Images tinyImages(const ProductFacts &product)
{
    Images images = makeImages(product, 8, 8);
    images.sections = {{0x40008000, "abcdefgh"}, {0x40009000, "ijkl"}};
    images.entry = 0x40008000;
    return images;
}

// What the device sees of a repair after its scan, from the open of the boot loader to the end.
WireModel repairWire(const ProductFacts &product, const Images &images)
{
    return WireModel()
        .openForWork()
        .loadSandbox(images)
        .startAt(images.entry)
        // The boot loader has left by the time that its file is given back; libusb knows, and does
        // not even try to attach a kernel driver.
        .line("release 0 no-device")
        .line("close")
        .openForWork()
        .regularUpdate(product, images)
        .giveBack();
}

const QStringList s_bootLoaderProbe{"open", "close"};

QStringList withoutScan(const SimRun &run)
{
    return run.transcript().work("g").mid(s_bootLoaderProbe.size());
}

QStringList aborted(const WireModel &wire)
{
    return WireModel().openForWork().lines() + wire.lines() + WireModel().giveBack().lines();
}

QByteArray soft(const ProductFacts &product, const QByteArray &words = {})
{
    return sceneOf(product, "mode soft\nreturn after 300\n" + words);
}

QByteArray packageWithSandbox(const ProductFacts &product, const PackageEntry &sandbox)
{
    std::vector<PackageEntry> entries = packageEntries(product, makeImages(product, 8, 8));
    for (PackageEntry &entry : entries) {
        if (entry.name == product.sandboxName) {
            entry = sandbox;
            entry.name = product.sandboxName;
        }
    }
    return zipArchive(entries);
}

QStringList failedAfterLoading(const QList<int> &loading, const QString &error, bool hundred)
{
    QStringList lines = goodUpdate(QList<int>{1, 2} + loading);
    lines.removeLast();
    lines += "error " + error;
    if (hundred) {
        lines += "progress 100";
    }
    return lines + QStringList{"complete"};
}

} // namespace

void TestRepair::compareRepair(const ProductFacts &product, const char *mode)
{
    const Images images = repairImages(product);
    QByteArray words = QByteArray("mode ") + mode + "\nreturn after 300\n";
    SimRun run(sceneOf(product, words), {"scan", "update", "S1", save("p", product, images),
                                         "control", "power-cycle g", "scan"});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"), s_bootLoaderProbe +
                                                  repairWire(product, images).lines() +
                                                  WireModel().probe().lines());
    COMPARE_MEMORIES(run, images);

    // 4 + 8 + 10000 + 8 + 4096 + 12 bytes of sandbox: 10000 * 13 / 14128 + 2, 14096 * 13 / 14128
    // + 2.
    QList<int> progress{1, 2, 11, 14};
    // Then three steps of 28 percent, or two of 42, from 15 on.
    progress += product.edidName ? QList<int>{29, 43, 70, 71, 76, 81, 86, 91, 96}
                                 : QList<int>{36, 57, 98, 99};
    progress += 100;
    COMPARE_LINES(run.signalsOf(2), goodUpdate(progress));

    const QJsonObject row = run.devicesOf(4).value(0);
    QCOMPARE(row["mode"].toInt(-1), 0);
    QCOMPARE(row["modeText"].toString(), "");
    QCOMPARE(row["versionString"].toString(), "7.8.9");
    QCOMPARE(run.state("g")["id"].toString(), product.runningId);
}

void TestRepair::velk3FromSoftRepair()
{
    compareRepair(velk3, "soft");
}

void TestRepair::velk3FromHardRepair()
{
    compareRepair(velk3, "hard");
}

void TestRepair::sorn3FromSoftRepair()
{
    compareRepair(sorn3, "soft");
}

void TestRepair::sorn3FromHardRepair()
{
    compareRepair(sorn3, "hard");
}

void TestRepair::velk3_4kFromSoftRepair()
{
    compareRepair(velk3_4k, "soft");
}

void TestRepair::velk3_4kFromHardRepair()
{
    compareRepair(velk3_4k, "hard");
}

void TestRepair::legacyPackageFromSoftRepair()
{
    compareRepair(legacyVelk3, "soft");
}

void TestRepair::deviceUnderItsOtherRepairIdentity()
{
    compareRepair(sorn3, "soft-f");
}

void TestRepair::progressIsCountedFromTheSandboxOn()
{
    Images images = makeImages(velk3, 10000, 5000);
    images.sections = {{0x40008000, patternBytes(976, 31)}}; // 1000 bytes with its records
    SimRun run(soft(velk3), {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    // 976 * 13 / 1000 + 2; 15 to 43 in 10000 bytes; 43 to 71 in 5000 bytes; fifths of 28
    COMPARE_LINES(run.signalsOf(2),
                  goodUpdate({1, 2, 14, 26, 37, 43, 65, 71, 76, 81, 86, 91, 96, 100}));
}

void TestRepair::secondIdentityIsTriedAfterTheFirst()
{
    const Images images = repairImages(velk3_4k);
    SimRun run(sceneOf(velk3_4k, "mode soft\nreturn after 300 as e5c1:364f"),
               {"scan", "update", "S1", save("p", velk3_4k, images)});
    RUN(run);
    COMPARE_LINES(withoutScan(run), repairWire(velk3_4k, images).lines());
    COMPARE_MEMORIES(run, images);
    QVERIFY(run.errorsOf(2).isEmpty());
    // Looked for as 363f, in vain, and then as 364f.
    QCOMPARE(run.standardError().count("\nNo device\n"), 1);
    QCOMPARE(run.standardError().count("\nOpen device by adressing info\n"), 3);
}

void TestRepair::foreignIdentityIsNotTaken()
{
    const Images images = tinyImages(velk3);
    SimRun run(sceneOf(velk3, "mode soft\nreturn after 300 as e5c1:362f"),
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2),
                  failedAfterLoading({4, 5}, "Error: Failed to install driver", false));
    COMPARE_LINES(withoutScan(run), WireModel()
                                        .openForWork()
                                        .loadSandbox(images)
                                        .startAt(images.entry)
                                        .line("release 0 no-device")
                                        .line("close")
                                        .lines());
}

void TestRepair::deviceThatNeverComesBack()
{
    SimBatch batch;
    for (const ProductFacts *product : {&velk3, &velk3_4k}) {
        const Images images = tinyImages(*product);
        const int identities = product == &velk3_4k ? 2 : 1;
        const auto check = [=](SimRun &run) {
            COMPARE_LINES(run.signalsOf(2),
                          failedAfterLoading({4, 5}, "Error: Failed to install driver", false));
            QCOMPARE(run.standardError().count("\nNo device\n"), identities);
            VERIFY_BALANCED(run);
        };
        batch.add(product->key, sceneOf(*product, "mode soft\nreturn never"),
                  {"scan", "update", "S1", save(product->key, *product, images)}, check);
    }
    batch.run();
}

// The search comes too early; but the sandbox then runs, shows a repair identity, and takes the
// same treatment again.
void TestRepair::deviceThatComesBackLateIsRepairedByASecondPress()
{
    const Images images = tinyImages(velk3);
    const QString package = save("p", velk3, images);
    SimRun run(sceneOf(velk3, "mode soft\nreturn after 9000"),
               {"scan", "update", "S1", package, "control", "set g return after 300",
                "scan-until-found", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2),
                  failedAfterLoading({4, 5}, "Error: Failed to install driver", false));
    QCOMPARE(run.devicesOf(4).value(0)["productId"].toInt(), 0x360F);
    COMPARE_MEMORIES(run, images);
    QVERIFY(run.errorsOf(5).isEmpty());
    QCOMPARE(run.signalsOf(5).last(), "complete");
}

void TestRepair::deviceThatComesBackDenied()
{
    SimRun run("allow-denial\n" + sceneOf(velk3, "mode soft\nreturn after 300 denied"),
               {"scan", "update", "S1", save("p", velk3, tinyImages(velk3))});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2),
                  failedAfterLoading({4, 5}, "Error: Failed to install driver", false));
    QVERIFY(run.standardError().contains("LIBUSB_ERROR_ACCESS. Continue search..."));
}

void TestRepair::runningSandboxIsLoadedAnew()
{
    const Images images = repairImages(velk3);
    SimRun run(
        sceneOf(velk3, "mode sandbox\nreturn after 300"),
        {"scan", "update", "S1", save("p", velk3, images), "control", "power-cycle g", "scan"});
    RUN(run);
    QCOMPARE(run.devicesOf(1).value(0)["productId"].toInt(), 0x360F);
    QCOMPARE(run.devicesOf(1).value(0)["modeText"].toString(), "Soft Repair Mode");
    COMPARE_LINES(withoutScan(run),
                  repairWire(velk3, images).lines() + WireModel().probe().lines());
    COMPARE_MEMORIES(run, images);
    QCOMPARE(run.devicesOf(4).value(0)["versionString"].toString(), "7.8.9");
}

// A repair identity says nothing of the product, so the package is accepted; its sandbox identity
// then never shows.
void TestRepair::packageOfAnotherProductFindsNoDevice()
{
    SimRun run(soft(sorn3), {"scan", "update", "S1", save("p", velk3, tinyImages(velk3))});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2),
                  failedAfterLoading({4, 5}, "Error: Failed to install driver", false));
}

void TestRepair::badRamIsFoundByReadingBack()
{
    const Images images = tinyImages(velk3);
    SimRun run(soft(velk3, "bad-ram 0x40009002"),
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), failedAfterLoading({4, 5}, "Fail to verify image", true));
    const QString readBack = "< a0 v9000 i4000 4 " + QByteArray("ij\x94l").toHex();
    WireModel wire;
    wire.piece(0x40008000, "abcdefgh").line("> a0 v9000 i4000 4 696a6b6c").line(readBack);
    COMPARE_LINES(withoutScan(run), aborted(wire));
}

void TestRepair::piecesAreReadBackOneByOne()
{
    Images images = tinyImages(velk3);
    images.sections = {{0x40001000, patternBytes(10000, 40)}};
    SimRun run(soft(velk3, "bad-ram 0x40002100"),
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    QCOMPARE(run.errorsOf(2), QStringList{"Fail to verify image"});
    const QByteArray &data = images.sections[0].data;
    QByteArray readBack = data.mid(4096, 4096);
    readBack[0x100] = char(~readBack[0x100]);
    WireModel wire;
    wire.piece(0x40001000, data.mid(0, 4096))
        .line("> a0 v2000 i4000 4096 " + showBytes(data.mid(4096, 4096)))
        .line("< a0 v2000 i4000 4096 " + showBytes(readBack));
    COMPARE_LINES(withoutScan(run), aborted(wire));
}

void TestRepair::addressesWrapAtTheTop()
{
    Images images = tinyImages(velk3);
    images.sections = {{0xFFFFF000, patternBytes(8192, 41)}, {0xFFFFFFFC, "wxyz"}};
    images.entry = 0xFFFFF000;
    SimRun run(soft(velk3), {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    const QByteArray &data = images.sections[0].data;
    const QString first = showBytes(data.mid(0, 4096));
    const QString second = showBytes(data.mid(4096));
    COMPARE_LINES(withoutScan(run).mid(2, 7),
                  QStringList({"> a0 vf000 iffff 4096 " + first, "< a0 vf000 iffff 4096 " + first,
                               "> a0 v0 i0 4096 " + second, "< a0 v0 i0 4096 " + second,
                               "> a0 vfffc iffff 4 7778797a", "< a0 vfffc iffff 4 7778797a",
                               "> a0 vf000 iffff 0"}));
    COMPARE_MEMORIES(run, images);
}

void TestRepair::longestSection()
{
    Images images = tinyImages(velk3);
    images.sections = {{0x40000000, patternBytes(0x200000, 42)}};
    images.entry = 0x40000000;
    SimRun run(soft(velk3), {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    QVERIFY(run.errorsOf(2).isEmpty());
    COMPARE_LINES(withoutScan(run), repairWire(velk3, images).lines());
}

void TestRepair::trailingBytesAreIgnored()
{
    const Images images = tinyImages(sorn3);
    const QByteArray package =
        packageWithSandbox(sorn3, {"", images.sandbox() + patternBytes(5000, 43)});
    SimRun run(soft(sorn3), {"scan", "update", "S1", save("p", package)});
    RUN(run);
    QVERIFY(run.errorsOf(2).isEmpty());
    COMPARE_LINES(withoutScan(run), repairWire(sorn3, images).lines());
}

// A repair that ends before the start request; the device stays in its boot loader.
void TestRepair::compareAborted(const QByteArray &sandbox, const QString &error,
                                const QStringList &wire, const QList<int> &loading)
{
    SimRun run(soft(velk3),
               {"scan", "update", "S1", save("p", packageWithSandbox(velk3, {"", sandbox}))});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), failedAfterLoading(loading, error, true));
    COMPARE_LINES(withoutScan(run), wire);
    QCOMPARE(run.state("g")["mode"].toString(), "soft");
}

void TestRepair::imagesWithoutASignature()
{
    const QByteArray good = tinyImages(velk3).sandbox();
    for (const QByteArray &bad : {QByteArray(), QByteArray("C"), "cy" + good.mid(2),
                                  "YC" + good.mid(2), good.mid(1), 'C' + good.mid(2)}) {
        compareAborted(bad, "Error: failed to verify microcode signature", aborted(WireModel()),
                       {});
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

// One program, one device, and a package for each place to cut the image at.
void TestRepair::imageCutAtEveryByte()
{
    const Images images = tinyImages(velk3);
    const QByteArray whole = images.sandbox();
    QCOMPARE(whole.size(), 44);
    QStringList operations{"scan"};
    for (int cut = 0; cut < whole.size(); ++cut) {
        const QByteArray package = packageWithSandbox(velk3, {"", whole.left(cut)});
        operations += {"update", "S1", save(QString::number(cut), package)};
    }
    SimRun run(soft(velk3), operations);
    RUN(run);

    QStringList wire;
    for (int cut = 0; cut < whole.size(); ++cut) {
        WireModel sections;
        QList<int> loading;
        if (cut >= 20) {
            sections.piece(0x40008000, "abcdefgh");
            loading += 8 * 13 / cut + 2;
        }
        if (cut >= 32) {
            sections.piece(0x40009000, "ijkl");
            loading += 12 * 13 / cut + 2;
        }
        wire += aborted(sections);
        const QString error =
            cut < 2 ? "Error: failed to verify microcode signature" : "FX3 checksum error";
        const QString difference =
            firstDifference(run.signalsOf(2 + cut), failedAfterLoading(loading, error, true));
        QVERIFY2(difference.isEmpty(), qPrintable(QString("cut at %1: ").arg(cut) + difference));
    }
    COMPARE_LINES(withoutScan(run), wire);
}

void TestRepair::sectionsThatAreTooLong()
{
    const QByteArray head("CY\x1C\xB0", 4);
    const QByteArray first = le32(1) + le32(0x40008000) + "abcd";
    const WireModel sent = WireModel().piece(0x40008000, "abcd");
    // A word more than fits; lengths whose bytes wrap to 4, to 0 and to -4; and half of everything.
    for (const quint32 words : {0x80001U, 0x40000001U, 0x40000000U, 0xFFFFFFFFU, 0x80000000U}) {
        const QByteArray data = words == 0x80001 ? patternBytes(0x200004, 44) : patternBytes(64);
        const QByteArray image = head + first + le32(words) + le32(0x40009000) + data + le32(0) +
                                 le32(0x40008000) + le32(0);
        compareAborted(image, "FX3 checksum error", aborted(sent), {4 * 13 / image.size() + 2});
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

void TestRepair::lengthThatReachesPastTheEntry()
{
    const QByteArray image = QByteArray("CY\x1C\xB0", 4) + le32(1) + le32(0x40008000) + "abcd" +
                             le32(1000) + le32(0x40009000) + patternBytes(80);
    // 4 * 13 / 104 + 2
    compareAborted(image, "FX3 checksum error", aborted(WireModel().piece(0x40008000, "abcd")),
                   {2});
}

void TestRepair::wrongChecksumIsFoundAfterTheLastSection()
{
    const Images images = tinyImages(velk3);
    QByteArray image = images.sandbox();
    image[image.size() - 1] = char(image[image.size() - 1] ^ 1);
    compareAborted(image, "FX3 checksum error", aborted(WireModel().loadSandbox(images)), {4, 5});
}

void TestRepair::damagedEntries()
{
    Images images = tinyImages(velk3);
    images.sections = {{0x40008000, patternBytes(64, 5)}, {0x40009000, patternBytes(200000, 6)}};
    PackageEntry broken{"", images.sandbox(), true};
    broken.damagedBytes = 70000; // more than a deflate block, so one of them loses its header
    PackageEntry encrypted{"", images.sandbox()};
    encrypted.encrypted = true;

    SimRun run(soft(velk3), {"scan", "update", "S1", save("1", packageWithSandbox(velk3, broken)),
                             "update", "S1", save("2", packageWithSandbox(velk3, encrypted))});
    RUN(run);
    // What libzip could not unpack is not sent.
    const QStringList expected =
        aborted(WireModel().piece(0x40008000, images.sections[0].data)) + aborted(WireModel());
    QCOMPARE(run.errorsOf(2), QStringList{"FX3 checksum error"});
    QCOMPARE(run.errorsOf(3), QStringList{});
    COMPARE_LINES(run.signalsOf(3), goodUpdate({1, 2, 100}));
    COMPARE_LINES(withoutScan(run), expected);
}

// The EDID alone makes a valid package, but nothing with which a boot loader could be helped.
void TestRepair::missingEntryDoesNothingAndSaysNothing()
{
    const QByteArray package =
        zipArchive({{"product.info", "velk3\n"}, {"edid_velk3_uvc.edid", edidText(edidBlocks(1))}});
    SimRun run(soft(velk3), {"scan", "update", "S1", save("p", package)});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), goodUpdate({1, 2, 100}));
    COMPARE_LINES(withoutScan(run), aborted(WireModel()));
}

void TestRepair::refusedRequests()
{
    struct Case
    {
        const char *fault;
        const char *error;
        WireModel wire;
        QList<int> loading;
    };
    const QString writeError = "Error: failed to write microcode: LIBUSB_ERROR_PIPE";
    const Images images = tinyImages(velk3);
    const WireModel first = WireModel().piece(0x40008000, "abcdefgh");
    const Case cases[] = {
        {"MEMORY_ACCESS out nth 1 stall",
         "Error: failed to write microcode: LIBUSB_ERROR_PIPE",
         WireModel().line("> a0 v8000 i4000 8 6162636465666768 stall"),
         {4}},
        {"MEMORY_ACCESS in nth 1 stall",
         "Error: failed to write microcode: LIBUSB_ERROR_PIPE",
         WireModel().line("> a0 v8000 i4000 8 6162636465666768").line("< a0 v8000 i4000 8 stall"),
         {4}},
        {"MEMORY_ACCESS out nth 2 silence",
         "Error: failed to write microcode: LIBUSB_ERROR_TIMEOUT",
         WireModel(first).line("> a0 v9000 i4000 4 696a6b6c cancelled"),
         {4, 5}},
        {"MEMORY_START stall",
         "Error: failed to start microcode: LIBUSB_ERROR_PIPE",
         WireModel().loadSandbox(images).line("> a0 v8000 i4000 0 stall"),
         {4, 5}},
        {"MEMORY_START protocol",
         "Error: failed to start microcode: LIBUSB_ERROR_IO",
         WireModel().loadSandbox(images).line("> a0 v8000 i4000 0 protocol"),
         {4, 5}},
    };
    const QString package = save("p", velk3, images);
    SimBatch batch;
    for (const Case &one : cases) {
        const auto check = [one](SimRun &run) {
            COMPARE_LINES(run.signalsOf(2), failedAfterLoading(one.loading, one.error, true));
            COMPARE_LINES(withoutScan(run), aborted(one.wire));
        };
        batch.add(one.fault, soft(velk3) + "fault g " + one.fault + '\n',
                  {"scan", "update", "S1", package}, check);
    }
    batch.run();
}

void TestRepair::shortReadBackCountsAsDifferent()
{
    const Images images = tinyImages(velk3);
    SimRun run(soft(velk3) + "fault g MEMORY_ACCESS in short 7\n",
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), failedAfterLoading({4}, "Fail to verify image", true));
}

// Whatever happens to the regular update in the sandbox, the repair itself counts as done.
void TestRepair::failureInTheSandboxStillEndsAtAHundred()
{
    const Images images = tinyImages(velk3);
    SimRun run(soft(velk3) + "fault g FX3_WRITE stall\n",
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_LINES(
        run.signalsOf(2),
        failedAfterLoading({4, 5}, "Error: failed to write microcode block: Pipe error", true));
    VERIFY_BALANCED(run);
}

QTEST_GUILESS_MAIN(TestRepair)
#include "tst_device_repair.moc"
