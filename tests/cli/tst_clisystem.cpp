// What the command line's program makes of the machine that it runs on: the doctor's commands, the
// rules' file, signals, and failures that nobody has foreseen.

#include "command.h"
#include "diagnosis.h"
#include "filewriter.h"
#include "interrupts.h"
#include "output.h"
#include "selection.h"
#include "udevrules.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Child
{
    int status = 0; // as waitpid() tells it
    QByteArray output;
};

// Runs it in a process of its own, and takes its standard output.
Child inChild(const std::function<int()> &work)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return {-1, {}};
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        _exit(work());
    }
    close(ends[1]);
    Child result;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
        result.output.append(piece.data(), int(got));
    }
    close(ends[0]);
    waitpid(child, &result.status, 0);
    return result;
}

usbview::SystemDevice systemDevice()
{
    usbview::SystemDevice device;
    device.id = {0xE5C1, 0x3601};
    device.busNumber = 1;
    device.deviceAddress = 2;
    device.portPath = QStringLiteral("1-2.3");
    device.speed = 5000;
    device.hasNode = true;
    device.mayOpen = true;
    return device;
}

// Where everything is as it should be.
Machine goodMachine()
{
    Machine machine;
    machine.rules.file = QStringLiteral("/usr/lib/udev/rules.d/70-capso-config.rules");
    machine.program = QStringLiteral("/opt/capso-cli");
    machine.hasGroup = machine.isMember = machine.isMemberNow = true;
    return machine;
}

const QString s_apply = QStringLiteral("sudo udevadm control --reload && "
                                       "sudo udevadm trigger --action=add ");
const QString s_install = QStringLiteral("/opt/capso-cli doctor --rules | sudo tee "
                                         "/etc/udev/rules.d/70-capso-config.rules >/dev/null && ") +
                          s_apply + QStringLiteral("--subsystem-match=usb");

} // namespace

Q_DECLARE_METATYPE(Machine)

class TestCliSystem : public QObject
{
    Q_OBJECT

private slots:
    void whatMendsADenial_data();
    void whatMendsADenial();
    void whatKeepsADeviceFromBeingUsed_data();
    void whatKeepsADeviceFromBeingUsed();
    void withoutTheSystemsWord();
    void aMaskedFileIsNoRules_data();
    void aMaskedFileIsNoRules();
    void rulesOfAnotherVersion_data();
    void rulesOfAnotherVersion();
    void whatIsSaidOfTheRules();
    void rulesThatAreMissing();
    void wellIsWell();
    void signalsAfterTheEndChangeNothing_data();
    void signalsAfterTheEndChangeNothing();
    void whatIsThrownIsAFailure();
    void whatNobodyReadsIsCounted();
    void withoutAPipeThereIsNoSafety();
};

void TestCliSystem::whatMendsADenial_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<bool>("nodeIsGroups");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("command");
    const auto add = [](const char *title, const std::function<void(Machine &)> &change,
                        bool nodeIsGroups, const QString &text, const QString &command) {
        Machine machine = goodMachine();
        change(machine);
        QTest::newRow(title) << machine << nodeIsGroups << text << command;
    };
    add(
        "no rules", [](Machine &machine) { machine.rules = {}; }, false, "are not installed",
        s_install);
    add(
        "masked rules",
        [](Machine &machine) {
            machine.rules = {QStringLiteral("/etc/udev/rules.d/70-capso-config.rules"), true};
        },
        false, "are masked by /etc/udev/rules.d/70-capso-config.rules",
        "sudo rm /etc/udev/rules.d/70-capso-config.rules && " + s_install);
    add(
        "another version's rules", [](Machine &machine) { machine.rules.differs = true; }, false,
        "rules in /usr/lib/udev/rules.d/70-capso-config.rules are not this version's", s_install);
    add(
        "another version's rules, which gave the group its right",
        [](Machine &machine) {
            machine.rules.differs = true;
            machine.isMember = machine.isMemberNow = false;
        },
        true, "join the group plugdev", "sudo usermod -aG plugdev $USER");
    add(
        "no group",
        [](Machine &machine) { machine.hasGroup = machine.isMember = machine.isMemberNow = false; },
        false, "there is no group plugdev",
        "sudo groupadd --system plugdev && sudo usermod -aG plugdev $USER && " + s_apply +
            "/sys/bus/usb/devices/1-2.3");
    add(
        "plugged in before the rules were there", [](Machine &) {}, false,
        "it was plugged in before", s_apply + "/sys/bus/usb/devices/1-2.3");
    add(
        "not in the group",
        [](Machine &machine) { machine.isMember = machine.isMemberNow = false; }, true,
        "join the group plugdev", "sudo usermod -aG plugdev $USER");
    add(
        "joined since the login", [](Machine &machine) { machine.isMemberNow = false; }, true,
        "since this login", "newgrp plugdev");
    add(
        "in the group, and still", [](Machine &) {}, true, "what else forbids it",
        "getfacl /dev/bus/usb/001/002");
}

