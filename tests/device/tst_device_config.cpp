#include "devicetest.h"

#include <QTest>

// Settings of a device that is gone, and of two devices side by side. The bytes that travel are in
// the matrix, for every request.
class TestConfig : public DeviceTest
{
    Q_OBJECT

private slots:
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

} // namespace

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
