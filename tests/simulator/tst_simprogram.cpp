#include "simrun.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QtTest>

#include <csignal>

// capso-sim as a program: its options, its outputs, its end.
class TestSimProgram : public QObject
{
    Q_OBJECT

private slots:
    void badUsageGives2_data();
    void badUsageGives2();
    void scenesAreListed();
    void builtinSceneIsShownAndRuns();
    void goodSceneIsChecked();
    void outputsGoWhereTheVariableSays();
    void temporaryOutputsAreRemoved();
    void longOutputPathWorks();
    void controlCommandIsAnsweredFromAShell();
    void dumpWritesMemoriesWhileTheProgramRuns();
    void terminationEndsTheProgram();
    void stubbornProgramIsKilled();
    void quitEndsTheProgram();
    void stateIsKeptFromRunToRun();
    void cutWriteIsKeptAsRepairMode();
    void packagesDoNotChangeFromRunToRun();
    void packageSizesAreAsAsked();
};

namespace {

constexpr int s_patienceMs = 60000;

// Runs a program with CAPSO_SIM_DIR set (or not, when it is empty), and waits for its end.
struct Ran
{
    Ran(const QString &program, const QStringList &arguments, const QString &simDirectory = {})
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("CAPSO_SIM_DIR");
        if (!simDirectory.isEmpty()) {
            environment.insert("CAPSO_SIM_DIR", simDirectory);
        }
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        process.waitForFinished(s_patienceMs);
        code = process.exitCode();
        output = QString::fromUtf8(process.readAllStandardOutput());
        errors = QString::fromUtf8(process.readAllStandardError());
    }
    int code;
    QString output;
    QString errors;
};

// capso-sim while its program sleeps. The script prints a line when it is ready.
struct Sleeper : QProcess
{
    explicit Sleeper(const QString &shellScript)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("CAPSO_SIM_DIR", directory.path());
        setProcessEnvironment(environment);
        start(CAPSO_SIM, {"velk3", "--", "sh", "-c", shellScript});
    }
    bool isReady() { return waitForReadyRead(s_patienceMs); }
    Ran control(const QStringList &words)
    {
        return Ran(CAPSO_SIM, QStringList{"--control", directory.path()} + words);
    }
    QTemporaryDir directory;
};

} // namespace

void TestSimProgram::badUsageGives2_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("nothing") << QStringList() << "capso-sim: missing scene";
    QTest::newRow("no dashes") << QStringList{"velk3", "true"}
                               << "capso-sim: there is no '--' behind the scene";
    QTest::newRow("no program") << QStringList{"velk3", "--"} << "capso-sim: missing program";
    QTest::newRow("option") << QStringList{"--loud"} << "capso-sim: unknown option '--loud'";
    QTest::newRow("too much") << QStringList{"--list-scenes", "all"}
                              << "capso-sim: unexpected argument 'all'";
    QTest::newRow("scene") << QStringList{"no-such-scene", "--", "true"}
                           << "no scene 'no-such-scene'";
    QTest::newRow("shown scene") << QStringList{"--show-scene", "x"} << "no built-in scene 'x'";
}

void TestSimProgram::badUsageGives2()
{
    QFETCH(QStringList, arguments);
    const Ran ran(CAPSO_SIM, arguments);
    QCOMPARE(ran.code, 2);
    QTEST(ran.errors.section('\n', 0, 0), "error");
    QCOMPARE(ran.output, QString());
}

void TestSimProgram::scenesAreListed()
{
    const Ran ran(CAPSO_SIM, {"--list-scenes"});
    QCOMPARE(ran.code, 0);
    QVERIFY(ran.output.contains(
        "\nseveral          One device of each product, and a plain USB device\n"));
}

void TestSimProgram::builtinSceneIsShownAndRuns()
{
    const Ran shown(CAPSO_SIM, {"--show-scene", "sorn3"});
    QVERIFY(shown.output.contains("product sorn3\n"));
    const Ran ran(CAPSO_SIM, {"sorn3", "--", SIM_USBCLIENT, "list"});
    QCOMPARE(ran.output, QString("e5c1:3621@1.2\n"));
    QCOMPARE(ran.code, 0);
}

