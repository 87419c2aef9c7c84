#include "devicetest.h"

#include <QCoreApplication>
#include <QTest>

#include <cstdio>
#include <cstring>

// Bricks and their rescue: a regular update is cut at each of its transfers in turn, the device is
// power-cycled, and the same program brings it back to memories that equal the package.
//
// `tst_device_rescue --matrix-size` prints how many cuts that makes.
class TestRescue : public DeviceTest
{
    Q_OBJECT

private slots:
    // Four shares of each, since most of the time goes by in pauses.
    void velk3_share1() { rescue(velk3, 0); }
    void velk3_share2() { rescue(velk3, 1); }
    void velk3_share3() { rescue(velk3, 2); }
    void velk3_share4() { rescue(velk3, 3); }
    void sorn3_share1() { rescue(sorn3, 0); }
    void sorn3_share2() { rescue(sorn3, 1); }
    void sorn3_share3() { rescue(sorn3, 2); }
    void sorn3_share4() { rescue(sorn3, 3); }
    void velk3_4k_share1() { rescue(velk3_4k, 0); }
    void velk3_4k_share2() { rescue(velk3_4k, 1); }
    void velk3_4k_share3() { rescue(velk3_4k, 2); }
    void velk3_4k_share4() { rescue(velk3_4k, 3); }
    void legacy_share1() { rescue(legacyVelk3, 0); }
    void legacy_share2() { rescue(legacyVelk3, 1); }
    void legacy_share3() { rescue(legacyVelk3, 2); }
    void legacy_share4() { rescue(legacyVelk3, 3); }

private:
    void rescue(const ProductFacts &product, int share);
};

namespace {

constexpr int Shares = 4;
constexpr int BusyPolls = 1;
constexpr int Fx3Size = 8200;  // three blocks
constexpr int FpgaSize = 4100; // two

// One transfer of an update: what the user has seen of the progress when the device vanishes there,
// what he reads, and whether the device is broken then.
struct Cut
{
    QList<int> progress;
    QStringList errors;
    bool broken;
};

// Written down along the protocol: a device is broken from the start of an image to its completion.
class CutList
{
public:
    explicit CutList(const ProductFacts &product)
    {
        // Three steps of 32 percent, or two of 49.
        const int share = product.edidName ? 32 : 49;
        microcode(blockProgress(2, 2 + share, Fx3Size));
        bitstream(product.framed, blockProgress(2 + share, 2 + 2 * share, FpgaSize));
        if (product.edidName) {
            progress += {72, 78};
            add("Can't initiate EDID IO access (err: -4)", false);
            progress += 84;
            add("Can't send EDID data to the device (err: -4)", false);
            progress += 90;
            add("Can't finalize EDID IO access (err: -4)", false);
        }
    }

    const std::vector<Cut> &all() const { return cuts; }

private:
    void microcode(const QList<int> &blocks)
    {
        const QString reason = "No such device (it may have been disconnected)";
        add("Error: failed to start microcode reflashing: " + reason, false);
        polls();
        for (const int block : blocks) {
            add("Error: failed to write microcode block: " + reason, true);
            progress += block;
            polls();
        }
        add("Error: failed to complete microcode reflash: " + reason, true);
    }

    void bitstream(bool framed, const QList<int> &blocks)
    {
        const QString reason = "LIBUSB_ERROR_NO_DEVICE";
        add("Error: failed to start FPGA reflashing: " + reason, false);
        polls();
        if (framed) {
            add("Error: failed to write FPGA header block:  " + reason, true);
        }
        for (const int block : blocks) {
            add("Error: failed to write FPGA block:  " + reason, true);
            progress += block;
            polls();
        }
        if (framed) {
            add("Error: failed FPGA CRC check: " + reason, true);
            cuts.back().errors += pollError; // the CRC's failure alone does not end the update
            polls();
        }
        add("Error: failed to complete FPGA reflash: " + reason, true);
    }

    void polls()
    {
        for (int i = 0; i < BusyPolls + 1; ++i) {
            add(pollError, true);
        }
    }

    void add(const QString &error, bool broken) { cuts.push_back({progress, {error}, broken}); }

