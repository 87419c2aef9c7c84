// What the command line's program makes of the machine that it runs on: the doctor's commands, the
// rules' file, signals, and failures that nobody has foreseen.

#include "command.h"
#include "diagnosis.h"
#include "filewriter.h"
#include "interrupts.h"
#include "output.h"
#include "packagecopy.h"
#include "selection.h"
#include "standardfiles.h"
#include "standardstreams.h"
#include "surroundings.h"
#include "udevrules.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's and the compiler's names
#ifdef CAPSO_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace {

// The machine that the program is made to see, instead of the one that runs the test.
struct FakeMachine
{
    bool hasGroup = true;
    std::vector<std::string> members{};
    bool hasUser = true;
    gid_t usualGroup = 100;      // the user's, as the system has it
    gid_t processGroup = 100;    // the process's own,
    std::vector<gid_t> groups{}; // and what it has beside it
    bool hasNode = true;
    gid_t nodeGroup = 46;
    mode_t nodeMode = S_IFCHR | 0660;
};
constexpr gid_t s_plugdev = 46;
constexpr const char *s_node = "/dev/bus/usb/001/002";
FakeMachine *s_machine = nullptr; // null: the real one

// What opening this path fails with.
const char *s_forbidden = nullptr;

} // namespace

// The program's looks at the system pass through here (the linker's --wrap).
extern "C" {
group *__real_getgrnam(const char *name);
group *__wrap_getgrnam(const char *name);
passwd *__real_getpwuid(uid_t user);
passwd *__wrap_getpwuid(uid_t user);
gid_t __real_getgid();
gid_t __wrap_getgid();
gid_t __real_getegid();
gid_t __wrap_getegid();
int __real_getgroups(int size, gid_t *list);
int __wrap_getgroups(int size, gid_t *list);
int __real_stat(const char *path, struct stat *facts);
int __wrap_stat(const char *path, struct stat *facts);
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);

group *__wrap_getgrnam(const char *name)
{
    if (!s_machine) {
        return __real_getgrnam(name);
    }
    static std::vector<char *> s_members;
    static group s_group{};
    s_members.clear();
    for (std::string &member : s_machine->members) {
        s_members.push_back(member.data());
    }
    s_members.push_back(nullptr);
    s_group.gr_gid = s_plugdev;
    s_group.gr_mem = s_members.data();
    return s_machine->hasGroup && std::strcmp(name, "plugdev") == 0 ? &s_group : nullptr;
}

passwd *__wrap_getpwuid(uid_t user)
{
    if (!s_machine) {
        return __real_getpwuid(user);
    }
    static std::string s_name = "mira";
    static passwd s_user{};
    s_user.pw_name = s_name.data();
    s_user.pw_gid = s_machine->usualGroup;
    return s_machine->hasUser ? &s_user : nullptr;
}

gid_t __wrap_getgid()
{
    return s_machine ? s_machine->processGroup : __real_getgid();
}

gid_t __wrap_getegid()
{
    return s_machine ? s_machine->processGroup : __real_getegid();
}

int __wrap_getgroups(int size, gid_t *list)
{
    if (!s_machine) {
        return __real_getgroups(size, list);
    }
    if (size > 0) {
        std::copy(s_machine->groups.begin(), s_machine->groups.end(), list);
    }
    return int(s_machine->groups.size());
}

int __wrap_stat(const char *path, struct stat *facts)
{
    if (!s_machine) {
        return __real_stat(path, facts);
    }
    if (!s_machine->hasNode || std::strcmp(path, s_node) != 0) {
        errno = ENOENT;
        return -1;
    }
    facts->st_gid = s_machine->nodeGroup;
    facts->st_mode = s_machine->nodeMode;
    return 0;
}

