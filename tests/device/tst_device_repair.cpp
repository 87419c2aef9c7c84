#include "devicetest.h"

#include <QTest>

// Repair mode: the sandbox goes into a boot loader's RAM, is started, comes back under an identity
// of its own and takes a regular update there.
class TestRepair : public DeviceTest
{
    Q_OBJECT

private slots:
    void legacyPackageFromSoftRepair();
    void deviceUnderItsOtherRepairIdentity();
    void secondIdentityIsTriedAfterTheFirst();
    void deviceThatNeverComesBack();
    void deviceThatComesBackLateIsRepairedByASecondPress();
    void deviceThatComesBackDenied();
    void runningSandboxIsLoadedAnew();
    void packageOfAnotherProductFindsNoDevice();

private:
    void compareRepair(const ProductFacts &product, const char *mode);
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

const QStringList s_bootLoaderProbe{"open", "close"};

QStringList withoutScan(const SimRun &run)
{
    return run.transcript().work("g").mid(s_bootLoaderProbe.size());
}

QByteArray soft(const ProductFacts &product, const QByteArray &words = {})
{
    return sceneOf(product, "mode soft\nreturn after 300\n" + words);
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
                                                  WireModel().repair(product, images).lines() +
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

void TestRepair::legacyPackageFromSoftRepair()
{
    compareRepair(legacyVelk3, "soft");
}

void TestRepair::deviceUnderItsOtherRepairIdentity()
{
    compareRepair(sorn3, "soft-f");
}

void TestRepair::secondIdentityIsTriedAfterTheFirst()
{
    const Images images = repairImages(velk3_4k);
    SimRun run(sceneOf(velk3_4k, "mode soft\nreturn after 300 as e5c1:364f"),
               {"scan", "update", "S1", save("p", velk3_4k, images)});
    RUN(run);
    COMPARE_LINES(withoutScan(run), WireModel().repair(velk3_4k, images).lines());
    COMPARE_MEMORIES(run, images);
    QVERIFY(run.errorsOf(2).isEmpty());
    // Looked for as 363f, in vain, and then as 364f.
    QCOMPARE(run.standardError().count("\nNo device\n"), 1);
    QCOMPARE(run.standardError().count("\nOpen device by adressing info\n"), 3);
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
                  WireModel().repair(velk3, images).lines() + WireModel().probe().lines());
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

QTEST_GUILESS_MAIN(TestRepair)
#include "tst_device_repair.moc"
