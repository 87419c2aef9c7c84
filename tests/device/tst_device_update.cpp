#include "devicetest.h"

#include <QFile>
#include <QTest>

// The regular update of a running device: what arrives at it, what it holds afterwards, and what
// the user is told.
class TestUpdate : public DeviceTest
{
    Q_OBJECT

private slots:
    void velk3PackageArrivesByteForByte();
    void sorn3PackageArrivesByteForByte();
    void velk3_4kPackageArrivesByteForByte();
    void legacyPackageArrivesByteForByte();
    void edidOnlyPackageWritesTheEdidAlone();
    void firstProductIsUpdatedUnderItsOtherVendorId();
    void secondIdentityOfVelk3_4kIsUpdated();
    void progressOfAnUpdateWithEdid();
    void progressOfAnUpdateWithoutEdid();
    void progressOfAnEdidAlone();
    void microcodeOfEverySize();
    void microcodeOfOddSizesIsRefusedAtItsLastBlock();
    void framedBitstreamOfEverySize();
    void rawBitstreamOfEverySize();
    void deflatedEntriesArriveUnpacked();
    void readyDeviceIsPolledOnceAfterEachBlock();
    void busyDeviceIsPolledUntilItIsReady();
    void kernelDriverIsDetachedBeforeTheClaim();
    void foreignPackageDoesNotEvenOpenTheDevice();
    void onlyTheChosenDeviceIsTouched();
    void deviceIsUpdatedTwiceInOneRun();

private:
    void compareSamplePackage(const QString &sample, const ProductFacts &product);
    void compareProgress(const ProductFacts &product, const Images &images,
                         const QList<int> &progress);
    void updateAllSizes(const ProductFacts &product, bool sizeIsOfMicrocode,
                        const std::vector<int> &sizes);
};

namespace {

QByteArray sampleFile(const QString &name)
{
    QFile file(QString(CAPSO_PACKAGES "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// The packages that the project's own script makes, against the image files that it puts beside
// them.
void TestUpdate::compareSamplePackage(const QString &sample, const ProductFacts &product)
{
    Images images;
    images.fx3 = sampleFile(sample + "/fx3.bin");
    images.fpga = sampleFile(sample + "/fpga.bin");
    images.edid = sampleFile(sample + "/edid.bin");
    QVERIFY(images.fx3.size() > 4096 && images.fpga.size() > 4096);
    QCOMPARE(images.edid.isEmpty(), product.edidName == nullptr);

    SimRun run(sceneOf(product),
               {"scan", "update", "S1", CAPSO_PACKAGES "/" + sample + ".fw", "scan"});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"), WireModel()
                                                  .probe()
                                                  .openForWork()
                                                  .regularUpdate(product, images)
                                                  .giveBack()
                                                  .probe()
                                                  .lines());
    COMPARE_MEMORIES(run, images);

    const int share = product.edidName ? 32 : 49;
    QList<int> progress{1, 2};
    progress += blockProgress(2, 2 + share, images.fx3.size());
    progress += blockProgress(2 + share, 2 + 2 * share, images.fpga.size());
    if (product.edidName) {
        progress += {72, 78, 84, 90, 96};
    }
    progress += 100;
    COMPARE_LINES(run.signalsOf(2), goodUpdate(progress));
    QCOMPARE(run.devicesOf(3).value(0)["versionString"].toString(), "2.0.0");
}

void TestUpdate::velk3PackageArrivesByteForByte()
{
    compareSamplePackage("velk3", velk3);
}

void TestUpdate::sorn3PackageArrivesByteForByte()
{
    compareSamplePackage("sorn3", sorn3);
}

void TestUpdate::velk3_4kPackageArrivesByteForByte()
{
    compareSamplePackage("velk3_4k", velk3_4k);
}

void TestUpdate::legacyPackageArrivesByteForByte()
{
    compareSamplePackage("legacy", legacyVelk3);
}

void TestUpdate::edidOnlyPackageWritesTheEdidAlone()
{
    const QByteArray edid = sampleFile("edid-only/edid.bin");
    QVERIFY(!edid.isEmpty() && edid.size() % 128 == 0);
    SimRun run(sceneOf(velk3), {"scan", "update", "S1", CAPSO_PACKAGES "/edid-only.fw"});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"),
                  WireModel().probe().openForWork().edid(edid).giveBack().lines());
    QCOMPARE(run.memory("g", "edid"), edid);
    COMPARE_LINES(run.signalsOf(2), goodUpdate({1, 2, 21, 40, 59, 78, 97, 100}));
}

void TestUpdate::firstProductIsUpdatedUnderItsOtherVendorId()
{
    const Images images = makeImages(velk3, 8, 8);
    SimRun run(sceneOf(velk3, "id 5555:3601"), {"scan", "update", "#0", save("p", velk3, images)});
    RUN(run);
    COMPARE_MEMORIES(run, images);
}

void TestUpdate::secondIdentityOfVelk3_4kIsUpdated()
{
    const Images images = makeImages(velk3_4k, 8, 8);
    SimRun run(sceneOf(velk3_4k, "id e5c1:3641"),
               {"scan", "update", "#0", save("p", velk3_4k, images)});
    RUN(run);
    COMPARE_MEMORIES(run, images);
}

void TestUpdate::compareProgress(const ProductFacts &product, const Images &images,
                                 const QList<int> &progress)
{
    SimRun run(sceneOf(product), {"scan", "update", "S1", save("p", product, images)});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), goodUpdate(progress));
}

