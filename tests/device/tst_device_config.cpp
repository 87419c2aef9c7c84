#include "devicetest.h"

#include <QJsonArray>
#include <QTest>

// Device settings: the bytes that travel, and which answer follows which end of a request.
class TestConfig : public DeviceTest
{
    Q_OBJECT

private slots:
    void flagsAreRead();
    void flagsAreWritten();
    void userModesTravelWithTheirNumber();
    void userModesAreWritten();
    void inputStatusIsRead();
    void inputStatusFollowsTheSignal();
    void everyRequestOpensAndClosesTheDevice();
    void secondNumberIsTheIndexAndTheThirdTheValue();
    void deviceThatIsGoneCannotBeRead();
    void deviceThatIsGoneCannotBeWritten();
    void twoDevicesKeepTheirOwnSettings();
};

namespace {

const QString s_noAccess = "Cannot access USB. Administrative rights may be required.";

// Each answer reaches the task and the one typed object that asks for this request.
QStringList both(const char *front, const QStringList &answers)
{
    QStringList lines;
    for (const QString &answer : answers) {
        lines += "task " + answer;
        lines += QString(front) + ' ' + answer;
    }
    return lines;
}

QStringList transfer(const QString &line)
{
    return WireModel().openForWork().line(line).giveBack().lines();
}

QStringList afterScan(const SimRun &run)
{
    const int scanned = int(WireModel().probe().lines().size());
    return run.transcript().work("g").mid(scanned);
}

} // namespace

void TestConfig::flagsAreRead()
{
    SimRun run(sceneOf(velk3, "flags 0xA7"), {"scan", "get-flags", "S1"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), both("flags", {"get 226 1 a7"}));
    COMPARE_LINES(afterScan(run), transfer("< e2 v0 i0 1 a7"));
}

void TestConfig::flagsAreWritten()
{
    SimRun run(sceneOf(velk3, "flags 0xFF"), {"scan", "set-flags", "S1", "17"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), both("flags", {"set 227"}));
    COMPARE_LINES(afterScan(run), transfer("> e3 v0 i0 1 17"));
    QCOMPARE(run.state("g")["flags"].toInt(), 0x17);
}

void TestConfig::userModesTravelWithTheirNumber()
{
    SimRun run(sceneOf(velk3, "user-mode 0 1280x720 off\nuser-mode 1 1920x1080 on\n"
                              "user-mode 2 258x772 on"),
               {"scan", "get-mode", "S1", "0", "get-mode", "S1", "1", "get-mode", "S1", "2"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), both("modes", {"get 179 5 0005d00201"}));
    COMPARE_LINES(run.signalsOf(3), both("modes", {"get 179 5 8007380400"}));
    COMPARE_LINES(run.signalsOf(4), both("modes", {"get 179 5 0201040300"}));
    COMPARE_LINES(afterScan(run), transfer("< b3 v0 i0 5 0005d00201") +
                                      transfer("< b3 v0 i1 5 8007380400") +
                                      transfer("< b3 v0 i2 5 0201040300"));
}

void TestConfig::userModesAreWritten()
{
    SimRun run(sceneOf(velk3), {"scan", "set-mode", "S1", "0", "0005d00201", "set-mode", "S1", "1",
                                "8007380400", "set-mode", "S1", "2", "0201040300"});
    RUN(run);
    for (int operation = 2; operation <= 4; ++operation) {
        COMPARE_LINES(run.signalsOf(operation), both("modes", {"set 179"}));
    }
    COMPARE_LINES(afterScan(run), transfer("> b3 v0 i0 5 0005d00201") +
                                      transfer("> b3 v0 i1 5 8007380400") +
                                      transfer("> b3 v0 i2 5 0201040300"));
    const QJsonArray modes = run.state("g")["userModes"].toArray();
    QCOMPARE(modes.at(0).toObject(),
             QJsonObject({{"width", 1280}, {"height", 720}, {"disabled", 1}}));
    QCOMPARE(modes.at(2).toObject(),
             QJsonObject({{"width", 258}, {"height", 772}, {"disabled", 0}}));
}

