#include "devicetest.h"
#include "script.h"

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
    void kernelDriverIsDetachedBeforeTheClaim();

private:
    void compareSamplePackage(const QString &sample, const ProductFacts &product);
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

    Script script;
    script.regularUpdate(product, images, 2);
    const QList<int> progress = QList<int>{1, 2} + script.progressValues() + QList<int>{100};
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

QTEST_GUILESS_MAIN(TestUpdate)
#include "tst_device_update.moc"