void TestUpdate::progressOfAnUpdateWithEdid()
{
    compareProgress(velk3, makeImages(velk3, 10000, 5000),
                    {1, 2, 15, 28, 34, 60, 66, 72, 78, 84, 90, 96, 100});
}

void TestUpdate::progressOfAnUpdateWithoutEdid()
{
    compareProgress(sorn3, makeImages(sorn3, 10000, 5000), {1, 2, 22, 42, 51, 91, 100, 100});
}

void TestUpdate::progressOfAnEdidAlone()
{
    const Images images = makeImages(velk3_4k, 0, 0);
    const QString package =
        save("p", zipArchive({{"product.info", "velk3_4k\n"},
                              {"edid_velk3_4k_uvc.edid", edidText(images.edid)}}));
    SimRun run(sceneOf(velk3_4k), {"scan", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), goodUpdate({1, 2, 21, 40, 59, 78, 97, 100}));
    QCOMPARE(run.memory("g", "edid"), images.edid);
}

void TestUpdate::updateAllSizes(const ProductFacts &product, bool sizeIsOfMicrocode,
                                const std::vector<int> &sizes)
{
    SimBatch batch;
    for (const int size : sizes) {
        const Images images =
            sizeIsOfMicrocode ? makeImages(product, size, 8) : makeImages(product, 8, size);
        const QString title = QString::number(size);
        const auto check = [&product, images](SimRun &run) {
            COMPARE_LINES(run.transcript().work("g"), WireModel()
                                                          .probe()
                                                          .openForWork()
                                                          .regularUpdate(product, images)
                                                          .giveBack()
                                                          .lines());
            COMPARE_MEMORIES(run, images);
            QVERIFY(run.errorsOf(2).isEmpty());
            QCOMPARE(run.progressOf(2).last(), 100);
            QCOMPARE(run.signalsOf(2).count("complete"), 1);
        };
        batch.add(title, sceneOf(product), {"scan", "update", "S1", save(title, product, images)},
                  check);
    }
    batch.run();
}

void TestUpdate::microcodeOfEverySize()
{
    updateAllSizes(velk3, true, {0, 4, 4092, 4096, 4100, 8192, 10000});
}

void TestUpdate::microcodeOfOddSizesIsRefusedAtItsLastBlock()
{
    SimBatch batch;
    for (const int size : {1, 4095, 4097, 10001}) {
        const Images images = makeImages(sorn3, size, 8);
        const auto check = [images, size](SimRun &run) {
            WireModel wire;
            wire.probe().openForWork().command(0xC5).polls(0xC8);
            QStringList expected{"progress 1", "progress 2"};
            for (int at = 0; at + 4096 <= size; at += 4096) {
                wire.block(0xC6, images.fx3.mid(at, 4096)).polls(0xC8);
                expected += QString("progress %1").arg(2 + 49 * (at + 4096) / size);
            }
            expected += {"error Error: failed to read archieve %d", "complete"};
            COMPARE_LINES(run.transcript().work("g"), wire.giveBack().lines());
            COMPARE_LINES(run.signalsOf(2), expected);
            QCOMPARE(run.state("g")["microcode"].toObject()["state"].toString(), "writing");
        };
        const QString title = QString::number(size);
        batch.add(title, sceneOf(sorn3), {"scan", "update", "S1", save(title, sorn3, images)},
                  check);
    }
    batch.run();
}