    const QString pollError = "Error: failed to connect to FPGA: LIBUSB_ERROR_NO_DEVICE";
    QList<int> progress{1, 2}; // so far
    std::vector<Cut> cuts;
};

// The transfers of a cut update: the last one is not answered.
QStringList cutWire(const QStringList &whole, int cutAt)
{
    QStringList wire = whole.mid(0, cutAt + 1);
    QString &last = wire.last();
    if (last.startsWith('<')) {
        last = last.left(last.lastIndexOf(' ')); // less the answer
    }
    last += " no-device";
    return wire;
}

// Every vendor request of the whole story.
QStringList storyWire(const ProductFacts &product, const Images &images, int cutAt, bool broken)
{
    const QString ping = "< c8 v0 i0 1 01";
    const QStringList update = WireModel(BusyPolls).regularUpdate(product, images).lines();
    QStringList story{ping};
    story += cutWire(update, cutAt);
    if (broken) {
        story += WireModel().loadSandbox(images).startAt(images.entry).lines();
    } else {
        story += ping;
    }
    return story + update + QStringList{ping};
}

void checkStory(SimRun &run, const ProductFacts &product, const Images &images, int cutAt,
                const Cut &cut)
{
    QStringList seen = goodUpdate(cut.progress);
    seen.removeLast();
    for (const QString &error : cut.errors) {
        seen += "error " + error;
    }
    COMPARE_LINES(run.signalsOf(3), seen + QStringList{"complete"});

    const QJsonObject wreck = run.devicesOf(5).value(0);
    QCOMPARE(wreck["mode"].toInt(-1), cut.broken ? 1 : 0);
    QCOMPARE(wreck["modeText"].toString(), cut.broken ? "Soft Repair Mode" : "");
    const QString id = QString("e5c1:%1").arg(wreck["productId"].toInt(), 0, 16);
    QCOMPARE(id, cut.broken ? product.softId : product.runningId);

    const QStringList rescued = run.signalsOf(6);
    QVERIFY(run.errorsOf(6).isEmpty());
    QCOMPARE(rescued.count("complete"), 1);
    COMPARE_LINES(rescued.mid(rescued.size() - 2), QStringList({"progress 100", "complete"}));
    COMPARE_MEMORIES(run, images);
    QCOMPARE(run.devicesOf(8).value(0)["mode"].toInt(-1), 0);
    QCOMPARE(run.devicesOf(8).value(0)["versionString"].toString(), "7.8.9");

    COMPARE_LINES(run.transcript().texts("g", {SimLine::Vendor}),
                  storyWire(product, images, cutAt, cut.broken));
    VERIFY_BALANCED(run);
}

} // namespace

void TestRescue::rescue(const ProductFacts &product, int share)
{
    const Images images = makeImages(product, Fx3Size, FpgaSize);
    const QString package = save("p", product, images);
    const std::vector<Cut> cuts = CutList(product).all();
    QCOMPARE(int(cuts.size()), WireModel(BusyPolls).regularUpdate(product, images).lines().size());

    SimBatch batch;
    for (int cutAt = share; cutAt < int(cuts.size()); cutAt += Shares) {
        const Cut &cut = cuts[std::size_t(cutAt)];
        const QString fault = QString("fault g transfer nth %1 disconnect").arg(cutAt + 1);
        const auto check = [&product, images, cutAt, cut](SimRun &run) {
            checkStory(run, product, images, cutAt, cut);
        };
        batch.add(QString("cut at transfer %1").arg(cutAt + 1),
                  sceneOf(product, "busy-polls 1\nreturn after 300"),
                  {"scan", "control", fault, "update", "S1", package, "control", "replug g", "scan",
                   "update", "S1", package, "control", "power-cycle g", "scan"},
                  check);
    }
    batch.run(8);
}

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--matrix-size") == 0) {
        std::size_t total = 0;
        for (const ProductFacts *product : {&velk3, &sorn3, &velk3_4k, &legacyVelk3}) {
            total += CutList(*product).all().size();
        }
        std::printf("brick and rescue: %zu cuts\n", total);
        return 0;
    }
    QCoreApplication application(argc, argv);
    TestRescue test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_device_rescue.moc"
