#include "devicetest.h"

#include <QTest>

// Updates of a running device that go wrong: what the user reads, what the device still sees, and
// that the device is given back.
class TestFaults : public DeviceTest
{
    Q_OBJECT

private slots:
    void refusedRequestsAreNamed();
    void otherCodesAreNamed();
    void refusedCrcLetsTheDeviceDecide();
    void lostAnswerToTheCrcIsReportedAndTheUpdateGoesOn();
    void shortBlockIsTakenForWhatItIs();
    void emptyAnswerToAPollMeansBusy();
    void silentRequestIsGivenOneSecond();
    void silentEdidIsGivenTenSeconds();
    void slowEdidIsWaitedForWhereOthersAreNot();
    void deviceAtAnotherAddressIsNotTaken();
    void deviceOnAnotherPortIsNotTaken();
    void deniedDeviceIsNotOpened();
    void claimedInterfaceLeavesTheFileOpen();
    void unplugInTheMicrocodeLeavesASoftRepairDevice();
    void unplugInTheBitstreamLeavesASoftRepairDevice();
    void unplugBetweenTheImagesLeavesARunningDevice();

private:
    struct Fault
    {
        const char *words;
        QStringList errors;
    };
    void checkErrors(const ProductFacts &product, const std::vector<Fault> &faults);
    void unplug(const char *where, int mode, const char *id);
    static QStringList opsWithFault(const QString &fault, const QString &package);
};

namespace {

const QStringList s_cannotAccess{
    "progress 1", "progress 2",
    "error Cannot Access Device. Administrative privilegies may be required", "complete"};

const Images &smallImages()
{
    static const Images s_images = makeImages(velk3, 8192, 4100);
    return s_images;
}

// When the line was written, after `from`; -1 without such a line.
double timeOf(const SimRun &run, const QString &text, double from)
{
    for (const SimLine &line : run.transcript().lines("g")) {
        if (line.text == text && line.time >= from) {
            return line.time;
        }
    }
    return -1;
}

QString within(double value, double low, double high)
{
    return value >= low && value <= high
               ? QString()
               : QString("%1 ms, expected %2 to %3").arg(value).arg(low).arg(high);
}

} // namespace

// The fault is set after the scan, so that it counts from the first request of the update.
QStringList TestFaults::opsWithFault(const QString &fault, const QString &package)
{
    return {"scan", "control", "fault g " + fault, "update", "S1", package};
}

void TestFaults::checkErrors(const ProductFacts &product, const std::vector<Fault> &faults)
{
    const Images images = makeImages(product, 8192, 4100);
    const QString package = save("p", product, images);
    SimBatch batch;
    for (const Fault &fault : faults) {
        const auto check = [fault](SimRun &run) {
            COMPARE_LINES(run.errorsOf(3), fault.errors);
            const QStringList update = run.signalsOf(3);
            QCOMPARE(update.count("complete"), 1);
            QCOMPARE(update.last(), "complete");
            QVERIFY(!update.contains("progress 100"));
            // The failed request is the last thing that the device saw before it was given back.
            const QStringList work = run.transcript().work("g");
            COMPARE_LINES(work.mid(work.size() - 3), WireModel().giveBack().lines());
            VERIFY_BALANCED(run);
        };
        batch.add(fault.words, sceneOf(product), opsWithFault(fault.words, package), check);
    }
    batch.run(6);
}

void TestFaults::refusedRequestsAreNamed()
{
    // Which texts carry a name and which a sentence differs from request to request.
    checkErrors(
        velk3,
        {{"FX3_START stall", {"Error: failed to start microcode reflashing: Pipe error"}},
         {"FX3_STATUS stall", {"Error: failed to connect to FPGA: LIBUSB_ERROR_PIPE"}},
         {"FX3_WRITE nth 2 stall", {"Error: failed to write microcode block: Pipe error"}},
         {"FX3_STATUS nth 12 stall", {"Error: failed to connect to FPGA: LIBUSB_ERROR_PIPE"}},
         {"FX3_COMPLETE stall", {"Error: failed to complete microcode reflash: Pipe error"}},
         {"FPGA_START stall", {"Error: failed to start FPGA reflashing: LIBUSB_ERROR_PIPE"}},
         {"FPGA_STATUS stall", {"Error: failed to connect to FPGA: LIBUSB_ERROR_PIPE"}},
         {"FPGA_WRITE stall", {"Error: failed to write FPGA header block:  LIBUSB_ERROR_PIPE"}},
         {"FPGA_WRITE nth 3 stall", {"Error: failed to write FPGA block:  LIBUSB_ERROR_PIPE"}},
         {"FPGA_COMPLETE stall", {"Error: failed to complete FPGA reflash: LIBUSB_ERROR_PIPE"}},
         {"EDID_START stall", {"Can't initiate EDID IO access (err: -9)"}},
         {"EDID_WRITE stall", {"Can't send EDID data to the device (err: -9)"}},
         {"EDID_COMPLETE stall", {"Can't finalize EDID IO access (err: -9)"}}});
}