void TestSimProgram::goodSceneIsChecked()
{
    const Ran ran(CAPSO_SIM, {"--check-scene", "several"});
    QCOMPARE(ran.code, 0);
    QCOMPARE(ran.errors, QString());
}

void TestSimProgram::outputsGoWhereTheVariableSays()
{
    QTemporaryDir directory;
    const QString inside = directory.filePath("new/one");
    const Ran ran(CAPSO_SIM, {"velk3", "--", "sh", "-c", "echo $CAPSO_SIM_DIR"}, inside);
    QCOMPARE(ran.output.trimmed(), inside);
    QVERIFY(QFileInfo::exists(inside + "/transcript.jsonl"));
    for (const char *file : {"fx3.bin", "fpga.bin", "edid.bin", "state.json"}) {
        QVERIFY2(QFileInfo::exists(inside + "/memory/velk3/" + file), file);
    }
    QVERIFY(!QFileInfo::exists(inside + "/control"));
}

void TestSimProgram::temporaryOutputsAreRemoved()
{
    const Ran ran(CAPSO_SIM, {"--verbose", "velk3", "--", "sh", "-c",
                              "test -S $CAPSO_SIM_DIR/control && echo $CAPSO_SIM_DIR"});
    const QString directory = ran.output.trimmed();
    QVERIFY(!directory.isEmpty());
    QVERIFY(ran.errors.contains("outputs are in " + directory + "\n"));
    QVERIFY(!QFileInfo::exists(directory));
}

void TestSimProgram::longOutputPathWorks()
{
    QTemporaryDir directory;
    const QString inside = directory.filePath(QString(150, 'x'));
    const Ran ran(CAPSO_SIM, {"velk3", "--", CAPSO_SIM, "--control", inside, "list"}, inside);
    QCOMPARE(ran.output, QString("ok velk3\n"));
    QCOMPARE(ran.code, 0);
}

void TestSimProgram::controlCommandIsAnsweredFromAShell()
{
    Sleeper sleeper("echo ready; exec sleep 60");
    QVERIFY(sleeper.isReady());
    const Ran good = sleeper.control({"set", "velk3", "version", "9 9"});
    QCOMPARE(good.output, QString("ok\n"));
    QCOMPARE(good.code, 0);
    QVERIFY(sleeper.control({"state velk3"}).output.contains("\"version\":\"9 9\""));
    const Ran bad = sleeper.control({"set", "velk3", "version", "9"});
    QCOMPARE(bad.output, QString("error: text '9' is not in quotes\n"));
    QCOMPARE(bad.code, 1);
    sleeper.terminate();
    QVERIFY(sleeper.waitForFinished(s_patienceMs));
}

void TestSimProgram::dumpWritesMemoriesWhileTheProgramRuns()
{
    Sleeper sleeper("echo ready; exec sleep 60");
    QVERIFY(sleeper.isReady());
    const QString state = sleeper.directory.filePath("memory/velk3/state.json");
    QVERIFY(!QFileInfo::exists(state));
    QCOMPARE(sleeper.control({"dump"}).output, QString("ok\n"));
    QVERIFY(contentOf(state).contains("\"mode\":\"normal\""));
    sleeper.terminate();
    QVERIFY(sleeper.waitForFinished(s_patienceMs));
}

void TestSimProgram::terminationEndsTheProgram()
{
    Sleeper sleeper("echo ready; exec sleep 60");
    QVERIFY(sleeper.isReady());
    sleeper.terminate();
    QVERIFY(sleeper.waitForFinished(s_patienceMs));
    QCOMPARE(sleeper.exitCode(), 128 + SIGTERM);
}

void TestSimProgram::stubbornProgramIsKilled()
{
    Sleeper sleeper("trap '' TERM; echo ready; while :; do sleep 1; done");
    QVERIFY(sleeper.isReady());
    QElapsedTimer clock;
    clock.start();
    sleeper.terminate();
    QVERIFY(sleeper.waitForFinished(s_patienceMs));
    QCOMPARE(sleeper.exitCode(), 128 + SIGKILL);
    QVERIFY(clock.elapsed() >= 4900);
}

void TestSimProgram::quitEndsTheProgram()
{
    Sleeper sleeper("echo ready; exec sleep 60");
    QVERIFY(sleeper.isReady());
    QCOMPARE(sleeper.control({"quit"}).output, QString("ok\n"));
    QVERIFY(sleeper.waitForFinished(s_patienceMs));
    QCOMPARE(sleeper.exitCode(), 128 + SIGTERM);
}