void TestCliSystem::whatMendsADenial()
{
    QFETCH(Machine, machine);
    QFETCH(bool, nodeIsGroups);
    QFETCH(QString, text);
    QFETCH(QString, command);
    usbview::SystemDevice device = systemDevice();
    device.mayOpen = false;
    Node node;
    node.isGroups = nodeIsGroups;
    const std::vector<Finding> findings = findingsOf(device, node, machine);
    QCOMPARE(findings.size(), std::size_t(1));
    QVERIFY2(findings.front().text.startsWith("this user may not open it: "),
             qPrintable(findings.front().text));
    QVERIFY2(findings.front().text.contains(text), qPrintable(findings.front().text));
    QCOMPARE(findings.front().command, command);
}

void TestCliSystem::whatKeepsADeviceFromBeingUsed_data()
{
    QTest::addColumn<bool>("hasNode");
    QTest::addColumn<QString>("driver"); // that holds it
    QTest::addColumn<QString>("reason"); // for `list`
    QTest::addColumn<QString>("text");   // for `doctor`
    QTest::addColumn<QString>("command");
    QTest::newRow("no node") << false << ""
                             << "it has no device node"
                             << "it has no device node; a container must be given "
                                "/dev/bus/usb/001/002"
                             << "docker run --device=/dev/bus/usb/001/002 ...";
    QTest::newRow("program") << true << "usbfs"
                             << "another program holds it"
                             << "another program holds it; close that program"
                             << "sudo fuser -v /dev/bus/usb/001/002";
    QTest::newRow("lent") << true << "usbip-host"
                          << "the driver usbip-host holds it"
                          << "it is lent to another machine"
                          << "sudo usbip unbind -b 1-2.3";
    QTest::newRow("driver") << true << "snd-usb-audio"
                            << "the driver snd-usb-audio holds it"
                            << "the driver snd-usb-audio holds it"
                            << "echo 1-2.3 | sudo tee /sys/bus/usb/drivers/snd-usb-audio/unbind";
}

void TestCliSystem::whatKeepsADeviceFromBeingUsed()
{
    QFETCH(bool, hasNode);
    QFETCH(QString, driver);
    QFETCH(QString, reason);
    QFETCH(QString, text);
    QFETCH(QString, command);
    usbview::SystemDevice device = systemDevice();
    device.hasNode = device.mayOpen = hasNode;
    device.driver = driver;
    device.held = !driver.isEmpty();
    device.speed = 0; // and of what is not known nothing is said
    const std::vector<Finding> findings = findingsOf(device, {}, goodMachine());
    QCOMPARE(findings.size(), std::size_t(1));
    QCOMPARE(findings.front().text, text);
    QCOMPARE(findings.front().command, command);

    const ListedDevice listed = asTheSystemShows(device);
    QCOMPARE(reasonOf(listed), reason);
    QCOMPARE(describe(listed), "[e5c1:3601] at 1-2.3: " + reason);
    QCOMPARE(statusOf(listed), ExitStatus::NoAccess);
    const QJsonObject object = toJson(listed);
    QCOMPARE(object.value("reason").toString(), reason);
    QVERIFY(!object.contains("speed"));
}