void TestConfig::inputStatusIsRead()
{
    SimRun run(sceneOf(velk3, "input at 0 1920x1080i 59940 \"HDMI\" \"RGB 8 bit\""),
               {"scan", "get-status", "S1"});
    RUN(run);
    const QByteArray record = QByteArray("RGB 8 bit\0\0\0", 12) + QByteArray("HDMI\0\0\0\0", 8) +
                              QByteArray::fromHex("24ea0000"
                                                  "8007"
                                                  "3804"
                                                  "01");
    COMPARE_LINES(run.signalsOf(2), both("status", {"get 178 29 " + record.toHex()}));
    COMPARE_LINES(afterScan(run), transfer("< b2 v0 i0 29 " + showBytes(record)));
}

void TestConfig::inputStatusFollowsTheSignal()
{
    SimRun run(
        sceneOf(velk3, "input at 0 640x480p 60000 \"A\" \"B\""),
        {"scan", "get-status", "S1", "control", "set g input at 0 none", "get-status", "S1"});
    RUN(run);
    QVERIFY(run.signalsOf(2).value(0).endsWith("60ea00008002e00100"));
    QVERIFY(run.signalsOf(4).value(0).endsWith("000000000000000000")); // rate, width, height, scan
}

void TestConfig::everyRequestOpensAndClosesTheDevice()
{
    SimRun run(sceneOf(velk3, "flags 1"), {"scan", "get-flags", "S1", "get-status", "S1",
                                           "set-flags", "S1", "02", "get-flags", "S1"});
    RUN(run);
    QCOMPARE(run.transcript().work("g").count("open"), 5); // the scan's and four
    VERIFY_BALANCED(run);
    COMPARE_LINES(run.signalsOf(5), both("flags", {"get 226 1 02"}));
}

void TestConfig::secondNumberIsTheIndexAndTheThirdTheValue()
{
    // The device refuses such requests; what counts is how they arrive.
    SimRun run("lenient\n" + sceneOf(velk3), {"scan", "get", "S1", "226", "1", "0x1234", "0x5678",
                                              "set", "S1", "227", "aa", "0x0102", "0x0304"});
    RUN(run);
    COMPARE_LINES(afterScan(run),
                  transfer("< e2 v5678 i1234 1 stall") + transfer("> e3 v304 i102 1 aa stall"));
}

void TestConfig::deviceThatIsGoneCannotBeRead()
{
    SimRun run(sceneOf(velk3), {"scan", "control", "unplug g", "get-flags", "S1"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(3), both("flags", {"error 226 " + s_noAccess, "get 226 0 null"}));
}

void TestConfig::deviceThatIsGoneCannotBeWritten()
{
    SimRun run(sceneOf(velk3), {"scan", "control", "unplug g", "set-flags", "S1", "01", "set-mode",
                                "S1", "0", "0000000000"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(3), both("flags", {"error 227 " + s_noAccess, "get 227 0 null"}));
    COMPARE_LINES(run.signalsOf(4), both("modes", {"error 179 " + s_noAccess, "get 179 0 null"}));
}

void TestConfig::twoDevicesKeepTheirOwnSettings()
{
    SimRun run("device g\nproduct velk3\nserial \"S1\"\nflags 1\nuser-mode 0 640x480 on\n"
               "device h\nproduct sorn3\nserial \"S2\"\nflags 16\nuser-mode 0 800x600 off\n",
               {"scan", "get-flags", "S2", "get-flags", "S1", "set-flags", "S2", "04", "get-mode",
                "S2", "0", "get-mode", "S1", "0"});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), both("flags", {"get 226 1 10"}));
    COMPARE_LINES(run.signalsOf(3), both("flags", {"get 226 1 01"}));
    COMPARE_LINES(run.signalsOf(5), both("modes", {"get 179 5 2003580201"}));
    COMPARE_LINES(run.signalsOf(6), both("modes", {"get 179 5 8002e00100"}));
    QCOMPARE(run.state("g")["flags"].toInt(), 1);
    QCOMPARE(run.state("h")["flags"].toInt(), 4);
}

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_device_config.moc"