void TestFaults::otherCodesAreNamed()
{
    checkErrors(
        velk3_4k,
        {{"FX3_WRITE protocol", {"Error: failed to write microcode block: Input/Output Error"}},
         {"FX3_STATUS overflow", {"Error: failed to connect to FPGA: LIBUSB_ERROR_OVERFLOW"}},
         {"FX3_WRITE overflow", {"Error: failed to write microcode block: Overflow"}},
         {"FPGA_WRITE protocol", {"Error: failed to write FPGA block:  LIBUSB_ERROR_IO"}},
         {"FPGA_WRITE silence", {"Error: failed to write FPGA block:  LIBUSB_ERROR_TIMEOUT"}},
         {"FX3_START silence",
          {"Error: failed to start microcode reflashing: Operation timed out"}}});
}

// Without its CRC the device refuses the bitstream at the completion, which is asked for all the
// same.
void TestFaults::refusedCrcLetsTheDeviceDecide()
{
    const Images &images = smallImages();
    SimRun run(sceneOf(velk3), opsWithFault("FPGA_WRITE nth 4 stall", save("p", velk3, images)));
    RUN(run);
    COMPARE_LINES(run.errorsOf(3),
                  QStringList({"Error: failed FPGA CRC check: LIBUSB_ERROR_PIPE",
                               "Error: failed to complete FPGA reflash: LIBUSB_ERROR_PIPE"}));
    WireModel wire;
    wire.probe().openForWork().microcode(images.fx3).bitstream(velk3, images.fpga);
    QStringList expected =
        wire.lines().mid(0, wire.lines().size() - 6); // less CRC, polls, completion
    expected += WireModel().block(0xC2, le32(crc32Of(images.fpga))).lines().first() + " stall";
    // Nothing was stored, so the device is ready at once.
    expected += WireModel(0).polls(0xC4).lines();
    expected += "> c3 v0 i0 0 stall";
    expected += WireModel().giveBack().lines();
    COMPARE_LINES(run.transcript().work("g"), expected);
    QVERIFY(!run.signalsOf(3).contains("progress 100"));
}

void TestFaults::lostAnswerToTheCrcIsReportedAndTheUpdateGoesOn()
{
    const Images &images = smallImages();
    SimRun run(sceneOf(velk3),
               opsWithFault("FPGA_WRITE nth 4 stall performed", save("p", velk3, images)));
    RUN(run);
    COMPARE_LINES(run.errorsOf(3),
                  QStringList({"Error: failed FPGA CRC check: LIBUSB_ERROR_PIPE"}));
    COMPARE_LINES(run.signalsOf(3).mid(run.signalsOf(3).size() - 3),
                  QStringList({"progress 96", "progress 100", "complete"}));
    COMPARE_MEMORIES(run, images);
}

// A short transfer is no error: the bytes that went through are counted, and no more.
void TestFaults::shortBlockIsTakenForWhatItIs()
{
    Images images = makeImages(velk3_4k, 8192, 8);
    SimRun run(sceneOf(velk3_4k),
               opsWithFault("FX3_WRITE nth 1 short 100", save("p", velk3_4k, images)));
    RUN(run);
    // 2 + 32 * 100 / 8192 and 2 + 32 * 4196 / 8192
    COMPARE_LINES(run.signalsOf(3), goodUpdate({1, 2, 2, 18, 66, 72, 78, 84, 90, 96, 100}));
    images.fx3.remove(100, 4096 - 100);
    COMPARE_MEMORIES(run, images);
}