// Where the system shows nothing, a device's place is bus and port as the scan has them.
void TestCliSystem::withoutTheSystemsWord()
{
    ListedDevice device;
    device.description.busNumber = 3;
    device.description.portNumber = 7;
    QCOMPARE(device.portPath(), QStringLiteral("3-7"));
    QCOMPARE(reasonOf(device), QStringLiteral("it does not answer"));
    QCOMPARE(statusOf(device), ExitStatus::Failed);
    QVERIFY(!toJson(device).contains("speed"));
}

void TestCliSystem::aMaskedFileIsNoRules_data()
{
    QTest::addColumn<QString>("content"); // "-": a link to /dev/null, "!": one that leads nowhere
    QTest::addColumn<bool>("masked");
    QTest::newRow("rules") << "ACTION==\"add\"\n" << false;
    QTest::newRow("empty") << "" << true;
    QTest::newRow("link to nothing") << "-" << true;
    QTest::newRow("link that leads nowhere") << "!" << true;
}

void TestCliSystem::aMaskedFileIsNoRules()
{
    QFETCH(QString, content);
    QFETCH(bool, masked);
    const QTemporaryDir root;
    const QString name = QStringLiteral("/udev/rules.d/70-capso-config.rules");
    for (const char *folder : {"/etc", "/usr/lib"}) {
        QVERIFY(QDir().mkpath(root.path() + QLatin1String(folder) + "/udev/rules.d"));
    }
    QCOMPARE(installedUdevRules(root.path()).file, QString());
    const QString etc = root.path() + "/etc" + name;
    if (content == "-" || content == "!") {
        QVERIFY(QFile::link(content == "-" ? "/dev/null" : root.filePath("nowhere"), etc));
    } else {
        QFile file(etc);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content.toUtf8());
    }
    QFile installed(root.path() + "/usr/lib" + name);
    QVERIFY(installed.open(QIODevice::WriteOnly));
    installed.write("rules");
    installed.close();
    QCOMPARE(installedUdevRules(root.path()).file, etc);
    QCOMPARE(installedUdevRules(root.path()).masked, masked);
    QCOMPARE(installedUdevRules(root.path()).work(), !masked);
}

// An update of the program may bring rules for more devices, which an older file in /etc hides.
void TestCliSystem::rulesOfAnotherVersion_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<bool>("differs");
    QTest::newRow("the same") << QByteArray() << QByteArray() << false;
    QTest::newRow("a line more") << QByteArray() << QByteArray("# mine\n") << true;
    QTest::newRow("a line before") << QByteArray("# mine\n") << QByteArray() << true;
}

void TestCliSystem::rulesOfAnotherVersion()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    QFETCH(bool, differs);
    const QTemporaryDir root;
    QVERIFY(QDir().mkpath(root.path() + "/etc/udev/rules.d"));
    QFile file(root.path() + "/etc/udev/rules.d/70-capso-config.rules");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(before + QByteArray(udevRulesText()) + after);
    file.close();
    const UdevRules rules = installedUdevRules(root.path());
    QCOMPARE(rules.file, file.fileName());
    QVERIFY(rules.work());
    QCOMPARE(rules.differs, differs);
}

void TestCliSystem::whatIsSaidOfTheRules()
{
    Machine machine = goodMachine();
    QCOMPARE(rulesLine(machine.rules),
             QStringLiteral("udev rules: /usr/lib/udev/rules.d/70-capso-config.rules"));
    machine.rules.differs = true;
    QCOMPARE(rulesLine(machine.rules),
             QStringLiteral("udev rules: /usr/lib/udev/rules.d/70-capso-config.rules, "
                            "which are not this version's"));
    const std::vector<Finding> findings = findingsOf(machine);
    QCOMPARE(findings.size(), std::size_t(1));
    QCOMPARE(findings.front().text,
             QStringLiteral("the udev rules in /usr/lib/udev/rules.d/70-capso-config.rules are not "
                            "this version's"));
    QCOMPARE(findings.front().command, s_install);
    machine.rules = {QStringLiteral("/etc/x.rules"), true};
    QCOMPARE(rulesLine(machine.rules), QStringLiteral("udev rules: masked by /etc/x.rules"));
    QCOMPARE(rulesLine({}), QStringLiteral("udev rules: not installed"));
}

