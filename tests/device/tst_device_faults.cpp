#include "devicetest.h"

#include <QRegularExpression>
#include <QTest>

// Updates of a device that is slow, or that cannot be opened: what the user reads, what the device
// still sees, and that it is given back.
class TestFaults : public DeviceTest
{
    Q_OBJECT

private slots:
    void answersThatTakeFourFifthsOfTheirTimeAreWaitedFor();
    void deviceAtAnotherAddressIsNotTaken();
    void deviceOnAnotherPortIsNotTaken();
    void deniedDeviceIsNotOpened();
    void claimedInterfaceLeavesNoFileOpen();
};

namespace {

const QStringList s_cannotAccess{
    "progress 1", "progress 2",
    "error Cannot Access Device. Administrative privilegies may be required", "complete"};

// Empty when the number of milliseconds is between the two.
QString within(double value, double low, double high)
{
    return value >= low && value <= high
               ? QString()
               : QString("%1 ms, expected %2 to %3").arg(value).arg(low).arg(high);
}

// A fifth of the second that a request has is little on a machine with much else to do: an answer
// that is fetched so much later than it was due says nothing about the program.
constexpr int s_lateMs = 50;
constexpr int s_attempts = 4; // of 50 seconds

struct SlowOperation
{
    QByteArray mode;
    QList<int> progress;
    int requests;
};

const SlowOperation s_slowOperations[] = {
    // The ping, five requests for the microcode, eight for the bitstream, three for the EDID.
    {"mode normal", {1, 2, 34, 66, 72, 78, 84, 90, 96, 100}, 17},
    // One piece is written, read and started; 64 bytes of a sandbox image of 88.
    {"mode soft", {1, 2, 11, 43, 71, 76, 81, 86, 91, 96, 100}, 19},
};

QString slownessMismatch(const SimRun &run, const SlowOperation &operation)
{
    int seen = 0;
    double before = 0;
    for (const SimLine &line : run.transcript().lines("g")) {
        if (line.kind == SimLine::Vendor || line.kind == SimLine::Standard) {
            const bool edid = line.text.contains(QRegularExpression("^> (cf|d2|d4) "));
            const QString outside = within(line.time - before, edid ? 7950 : 795, 1e6);
            if (!outside.isEmpty()) {
                return line.text + ' ' + outside;
            }
            seen += line.kind == SimLine::Vendor ? 1 : 0;
        }
        before = line.time;
    }
    return seen == operation.requests ? QString() : QString("%1 requests").arg(seen);
}

// What is wrong with an update in which every answer takes so long; empty if nothing is.
QString slowMismatch(const SimRun &run, const SlowOperation &operation, const Images &images)
{
    const QStringList reasons{run.failure(),
                              firstDifference(run.signalsOf(2), goodUpdate(operation.progress)),
                              memoryMismatch(run, images), slownessMismatch(run, operation),
                              run.transcript().unbalanced("g")};
    return reasons.filter(QRegularExpression(".")).value(0);
}

} // namespace

// Every answer, those to the scan included, comes after 80 percent of the time that it has. A run
// that fails is forgiven, and made once more, only if the simulator says that an answer was late.
void TestFaults::answersThatTakeFourFifthsOfTheirTimeAreWaitedFor()
{
    const QByteArray slow = "busy-polls 0\nlatency 800\nreturn after 300\n"
                            "fault g EDID_START every delay 7200\n"
                            "fault g EDID_WRITE every delay 7200\n"
                            "fault g EDID_COMPLETE every delay 7200\n";
    const Images images = makeImages(velk3, 8, 8);
    const QString package = save("p", velk3, images);
    std::vector<SlowOperation> left(std::begin(s_slowOperations), std::end(s_slowOperations));
    for (int attempt = 1; !left.empty(); ++attempt) {
        std::vector<std::unique_ptr<SimRun>> runs;
        for (const SlowOperation &operation : left) {
            runs.push_back(std::make_unique<SimRun>(sceneOf(velk3, slow + operation.mode),
                                                    QStringList{"scan", "update", "S1", package}));
            runs.back()->start();
        }
        std::vector<SlowOperation> again;
        for (std::size_t i = 0; i < runs.size(); ++i) {
            runs[i]->finish();
            const QString mismatch = slowMismatch(*runs[i], left[i], images);
            const int lateMs = runs[i]->state("g")["lateMs"].toInt();
            const bool forgiven = lateMs > s_lateMs && attempt < s_attempts;
            QVERIFY2(mismatch.isEmpty() || forgiven,
                     qPrintable(mismatch + QString("; the latest answer %1 ms late").arg(lateMs)));
            if (!mismatch.isEmpty()) {
                again.push_back(left[i]);
            }
        }
        left = again;
    }
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

void TestFaults::claimedInterfaceLeavesNoFileOpen()
{
    const Images images = makeImages(sorn3, 8, 8);
    const QString package = save("p", sorn3, images);
    SimRun run(sceneOf(sorn3), {"scan", "control", "fault g claim busy", "update", "S1", package,
                                "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(3), s_cannotAccess);
    QVERIFY(run.standardError().contains("Error claim usb interface: -6\n"));
    COMPARE_LINES(run.transcript().work("g"), WireModel()
                                                  .probe()
                                                  .line("open")
                                                  .line("claim 0 busy")
                                                  .line("close")
                                                  .openForWork()
                                                  .regularUpdate(sorn3, images)
                                                  .giveBack()
                                                  .lines());
    COMPARE_MEMORIES(run, images);
    VERIFY_BALANCED(run);
}

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_device_faults.moc"