void TestSimProgram::stateIsKeptFromRunToRun()
{
    QTemporaryDir directory;
    const QString state = directory.filePath("kept");
    const QString control = QString("\"%1\" --control $CAPSO_SIM_DIR ").arg(CAPSO_SIM);
    QVERIFY(QFile::copy(packageFile("velk3/fx3.bin"), directory.filePath("code")));
    const QString change = control + "set velk3 microcode " + directory.filePath("code") + " && " +
                           control + "set velk3 flags 21 && " + control +
                           "set velk3 user-mode 1 800x600 off";
    QCOMPARE(Ran(CAPSO_SIM, {"--state", state, "velk3", "--", "sh", "-c", change}).code, 0);
    const Ran second(CAPSO_SIM,
                     {"--state", state, "velk3", "--", "sh", "-c", control + "state velk3"});
    QVERIFY2(second.output.contains("\"flags\":21,"), qPrintable(second.output));
    QVERIFY(second.output.contains("{\"width\":800,\"height\":600,\"disabled\":1}"));
    QVERIFY(second.output.contains("\"microcode\":{\"state\":\"complete\",\"size\":10000,"));
    QVERIFY(second.output.contains("\"mode\":\"normal\""));
    // Without the option the scene is what it was.
    const Ran fresh(CAPSO_SIM, {"velk3", "--", "sh", "-c", control + "state velk3"});
    QVERIFY(!fresh.output.contains("\"flags\":21,"));
}

// Between two runs power is cycled, so a device whose microcode was half written is in repair mode.
void TestSimProgram::cutWriteIsKeptAsRepairMode()
{
    QTemporaryDir directory;
    const QStringList kept{"--state", directory.path(), "velk3", "--", SIM_USBCLIENT};
    const Ran first(CAPSO_SIM, kept + QStringList{"open e5c1:3601", "claim 0", "out 0xc5 0 0"});
    QCOMPARE(first.code, 0);
    QCOMPARE(Ran(CAPSO_SIM, kept + QStringList{"list"}).output, QString("e5c1:3600@1.2\n"));
}

void TestSimProgram::packagesDoNotChangeFromRunToRun()
{
    QTemporaryDir directory;
    QCOMPARE(Ran("python3", {SIM_MAKE_PACKAGES, directory.path()}).code, 0);
    for (const char *name : {"velk3", "sorn3", "velk3_4k", "legacy", "edid-only"}) {
        const QByteArray again = contentOf(directory.filePath(QString(name) + ".fw"));
        QVERIFY2(!again.isEmpty(), name);
        QVERIFY2(again == contentOf(packageFile(QString(name) + ".fw")), name);
    }
}

void TestSimProgram::packageSizesAreAsAsked()
{
    QTemporaryDir directory;
    const Ran ran("python3",
                  {SIM_MAKE_PACKAGES, directory.path(), "--only", "velk3", "--fx3-size", "4096",
                   "--fpga-size", "0", "--edid-blocks", "3", "--stored", "--version", "7.8"});
    QCOMPARE(ran.errors, QString());
    QCOMPARE(contentOf(directory.filePath("velk3/fx3.bin")).size(), 4096);
    QVERIFY(
        contentOf(directory.filePath("velk3/fx3.bin")).contains(QByteArray("VERSION=7.8\0", 12)));
    QCOMPARE(contentOf(directory.filePath("velk3/fpga.bin")).size(), 0);
    QCOMPARE(contentOf(directory.filePath("velk3/edid.bin")).size(), 384);
    QVERIFY(contentOf(directory.filePath("velk3.fw")).contains("VERSION=7.8"));
    QVERIFY(!QFileInfo::exists(directory.filePath("sorn3.fw")));
    for (int block = 0; block < 3; ++block) {
        unsigned sum = 0;
        for (const char byte :
             contentOf(directory.filePath("velk3/edid.bin")).mid(block * 128, 128)) {
            sum += static_cast<unsigned char>(byte);
        }
        QCOMPARE(sum % 256, 0u);
    }
}

QTEST_GUILESS_MAIN(TestSimProgram)
#include "tst_simprogram.moc"