void TestFaults::emptyAnswerToAPollMeansBusy()
{
    const Images images = makeImages(sorn3, 8, 8);
    SimRun run(sceneOf(sorn3, "busy-polls 1"),
               opsWithFault("FX3_STATUS nth 2 short 0", save("p", sorn3, images)));
    RUN(run);
    const QStringList work = run.transcript().work("g");
    const int start = work.indexOf("> c5 v0 i0 0");
    // Were an empty answer taken for ready, the block would follow it.
    COMPARE_LINES(work.mid(start + 1, 3),
                  QStringList({"< c8 v0 i0 1 00", "< c8 v0 i0 1 short 0", "< c8 v0 i0 1 01"}));
    COMPARE_MEMORIES(run, images);
}

void TestFaults::silentRequestIsGivenOneSecond()
{
    SimRun run(sceneOf(velk3),
               opsWithFault("FX3_STATUS nth 4 silence", save("p", velk3, smallImages())));
    RUN(run);
    COMPARE_LINES(run.errorsOf(3),
                  QStringList({"Error: failed to connect to FPGA: LIBUSB_ERROR_TIMEOUT"}));
    const double started = timeOf(run, "> c5 v0 i0 0", 0);
    const double gaveUp = timeOf(run, "< c8 v0 i0 1 cancelled", started);
    const QString outside = within(gaveUp - started, 950, 8000);
    QVERIFY2(outside.isEmpty(), qPrintable(outside));
    VERIFY_BALANCED(run);
}

void TestFaults::silentEdidIsGivenTenSeconds()
{
    const QByteArray edid = edidBlocks(1);
    const QString package = save(
        "p", zipArchive({{"product.info", "velk3\n"}, {"edid_velk3_uvc.edid", edidText(edid)}}));
    struct Step
    {
        const char *fault;
        const char *error;
    };
    const Step steps[] = {
        {"EDID_START silence", "Can't initiate EDID IO access (err: -7)"},
        {"EDID_WRITE silence", "Can't send EDID data to the device (err: -7)"},
        {"EDID_COMPLETE silence", "Can't finalize EDID IO access (err: -7)"},
    };
    SimBatch batch;
    for (const Step &step : steps) {
        const QString error = step.error;
        const auto check = [error](SimRun &run) {
            COMPARE_LINES(run.errorsOf(3), QStringList({error}));
            const QVector<SimLine> lines = run.transcript().lines("g");
            double before = 0;
            double waited = 0;
            for (const SimLine &line : lines) {
                if (line.text.endsWith("cancelled")) {
                    waited = line.time - before;
                }
                before = line.time;
            }
            const QString outside = within(waited, 9900, 25000);
            QVERIFY2(outside.isEmpty(), qPrintable(outside));
            VERIFY_BALANCED(run);
        };
        batch.add(step.fault, sceneOf(velk3), opsWithFault(step.fault, package), check);
    }
    batch.run(3);
}

// An answer after three seconds is too late for everything but the EDID.
void TestFaults::slowEdidIsWaitedForWhereOthersAreNot()
{
    const Images images = makeImages(velk3, 8, 8);
    const QString package = save("p", velk3, images);
    SimBatch batch;
    for (const char *request : {"EDID_START", "EDID_WRITE", "EDID_COMPLETE"}) {
        batch.add(request, sceneOf(velk3), opsWithFault(QString(request) + " delay 3000", package),
                  [images](SimRun &run) {
                      QVERIFY(run.errorsOf(3).isEmpty());
                      COMPARE_MEMORIES(run, images);
                  });
    }
    batch.add(
        "FX3_COMPLETE", sceneOf(velk3), opsWithFault("FX3_COMPLETE delay 3000", package),
        [](SimRun &run) {
            COMPARE_LINES(
                run.errorsOf(3),
                QStringList({"Error: failed to complete microcode reflash: Operation timed out"}));
        });
    batch.add("FPGA_START", sceneOf(velk3), opsWithFault("FPGA_START delay 3000", package),
              [](SimRun &run) {
                  COMPARE_LINES(run.errorsOf(3),
                                QStringList({"Error: failed to start FPGA reflashing: "
                                             "LIBUSB_ERROR_TIMEOUT"}));
              });
    batch.run(5);
}

