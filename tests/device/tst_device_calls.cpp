#include "devicetest.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

// What an operation costs, in a measure that no other load of the machine can change: the calls of
// usbfs that the simulator counts. The program makes exactly those of a bare loop over libusb.
class TestCalls : public DeviceTest
{
    Q_OBJECT

private slots:
    void aPollTakesOneTransfer();
    void aScanTakesSevenTransfers();
    void anUpdateTakesItsBlocksAndWhatIsAroundThem_data();
    void anUpdateTakesItsBlocksAndWhatIsAroundThem();
    void theLoopThatTellsUpdatesABitstreamAsTheProgramDoes();
};

namespace {

const QByteArray s_alwaysReady = "busy-polls 0";

// The calls of one opening of the device in which so many control transfers are made. libusb
// fetches a transfer that has ended, and looks for a next one in vain.
QJsonObject callsFor(int transfers)
{
    return {
        {"GET_CAPABILITIES", 1}, // open
        {"GETDRIVER", 1},        // is there a kernel driver
        {"CLAIMINTERFACE", 1},
        {"SUBMITURB", transfers},
        {"REAPURBNDELAY", 2 * transfers},
        {"IOCTL", 1}, // attach it again
        {"RELEASEINTERFACE", 1},
    };
}

QJsonObject callsIn(const QString &answer)
{
    return QJsonDocument::fromJson(answer.mid(3).toUtf8()).object()["calls"].toObject();
}

// What the driver's operation has added to the calls. `answers`: of the simulator, before and
// after.
QJsonObject addedCalls(const QStringList &answers)
{
    const QJsonObject before = callsIn(answers.value(0));
    QJsonObject added = callsIn(answers.value(1));
    for (const QString &name : added.keys()) {
        added[name] = added[name].toInt() - before[name].toInt();
    }
    return added;
}

const QStringList s_state = {"control", "state g"};

} // namespace

void TestCalls::aPollTakesOneTransfer()
{
    SimRun program(sceneOf(velk3),
                   QStringList{"scan"} + s_state + QStringList{"get-status", "S1"} + s_state);
    RUN(program);
    QCOMPARE(addedCalls(program.controlAnswers()), callsFor(1));

    SimRun loop(sceneOf(velk3), {"poll", "1"}, CAPSO_BENCH_LOOP);
    RUN(loop);
    QCOMPARE(loop.state("g")["calls"].toObject(), callsFor(1));
}

// Product, serial number and version, each after the list of its languages; and the ping.
void TestCalls::aScanTakesSevenTransfers()
{
    SimRun program(sceneOf(velk3), s_state + QStringList{"scan"} + s_state);
    RUN(program);
    QCOMPARE(addedCalls(program.controlAnswers()), callsFor(7));

    for (const char *floor : {CAPSO_BENCH_LOOP, CAPSO_BENCH_FLOOR}) {
        SimRun loop(sceneOf(velk3), {"scan", "1"}, floor);
        RUN(loop);
        QCOMPARE(loop.state("g")["calls"].toObject(), callsFor(7));
    }
}

void TestCalls::anUpdateTakesItsBlocksAndWhatIsAroundThem_data()
{
    QTest::addColumn<int>("fx3Size");
    QTest::addColumn<int>("fpgaSize");
    QTest::addColumn<int>("blocks");
    QTest::newRow("two blocks and three") << 4100 << 8196 << 5;
    QTest::newRow("as large as real ones") << 160 * 1024 << 2560 * 1024 << 680;
}

// Each block with a poll. Around those of the microcode: start, poll, completion. Of the bitstream:
// start, poll, header, CRC, poll, completion. The EDID: start, data, completion.
void TestCalls::anUpdateTakesItsBlocksAndWhatIsAroundThem()
{
    QFETCH(int, fx3Size);
    QFETCH(int, fpgaSize);
    QFETCH(int, blocks);
    const int transfers = 2 * blocks + 3 + 6 + 3;
    const Images images = makeImages(velk3, fx3Size, fpgaSize);

    SimRun program(sceneOf(velk3, s_alwaysReady),
                   QStringList{"scan"} + s_state +
                       QStringList{"update", "S1", save("velk3", velk3, images)} + s_state);
    RUN(program);
    COMPARE_MEMORIES(program, images);
    QCOMPARE(addedCalls(program.controlAnswers()), callsFor(transfers));

    SimRun loop(
        sceneOf(velk3, s_alwaysReady),
        {"update", save("fx3", images.fx3), save("fpga", images.fpga), save("edid", images.edid)},
        CAPSO_BENCH_LOOP);
    RUN(loop);
    COMPARE_MEMORIES(loop, images);
    QCOMPARE(loop.state("g")["calls"].toObject(), callsFor(transfers));
}

// Three blocks with a poll each, and what is around those of a bitstream.
void TestCalls::theLoopThatTellsUpdatesABitstreamAsTheProgramDoes()
{
    const Images images = makeImages(velk3, 4100, 8196);
    SimRun program(sceneOf(velk3, s_alwaysReady),
                   {"scan", "update", "S1", save("velk3", velk3, images)});
    RUN(program);
    static const QRegularExpression s_ofABitstream("^[<>] c[1234] ");
    const QStringList requests = program.transcript().texts("g").filter(s_ofABitstream);

    SimRun floor(sceneOf(velk3, s_alwaysReady), {"update", save("fpga", images.fpga)},
                 CAPSO_BENCH_FLOOR);
    RUN(floor);
    QCOMPARE(floor.memory("g", "fpga"), images.fpga);
    QCOMPARE(floor.transcript().texts("g", {SimLine::Vendor}), requests);
    QCOMPARE(requests.size(), 2 * 3 + 6);
    QCOMPARE(floor.state("g")["calls"].toObject(), callsFor(2 * 3 + 6));
}

QTEST_GUILESS_MAIN(TestCalls)
#include "tst_device_calls.moc"