void TestUpdate::framedBitstreamOfEverySize()
{
    updateAllSizes(sorn3, false, {0, 1, 4, 4095, 4096, 4097, 10000});
}

void TestUpdate::rawBitstreamOfEverySize()
{
    updateAllSizes(velk3_4k, false, {0, 1, 4, 4095, 4096, 4097, 10000});
}

void TestUpdate::deflatedEntriesArriveUnpacked()
{
    const Images images = makeImages(velk3, 10000, 9001);
    std::vector<PackageEntry> entries = packageEntries(velk3, images);
    for (PackageEntry &entry : entries) {
        entry.deflated = true;
    }
    SimRun run(sceneOf(velk3), {"scan", "update", "S1", save("p", zipArchive(entries))});
    RUN(run);
    COMPARE_MEMORIES(run, images);
}

void TestUpdate::readyDeviceIsPolledOnceAfterEachBlock()
{
    const Images images = makeImages(velk3, 4100, 4100);
    SimRun run(sceneOf(velk3, "busy-polls 0"), {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_LINES(
        run.transcript().work("g"),
        WireModel(0).probe().openForWork().regularUpdate(velk3, images).giveBack().lines());
}

void TestUpdate::busyDeviceIsPolledUntilItIsReady()
{
    const Images images = makeImages(velk3_4k, 4100, 4100);
    SimRun run(sceneOf(velk3_4k, "busy-polls 40"),
               {"scan", "update", "S1", save("p", velk3_4k, images)});
    RUN(run);
    COMPARE_LINES(
        run.transcript().work("g"),
        WireModel(40).probe().openForWork().regularUpdate(velk3_4k, images).giveBack().lines());
}

void TestUpdate::kernelDriverIsDetachedBeforeTheClaim()
{
    const Images images = makeImages(sorn3, 8, 8);
    SimRun run(
        sceneOf(sorn3, "kernel-driver uvcvideo"),
        {"scan", "control", "power-cycle g", "scan", "update", "S1", save("p", sorn3, images)});
    RUN(run);
    const QStringList work = run.transcript().work("g");
    const QStringList probe{"open",
                            "driver-detach 0 ok",
                            "claim 0 ok",
                            "< c8 v0 i0 1 01",
                            "driver-attach 0 busy",
                            "release 0 ok",
                            "close"};
    // The driver is asked back while the interface is still claimed, so it stays away until the
    // device is plugged in again.
    COMPARE_LINES(work.mid(0, probe.size()), probe);
    COMPARE_LINES(work.mid(probe.size(), probe.size()), probe);
    COMPARE_LINES(work.mid(2 * probe.size()),
                  WireModel().openForWork().regularUpdate(sorn3, images).giveBack().lines());
}

void TestUpdate::foreignPackageDoesNotEvenOpenTheDevice()
{
    const QString package = save("p", sorn3, makeImages(sorn3, 8, 8));
    SimRun run(sceneOf(velk3), {"scan", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"), WireModel().probe().lines());
    COMPARE_LINES(
        run.signalsOf(2),
        QStringList({"progress 1", "error Selected device and firmware incompatible", "complete"}));
}

void TestUpdate::onlyTheChosenDeviceIsTouched()
{
    const Images images = makeImages(velk3, 4100, 4100);
    SimRun run(
        "device g\nproduct velk3\nserial \"S1\"\ndevice twin\nproduct velk3\nserial \"S2\"\n",
        {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    COMPARE_MEMORIES(run, images);
    COMPARE_LINES(run.transcript().work("twin"), WireModel().probe().lines());
    QCOMPARE(run.memory("twin", "fx3"), QByteArray());
}

void TestUpdate::deviceIsUpdatedTwiceInOneRun()
{
    Images first = makeImages(sorn3, 4100, 4100);
    Images second = makeImages(sorn3, 8, 12);
    SimRun run(sceneOf(sorn3), {"scan", "update", "S1", save("1", sorn3, first), "update", "S1",
                                save("2", sorn3, second)});
    RUN(run);
    COMPARE_LINES(run.transcript().work("g"), WireModel()
                                                  .probe()
                                                  .openForWork()
                                                  .regularUpdate(sorn3, first)
                                                  .giveBack()
                                                  .openForWork()
                                                  .regularUpdate(sorn3, second)
                                                  .giveBack()
                                                  .lines());
    COMPARE_MEMORIES(run, second);
}

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_device_update.moc"