void TestFaults::deviceAtAnotherAddressIsNotTaken()
{
    const Images images = makeImages(sorn3, 8, 8);
    const QString package = save("p", sorn3, images);
    SimRun run(sceneOf(sorn3), {"scan", "control", "unplug g", "control", "replug g address 99",
                                "update", "S1", package, "scan", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(4), s_cannotAccess);
    QVERIFY(run.standardError().contains("\nNo device\n"));
    QCOMPARE(run.devicesOf(5).value(0)["deviceAddress"].toInt(), 99);
    COMPARE_LINES(
        run.transcript().work("g"),
        WireModel().probe().probe().openForWork().regularUpdate(sorn3, images).giveBack().lines());
    COMPARE_MEMORIES(run, images);
}

void TestFaults::deviceOnAnotherPortIsNotTaken()
{
    const QString package = save("p", sorn3, makeImages(sorn3, 8, 8));
    SimRun run("device g\nproduct sorn3\nserial \"S1\"\nport 1\naddress 30\n"
               "device twin\nproduct sorn3\nserial \"S2\"\nport 2\naddress 31\n",
               {"scan", "control", "unplug g", "control", "unplug twin", "control",
                "replug twin address 30", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(5), s_cannotAccess);
    COMPARE_LINES(run.transcript().work("twin"), WireModel().probe().lines());
}

void TestFaults::deniedDeviceIsNotOpened()
{
    const QString package = save("p", velk3, makeImages(velk3, 8, 8));
    SimRun run("allow-denial\n" + sceneOf(velk3),
               {"scan", "control", "set g access denied", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(3), s_cannotAccess);
    COMPARE_LINES(run.transcript().work("g"), WireModel().probe().lines());
    QCOMPARE(run.standardError().count("code=-3, LIBUSB_ERROR_ACCESS. Continue search..."), 1);
    QCOMPARE(run.standardError().count("\nCan't open device\n"), 1);
}

void TestFaults::claimedInterfaceLeavesTheFileOpen()
{
    const Images images = makeImages(sorn3, 8, 8);
    const QString package = save("p", sorn3, images);
    SimRun run(sceneOf(sorn3), {"scan", "control", "fault g claim busy", "update", "S1", package,
                                "update", "S1", package});
    // What the program leaves open here it leaves open on purpose; all of it is memory of libusb.
    writeFile(run.directory() + "/leaks", "leak:libusb-1.0\n");
    run.setEnvironment("LSAN_OPTIONS", "suppressions=" + run.directory() + "/leaks");
    RUN(run);
    COMPARE_LINES(run.signalsOf(3), s_cannotAccess);
    QVERIFY(run.standardError().contains("Error claim usb interface: -6\n"));
    COMPARE_LINES(run.transcript().work("g"), WireModel()
                                                  .probe()
                                                  .line("open")
                                                  .line("claim 0 busy")
                                                  .openForWork()
                                                  .regularUpdate(sorn3, images)
                                                  .giveBack()
                                                  .line("close") // by the end of the program
                                                  .lines());
    COMPARE_MEMORIES(run, images);
}

// The device is gone in the middle of an update and comes back by itself.
void TestFaults::unplug(const char *where, int mode, const char *id)
{
    const QString package = save("p", velk3, smallImages());
    SimRun run(sceneOf(velk3, "version \"1.0.0\""),
               opsWithFault(QString(where) + " disconnect", package) +
                   QStringList{"control", "replug g", "scan"});
    RUN(run);
    QCOMPARE(run.errorsOf(3).size(), 1);
    QCOMPARE(run.signalsOf(3).count("complete"), 1);
    VERIFY_BALANCED(run);
    const QVector<QJsonObject> rows = run.devicesOf(5);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows[0]["mode"].toInt(), mode);
    QCOMPARE(QString("%1:%2")
                 .arg(rows[0]["vendorId"].toInt(), 4, 16, QChar('0'))
                 .arg(rows[0]["productId"].toInt(), 4, 16, QChar('0')),
             id);
    QCOMPARE(rows[0]["modeText"].toString(), mode == 1 ? "Soft Repair Mode" : "");
}

void TestFaults::unplugInTheMicrocodeLeavesASoftRepairDevice()
{
    unplug("FX3_WRITE nth 2", 1, "e5c1:3600");
}

void TestFaults::unplugInTheBitstreamLeavesASoftRepairDevice()
{
    unplug("FPGA_STATUS nth 5", 1, "e5c1:3600");
}

void TestFaults::unplugBetweenTheImagesLeavesARunningDevice()
{
    unplug("FPGA_START", 0, "e5c1:3601");
}

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_device_faults.moc"