int __wrap_open(const char *path, int flags, ...)
{
    if (s_forbidden && std::strcmp(path, s_forbidden) == 0) {
        errno = EMFILE;
        return -1;
    }
    if ((flags & O_CREAT) == 0) {
        return __real_open(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return __real_open(path, flags, mode);
}
}

namespace {

// What a process has reached counts only if it comes to its end in the usual way, unless it is kept
// before.
void keepCoverage()
{
#ifdef CAPSO_COVERAGE
    __gcov_dump();
#endif
}
// NOLINTEND(bugprone-reserved-identifier)

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
        const int code = work();
        keepCoverage();
        _exit(code);
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
    void withoutAPipeForTheStandardFilesItEnds();
    void aKeptSignalComesWhenNothingIsUnderWay();
    void aStopThatIsIgnoredStaysIgnored();
    void aStopIsKeptMeanwhile();
    void rulesThatCannotBeReadAreNotCalledOthers();
    void whichRulesAreInForce();
    void whoIsAMember_data();
    void whoIsAMember();
    void whetherTheRulesHaveSeenTheNode_data();
    void whetherTheRulesHaveSeenTheNode();
    void whichTerminalsTakeALineAnew_data();
    void whichTerminalsTakeALineAnew();
    void theWidthOfATerminal();
    void aReaderWhoHasGone();
    void aPackageThatTurnsUpSince();
    void aCopyThatDoesNotFit();
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
    QCOMPARE(installedUdevRules(root.path()).state(), "missing");
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
    QCOMPARE(installedUdevRules(root.path()).state(), masked ? "masked" : "different");
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
    QCOMPARE(rules.state(), differs ? "different" : "installed");
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
    // Where the pipe took its part late, there was room again meanwhile, and some were counted
    // then.
    int leftOut = 0;
    static const QRegularExpression s_count(
        "capso-cli: ([0-9]+) messages were left out, since nobody read them\n");
    auto count = s_count.globalMatch(QString::fromLatin1(said));
    while (count.hasNext()) {
        leftOut += count.next().captured(1).toInt();
    }
    QVERIFY2(said.endsWith(" messages were left out, since nobody read them\nthe result\n"),
             said.right(200).constData());
    QCOMPARE(lines + leftOut, kept + 3000);
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

// Where nothing can stand in for a closed standard file, a device might take its place.
void TestCliSystem::withoutAPipeForTheStandardFilesItEnds()
{
    const Child child = inChild([] {
        const rlimit no{0, 0};
        setrlimit(RLIMIT_CORE, &no);
        std::signal(SIGABRT, [](int) { keepCoverage(); });
        close(STDIN_FILENO);
        const rlimit few{1, 1};
        setrlimit(RLIMIT_NOFILE, &few); // one end of a pipe
        holdStandardFiles();
        return 7;
    });
    QVERIFY2(WIFSIGNALED(child.status), qPrintable(QString::number(child.status)));
    QCOMPARE(WTERMSIG(child.status), SIGABRT);
}

void TestCliSystem::aKeptSignalComesWhenNothingIsUnderWay()
{
    const Child child = inChild([] {
        const Interrupts interrupts;
        sigset_t interrupt;
        sigset_t coming;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        {
            const Interrupts::Busy outer;
            {
                const Interrupts::Busy inner;
                raise(SIGINT);
            }
            if (Interrupts::count() != 1) {
                return 8;
            }
            // The program is to end by the signal; here it waits at the door.
            sigprocmask(SIG_BLOCK, &interrupt, nullptr);
            sigpending(&coming);
            if (sigismember(&coming, SIGINT) != 0) {
                return 9;
            }
        }
        sigpending(&coming);
        struct sigaction action = {};
        sigaction(SIGINT, nullptr, &action);
        return sigismember(&coming, SIGINT) == 1 && action.sa_handler == SIG_DFL ? 7 : 10;
    });
    QVERIFY2(WIFEXITED(child.status), qPrintable(QString::number(child.status)));
    QCOMPARE(WEXITSTATUS(child.status), 7);
}

namespace {

using Handler = void (*)(int);

Handler handlerOfStop()
{
    struct sigaction action = {};
    sigaction(SIGTSTP, nullptr, &action);
    return action.sa_handler;
}

} // namespace

void TestCliSystem::aStopThatIsIgnoredStaysIgnored()
{
    const Handler before = std::signal(SIGTSTP, SIG_IGN);
    {
        const Interrupts::NoStop noStop;
        QVERIFY(handlerOfStop() == SIG_IGN);
    }
    QVERIFY(handlerOfStop() == SIG_IGN);
    std::signal(SIGTSTP, before);
}

void TestCliSystem::aStopIsKeptMeanwhile()
{
    const Handler before = std::signal(SIGTSTP, SIG_DFL);
    {
        const Interrupts::NoStop noStop;
        const Handler meanwhile = handlerOfStop();
        QVERIFY(meanwhile != SIG_DFL);
        QVERIFY(meanwhile != SIG_IGN);
    }
    QVERIFY(handlerOfStop() == SIG_DFL);
    std::signal(SIGTSTP, before);
}

// As root may read everything, it is a folder.
void TestCliSystem::rulesThatCannotBeReadAreNotCalledOthers()
{
    const QTemporaryDir root;
    const QString file = root.path() + "/etc/udev/rules.d/70-capso-config.rules";
    QVERIFY(QDir().mkpath(file + "/folder"));
    const UdevRules rules = installedUdevRules(root.path());
    QCOMPARE(rules.file, file);
    QVERIFY(!rules.differs);
}

void TestCliSystem::whichRulesAreInForce()
{
    QCOMPARE(UdevRules().inForce(), QString());
    QCOMPARE(UdevRules({"/etc/x.rules", false}).inForce(), QString("/etc/x.rules"));
    QCOMPARE(UdevRules({"/etc/x.rules", true}).inForce(), QString());
}

Q_DECLARE_METATYPE(FakeMachine)

void TestCliSystem::whoIsAMember_data()
{
    QTest::addColumn<FakeMachine>("machine");
    QTest::addColumn<bool>("hasGroup");
    QTest::addColumn<bool>("isMember");
    QTest::addColumn<bool>("isMemberNow");
    const auto add = [](const char *title, const std::function<void(FakeMachine &)> &change,
                        bool hasGroup, bool isMember, bool isMemberNow) {
        FakeMachine machine;
        change(machine);
        QTest::newRow(title) << machine << hasGroup << isMember << isMemberNow;
    };
    add(
        "no group",
        [](FakeMachine &machine) {
            machine.hasGroup = false;
            machine.groups = {s_plugdev};
        },
        false, false, false);
    add(
        "no member", [](FakeMachine &) {}, true, false, false);
    add(
        "others are",
        [](FakeMachine &machine) {
            machine.members = {"miran", "mir"};
        },
        true, false, false);
    add(
        "since this login",
        [](FakeMachine &machine) {
            machine.members = {"olaf", "mira"};
        },
        true, true, false);
    add(
        "since before",
        [](FakeMachine &machine) {
            machine.members = {"mira"};
            machine.groups = {100, s_plugdev};
        },
        true, true, true);
    add(
        "in other groups",
        [](FakeMachine &machine) {
            machine.groups = {100, 47};
        },
        true, false, false);
    add(
        "as the usual group, since this login",
        [](FakeMachine &machine) { machine.usualGroup = s_plugdev; }, true, true, false);
    add(
        "after newgrp", [](FakeMachine &machine) { machine.processGroup = s_plugdev; }, true, false,
        true);
    add(
        "a user whom the system does not know",
        [](FakeMachine &machine) {
            machine.hasUser = false;
            machine.usualGroup = s_plugdev;
        },
        true, false, false);
    add(
        "such a user, in a process of the group",
        [](FakeMachine &machine) {
            machine.hasUser = false;
            machine.processGroup = s_plugdev;
        },
        true, true, true);
}

void TestCliSystem::whoIsAMember()
{
    QFETCH(FakeMachine, machine);
    QFETCH(bool, hasGroup);
    QFETCH(bool, isMember);
    QFETCH(bool, isMemberNow);
    s_machine = &machine;
    const Machine seen = lookAround("/opt/capso-cli");
    s_machine = nullptr;
    QCOMPARE(seen.program, QString("/opt/capso-cli"));
    QCOMPARE(seen.hasGroup, hasGroup);
    QCOMPARE(seen.isMember, isMember);
    QCOMPARE(seen.isMemberNow, isMemberNow);
}

void TestCliSystem::whetherTheRulesHaveSeenTheNode_data()
{
    QTest::addColumn<FakeMachine>("machine");
    QTest::addColumn<bool>("isGroups");
    const auto add = [](const char *title, const std::function<void(FakeMachine &)> &change,
                        bool isGroups) {
        FakeMachine machine;
        change(machine);
        QTest::newRow(title) << machine << isGroups;
    };
    add(
        "they have", [](FakeMachine &) {}, true);
    add(
        "no group", [](FakeMachine &machine) { machine.hasGroup = false; }, false);
    add(
        "no node", [](FakeMachine &machine) { machine.hasNode = false; }, false);
    add(
        "another group's", [](FakeMachine &machine) { machine.nodeGroup = 0; }, false);
    add(
        "the group may read only", [](FakeMachine &machine) { machine.nodeMode = S_IFCHR | 0640; },
        false);
    add(
        "the group may write only", [](FakeMachine &machine) { machine.nodeMode = S_IFCHR | 0620; },
        false);
}

void TestCliSystem::whetherTheRulesHaveSeenTheNode()
{
    QFETCH(FakeMachine, machine);
    QFETCH(bool, isGroups);
    s_machine = &machine;
    const Node node = lookAt(systemDevice());
    s_machine = nullptr;
    QCOMPARE(node.isGroups, isGroups);
}

namespace {

// A terminal of a test's own, which nobody looks at.
class Terminal
{
public:
    Terminal() : master(posix_openpt(O_RDWR | O_NOCTTY))
    {
        if (grantpt(master) != 0 || unlockpt(master) != 0) {
            qFatal("no terminal");
        }
        file = open(ptsname(master), O_RDWR | O_NOCTTY);
    }
    ~Terminal()
    {
        close(file);
        close(master);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    int master;
    int file = -1;
};

} // namespace

void TestCliSystem::whichTerminalsTakeALineAnew_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("capable");
    QTest::newRow("a usual one") << QByteArray("xterm") << true;
    QTest::newRow("an old one") << QByteArray("dumb") << false;
    QTest::newRow("of no type") << QByteArray() << false;
}

void TestCliSystem::whichTerminalsTakeALineAnew()
{
    QFETCH(QByteArray, type);
    QFETCH(bool, capable);
    const Terminal terminal;
    const QByteArray before = qgetenv("TERM");
    qputenv("TERM", type);
    const bool seen = isCapableTerminal(terminal.file);
    const bool pipeSeen = isCapableTerminal(open("/dev/null", O_RDWR | O_CLOEXEC));
    qputenv("TERM", before);
    QCOMPARE(seen, capable);
    QVERIFY(!pipeSeen);
}

void TestCliSystem::theWidthOfATerminal()
{
    const Terminal terminal;
    const auto widthWith = [&terminal](unsigned short columns) {
        winsize size{};
        size.ws_col = columns;
        ioctl(terminal.file, TIOCSWINSZ, &size);
        const int saved = dup(STDERR_FILENO);
        dup2(terminal.file, STDERR_FILENO);
        const int width = terminalWidth();
        dup2(saved, STDERR_FILENO);
        close(saved);
        return width;
    };
    QCOMPARE(widthWith(132), 132);
    QCOMPARE(widthWith(0), 80); // as over some serial lines
}

void TestCliSystem::aReaderWhoHasGone()
{
    std::array<int, 2> ends{};
    QVERIFY(pipe(ends.data()) == 0);
    QVERIFY(!hasLostReader(ends[1]));
    close(ends[0]);
    QVERIFY(hasLostReader(ends[1]));
    close(ends[1]);
    QVERIFY(!hasLostReader(ends[1])); // no file has no reader to lose
}

// It was not there when it was to be copied, so that it is not read after all.
void TestCliSystem::aPackageThatTurnsUpSince()
{
    const QTemporaryDir folder;
    const QByteArray path = QFile::encodeName(folder.filePath("velk3.fw"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("PK\5\6").leftJustified(22, '\0')); // an archive without entries
    file.close();
    s_forbidden = path.constData();
    const PackageCopy copy(path.toStdString());
    s_forbidden = nullptr;
    QCOMPARE(copy.failure(), QString("Cannot open firmware package: Too many open files"));
}

void TestCliSystem::aCopyThatDoesNotFit()
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("velk3.fw"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(QByteArray(100000, 'x')), qint64(100000));
    file.close();
    const Handler before = std::signal(SIGXFSZ, SIG_IGN); // as the program has it
    rlimit usual{};
    QVERIFY(getrlimit(RLIMIT_FSIZE, &usual) == 0);
    rlimit little = usual;
    little.rlim_cur = 70000; // more than one piece of it, and less than all
    QVERIFY(setrlimit(RLIMIT_FSIZE, &little) == 0);
    const PackageCopy copy(file.fileName().toStdString());
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, before);
    QCOMPARE(copy.failure(),
             QString("Cannot open firmware package: no copy of it can be made: File too large"));
}

QTEST_GUILESS_MAIN(TestCliSystem)
#include "tst_clisystem.moc"