void TestCliSystem::rulesThatAreMissing()
{
    Machine machine = goodMachine();
    machine.rules = {};
    const std::vector<Finding> findings = findingsOf(machine);
    QCOMPARE(findings.size(), std::size_t(1));
    QCOMPARE(findings.front().text, QStringLiteral("the udev rules are not installed"));
    QCOMPARE(findings.front().command, s_install);
}

void TestCliSystem::wellIsWell()
{
    QVERIFY(findingsOf(goodMachine()).empty());
    QVERIFY(findingsOf(systemDevice(), {}, goodMachine()).empty());
}

void TestCliSystem::signalsAfterTheEndChangeNothing_data()
{
    QTest::addColumn<int>("number");
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        QTest::newRow(strsignal(number)) << number;
    }
}

// What became of the devices is told by the exit status, which a signal must not replace while the
// process ends.
void TestCliSystem::signalsAfterTheEndChangeNothing()
{
    QFETCH(int, number);
    const Child child = inChild([number] {
        {
            const Interrupts interrupts;
        }
        raise(number);
        return 7;
    });
    QVERIFY2(WIFEXITED(child.status), qPrintable(QString::number(child.status)));
    QCOMPARE(WEXITSTATUS(child.status), 7);
}

void TestCliSystem::whatIsThrownIsAFailure()
{
    const Child child = inChild([] {
        Interrupts interrupts;
        Output output(Output::Form::Json);
        Session session{output, interrupts};
        return int(runSafely([](Session &) -> ExitStatus { throw std::bad_alloc(); }, session));
    });
    QVERIFY(WIFEXITED(child.status));
    QCOMPARE(WEXITSTATUS(child.status), int(ExitStatus::Failed));
    QCOMPARE(child.output, QByteArray("{\"error\":\"std::bad_alloc\",\"status\":1}\n"));
}

// What the modules say must neither keep them waiting nor fill the memory.
void TestCliSystem::whatNobodyReadsIsCounted()
{
    std::array<int, 2> ends{};
    QVERIFY(pipe(ends.data()) == 0);
    const QByteArray line = QByteArray(1023, 'x') + '\n';
    // What the pipe takes, what may wait, and the one that does not fit any more.
    const int kept = 64 + int(FileWriter::Room / 1024) + 1;
    {
        FileWriter writer(ends[1]);
        for (int i = 0; i < kept + 3000; ++i) {
            writer.addIfRoom(line);
        }
        writer.add("the result\n");
        QVERIFY(!writer.waitFor(std::chrono::milliseconds(1)));
        QElapsedTimer clock;
        clock.start();
        writer.waitIfLive(std::chrono::milliseconds(50));
        QVERIFY(clock.elapsed() >= 50);
        clock.restart();
        writer.waitIfLive(std::chrono::minutes(10));
        QVERIFY(clock.elapsed() < 60000);
    }
    QByteArray said;
    std::array<char, 4096> piece{};
    while (!said.endsWith("the result\n")) {
        const ssize_t got = read(ends[0], piece.data(), piece.size());
        QVERIFY(got > 0);
        said.append(piece.data(), int(got));
    }
    const int lines = int(said.count(line));
    QVERIFY2(lines >= int(FileWriter::Room / 1024) && lines <= kept + 1,
             qPrintable(QString::number(lines)));
    QVERIFY2(said.endsWith("\ncapso-cli: " + QByteArray::number(kept + 3000 - lines) +
                           " messages were left out, since nobody read them\nthe result\n"),
             said.right(200).constData());
    close(ends[0]);
    close(ends[1]);
}

void TestCliSystem::withoutAPipeThereIsNoSafety()
{
    const Child child = inChild([] {
        const rlimit few{3, 3};
        setrlimit(RLIMIT_NOFILE, &few);
        try {
            const Interrupts interrupts;
        } catch (const std::system_error &reason) {
            return reason.code() == std::errc::too_many_files_open ? 7 : 8;
        }
        return 9;
    });
    QVERIFY(WIFEXITED(child.status));
    QCOMPARE(WEXITSTATUS(child.status), 7);
}

QTEST_GUILESS_MAIN(TestCliSystem)
#include "tst_clisystem.moc"
