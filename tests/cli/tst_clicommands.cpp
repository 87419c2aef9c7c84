// The commands on a scripted bus, and beside whatever the system shows of it: nothing, or less or
// more than the scan finds.

#include "arguments.h"
#include "brokendevice.h"
#include "capturedoutput.h"
#include "command.h"
#include "installerdouble.h"
#include "interrupts.h"
#include "package.h"
#include "packagebuilder.h"
#include "products.h"
#include "records.h"
#include "scriptedlibusb.h"
#include "selection.h"
#include "sysfstree.h"
#include "udevrules.h"
#include "updaterun.h"
#include "zipcalls.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QtTest>

#include <array>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>

#include <unistd.h>

namespace {

const char *s_denied =
    "Access Denied: Administrative privilegies are required to access the device";

// A system that shows nothing of its devices.
const usbview::Places s_nowhere{QStringLiteral("/nowhere"), QStringLiteral("/nowhere")};

// Standard output or error of the whole process, in a file while an object lives.
class Redirected
{
public:
    explicit Redirected(int redirectedFile) : file(redirectedFile), saved(dup(redirectedFile))
    {
        if (!written.open() || dup2(written.handle(), file) < 0) {
            qFatal("cannot redirect a standard file");
        }
    }
    ~Redirected()
    {
        dup2(saved, file);
        close(saved);
    }
    Redirected(const Redirected &) = delete;
    Redirected &operator=(const Redirected &) = delete;

    QString text() const
    {
        QFile reader(written.fileName());
        return reader.open(QIODevice::ReadOnly) ? QString::fromUtf8(reader.readAll()) : QString();
    }

private:
    QTemporaryFile written;
    int file;
    int saved;
};

// What a run of the program has come to.
struct Ran
{
    ExitStatus status = ExitStatus::Done;
    QString output;
    QString errors;

    QStringList lines() const { return output.split('\n', Qt::SkipEmptyParts); }
    QList<QJsonObject> objects() const
    {
        QList<QJsonObject> result;
        for (const QString &line : lines()) {
            result.append(QJsonDocument::fromJson(line.toUtf8()).object());
        }
        return result;
    }
};

Ran runIn(const usbview::Places &places, Output::Form form,
          const std::function<ExitStatus(Session &)> &work)
{
    Ran ran;
    const Redirected output(STDOUT_FILENO);
    const Redirected errors(STDERR_FILENO);
    {
        Interrupts interrupts;
        Output said(form);
        Session session{said, interrupts};
        session.places = places;
        ran.status = work(session);
        said.finish();
    }
    ran.output = output.text();
    ran.errors = errors.text();
    return ran;
}

// From now on nobody reads standard output.
void loseReader()
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        qFatal("no pipe");
    }
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
}

// As main() runs it.
Ran run(const std::vector<std::string> &words, const usbview::Places &places = s_nowhere)
{
    const CommandLine line = parseCommandLine(words);
    if (!line.run) {
        return {line.status, {}, line.text};
    }
    return runIn(places, line.form,
                 [&line](Session &session) { return runSafely(line.run, session); });
}

libusb_device *plugged(ScriptedUsb &bus, const char *name, quint8 busNumber, quint8 address,
                       quint16 productId = 0x3601)
{
    libusb_device *device = bus.plug(name, 0xE5C1, productId);
    device->strings = {{2, name}, {3, "1.2.3"}, {4, name}};
    device->serialString = 4;
    device->bus = busNumber;
    device->port = 3;
    device->address = address;
    return device;
}

usbview::SystemDevice shownAt(quint8 bus, quint16 address, const QString &portPath, ProductId id)
{
    usbview::SystemDevice device;
    device.id = id;
    device.busNumber = bus;
    device.deviceAddress = address;
    device.portPath = portPath;
    device.hasNode = device.mayOpen = true;
    return device;
}

ListedDevice listed(quint8 bus, quint16 address, const QString &portPath, ProductId id = {})
{
    ListedDevice device = asTheSystemShows(shownAt(bus, address, portPath, id));
    device.usable = true;
    return device;
}

constexpr ProductId s_velk3{0xE5C1, 0x3601};
constexpr ProductId s_velk3Sandbox{0xE5C1, 0x360F};

} // namespace

class TestCliCommands : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void whereTheSystemShowsNothingTheScanIsBelieved();
    void aDenialThatOnlyTheScanKnowsIsTheCommandsToo();
    void theSameAddressOnAnotherBusIsAnotherDevice();
    void aDeviceThatIsDescribedTwiceIsListedOnce();
    void aSpeedThatIsNotKnown();
    void aSystemThatShowsNothingCannotBeExamined();
    void rulesAsJson();
    void aSignalNeedsWidthHeightAndRate_data();
    void aSignalNeedsWidthHeightAndRate();
    void aFailingPollIsToldOnceAsLongAsTheDeviceIsThere();
    void withoutAViewNoDeviceHasGone();
    void modesThatThereAreNot_data();
    void modesThatThereAreNot();
    void oneBracketMakesNoList();
    void halfACharacterIsNotShown_data();
    void halfACharacterIsNotShown();
    void anEntryOfUnknownSize();
    void packagesThatRepairNothing_data();
    void packagesThatRepairNothing();
    void theFirstOfTwoErrorsIsTold();
    void anUpdateThatEndsUnfinishedHasFailed();
    void withoutAViewARepairIsTried();
    void whatTheSystemShowsNowTellsWhyARequestFailed();
    void aSandboxThatCannotBeUsed();
    void sandboxesThatMightBeMistaken_data();
    void sandboxesThatMightBeMistaken();
    void aSandboxIdAloneTellsTheGroup();
    void whoMayHaveTheName();

private:
    QString packageFile(const std::vector<PackageEntry> &entries) const;

    std::unique_ptr<ScriptedUsb> bus;
    std::unique_ptr<SysfsTree> tree;
    std::unique_ptr<CapturedDebug> debug;
    std::unique_ptr<CapturedStream> standardLog;
    std::unique_ptr<CapturedStream> standardError;
    QTemporaryDir folder;
};

void TestCliCommands::initTestCase()
{
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
}

void TestCliCommands::init()
{
    installer::reset();
    zipcalls::reset();
    debug = std::make_unique<CapturedDebug>();
    standardLog = std::make_unique<CapturedStream>(std::clog);
    standardError = std::make_unique<CapturedStream>(std::cerr);
    bus = std::make_unique<ScriptedUsb>();
    tree = std::make_unique<SysfsTree>();
}

void TestCliCommands::cleanup()
{
    tree.reset();
    bus.reset();
    standardError.reset();
    standardLog.reset();
    debug.reset();
    zipcalls::reset();
}

QString TestCliCommands::packageFile(const std::vector<PackageEntry> &entries) const
{
    const QString path = folder.filePath(QStringLiteral("package.fw"));
    writeFile(path, zipArchive(entries));
    return path;
}

void TestCliCommands::whereTheSystemShowsNothingTheScanIsBelieved()
{
    plugged(*bus, "ONE", 2, 7);
    plugged(*bus, "TWO", 2, 8)->openResult = LIBUSB_ERROR_ACCESS;
    installer::answer({-2, -2}); // each time, that it needs administrative rights
    const Ran text = run({"list"});
    QCOMPARE(text.status, ExitStatus::Done);
    QCOMPARE(text.output, QString("ONE  ONE  1.2.3  normal  e5c1:3601  2-3\n"));
    QCOMPARE(text.errors, QStringLiteral("capso-cli: %1\n").arg(s_denied));

    const QJsonObject told = run({"list", "--json"}).objects().value(0);
    QCOMPARE(told.value("errors").toArray(), QJsonArray{QString(s_denied)});
    const QJsonArray devices = told.value("devices").toArray();
    QCOMPARE(devices.size(), 1);
    QCOMPARE(devices[0].toObject().value("port").toString(), QString("2-3"));
    QVERIFY(!devices[0].toObject().contains("speed"));
}

void TestCliCommands::aDenialThatOnlyTheScanKnowsIsTheCommandsToo()
{
    plugged(*bus, "ONE", 2, 7)->openResult = LIBUSB_ERROR_ACCESS;
    installer::answer({-2});
    const Ran ran = run({"signal"});
    QCOMPARE(ran.status, ExitStatus::NoAccess);
    QCOMPARE(ran.errors, QStringLiteral("capso-cli: %1\n").arg(s_denied));
    QCOMPARE(ran.output, QString());
}

void TestCliCommands::theSameAddressOnAnotherBusIsAnotherDevice()
{
    tree->add({"1-1.2", "e5c1", "3601", 7, "480"});
    tree->add({"2-4", "e5c1", "3621", 7, "5000"});
    plugged(*bus, "SORN", 2, 7, 0x3621);
    plugged(*bus, "VELK", 1, 7);
    const QJsonArray devices =
        run({"list", "--json"}, tree->places()).objects().value(0).value("devices").toArray();
    QStringList rows;
    for (const auto &device : devices) {
        const QJsonObject row = device.toObject();
        rows += QStringLiteral("%1 %2 %3")
                    .arg(row.value("serial").toString(), row.value("port").toString(),
                         QString::number(row.value("speed").toInt()));
    }
    QCOMPARE(rows, (QStringList{"SORN 2-4 5000", "VELK 1-1.2 480"}));
}

// A driver that was installed for one device has all of them probed again.
void TestCliCommands::aDeviceThatIsDescribedTwiceIsListedOnce()
{
    libusb_device *first = plugged(*bus, "ONE", 2, 7);
    plugged(*bus, "TWO", 2, 8)->openResults = {LIBUSB_ERROR_ACCESS};
    installer::answer({0});
    bus->onCall([first](const QString &line) {
        if (line == "open TWO") {
            first->strings[3] = "1.2.4";
        }
    });
    const Ran ran = run({"list"});
    QCOMPARE(ran.lines(), (QStringList{"ONE  ONE  1.2.4  normal  e5c1:3601  2-3",
                                       "TWO  TWO  1.2.3  normal  e5c1:3601  2-3"}));
}

void TestCliCommands::aSpeedThatIsNotKnown()
{
    tree->add({"2-1", "e5c1", "3601", 7, "unknown"});
    const Ran ran = run({"doctor"}, tree->places());
    QCOMPARE(ran.status, ExitStatus::Done);
    QCOMPARE(ran.lines().value(0),
             QString("2-1 e5c1:3601: speed not known, may be opened: yes, held: no"));
}

void TestCliCommands::aSystemThatShowsNothingCannotBeExamined()
{
    const Ran ran = run({"doctor"});
    QCOMPARE(ran.status, ExitStatus::Failed);
    QCOMPARE(ran.errors, QString("capso-cli: this system does not show its USB devices, so what "
                                 "keeps one from being used is not known\n"));
}

void TestCliCommands::rulesAsJson()
{
    const Ran ran = run({"doctor", "--rules", "--json"});
    QCOMPARE(ran.status, ExitStatus::Done);
    QCOMPARE(ran.objects(),
             (QList<QJsonObject>{{{"rulesText", QString::fromUtf8(udevRulesText())}}}));
}

void TestCliCommands::aSignalNeedsWidthHeightAndRate_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("rate");
    QTest::addColumn<QString>("text");
    QTest::newRow("all") << 1920 << 1080 << 50000 << "HDMI 1920x1080p@50, RGB";
    QTest::newRow("no width") << 0 << 1080 << 50000 << "no signal";
    QTest::newRow("no height") << 1920 << 0 << 50000 << "no signal";
    QTest::newRow("no rate") << 1920 << 1080 << 0 << "no signal";
}

void TestCliCommands::aSignalNeedsWidthHeightAndRate()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, rate);
    QFETCH(QString, text);
    plugged(*bus, "ONE", 2, 7);
    QByteArray record = QByteArray("RGB").leftJustified(12, '\0') +
                        QByteArray("HDMI").leftJustified(8, '\0') + le32(quint32(rate));
    record += le32(quint32(width) | quint32(height) << 16) + '\0';
    bus->answerData(0xB2, {record});
    const Ran ran = run({"signal", "--json"});
    QCOMPARE(ran.status, ExitStatus::Done);
    const QJsonObject object = ran.objects().value(0);
    QCOMPARE(object.value("text").toString(), text);
    const bool present = text != "no signal";
    QCOMPARE(object.value("present"), QJsonValue(present));
    QCOMPARE(object.contains("width"), present);
}

void TestCliCommands::aFailingPollIsToldOnceAsLongAsTheDeviceIsThere()
{
    plugged(*bus, "ONE", 2, 7);
    tree->add({"2-3", "e5c1", "3601", 7, "5000"});
    int polls = 0;
    bus->onTransfer([&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.request != 0xB2) {
            return {};
        }
        if (++polls == 3) {
            tree->remove("2-3");
        } else if (polls > 3) {
            loseReader(); // so that a test that has failed comes to its end
        }
        return LIBUSB_ERROR_TIMEOUT;
    });
    const Ran ran = run({"signal", "--watch", "--json"}, tree->places());
    QCOMPARE(polls, 3);
    QCOMPARE(ran.status, ExitStatus::Failed);
    const QList<QJsonObject> objects = ran.objects();
    QCOMPARE(objects.size(), 2);
    QCOMPARE(objects[0].value("text").toString(), QString("request not supported"));
    QVERIFY(objects[0].value("error").toString().startsWith(
        "Error retreiving config device data: req=178, status: "));
    QVERIFY(!objects[0].contains("status"));
    QCOMPARE(objects[1].value("status").toInt(), 1);
}

// Nobody can tell there, so it is asked on, until nobody reads any more.
void TestCliCommands::withoutAViewNoDeviceHasGone()
{
    plugged(*bus, "ONE", 2, 7);
    int polls = 0;
    bus->onTransfer([&polls](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.request == 0xB2 && ++polls == 2) {
            loseReader();
        }
        return transfer.request == 0xB2 ? std::make_optional(LIBUSB_ERROR_NO_DEVICE) : std::nullopt;
    });
    const Ran ran = run({"signal", "--watch"});
    QCOMPARE(polls, 2);
    QCOMPARE(ran.status, ExitStatus::Failed);
    QCOMPARE(ran.output, QString("request not supported\n"));
    QCOMPARE(ran.errors, QString());
}

void TestCliCommands::modesThatThereAreNot_data()
{
    QTest::addColumn<QString>("word");
    for (const char *word : {"=on", "12=on", "0=on", "4=on", "1=", "1=x", "1=640x", "1=x480",
                             "1=65536x1", "1=1x65536", "1=640x480 "}) {
        QTest::newRow(word) << word;
    }
}

void TestCliCommands::modesThatThereAreNot()
{
    QFETCH(QString, word);
    plugged(*bus, "ONE", 2, 7);
    const Ran ran = run({"modes", "ONE", word.toStdString()});
    QCOMPARE(ran.status, ExitStatus::Usage);
    QCOMPARE(ran.errors, QStringLiteral("capso-cli: '%1' is not N=WIDTHxHEIGHT, N=on or N=off, "
                                        "with N from 1 to 3\n")
                             .arg(word));
    QVERIFY(bus->transfers().empty());
}

void TestCliCommands::oneBracketMakesNoList()
{
    for (const char *word : {"[x", "x]"}) {
        QVERIFY(parseCommandLine({"package", word}).run != nullptr);
    }
    const CommandLine refused = parseCommandLine({"package", "[x]"});
    QVERIFY(!refused.run);
    QCOMPARE(refused.error, QString("'[x]' is no argument"));
}

void TestCliCommands::halfACharacterIsNotShown_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    const QString high(QChar(0xD83D));
    const QString low(QChar(0xDE00));
    QTest::newRow("whole") << "a" + high + low + "b"
                           << "a" + high + low + "b";
    QTest::newRow("first half at the end") << "a" + high << "a?";
    QTest::newRow("first half before a letter") << high + "b"
                                                << "?b";
    QTest::newRow("second half") << low + "b"
                                 << "?b";
    QTest::newRow("second half after a letter") << "b" + low << "b?";
    QTest::newRow("wrong way round") << low + high << "??";
}

void TestCliCommands::halfACharacterIsNotShown()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    QCOMPARE(printable(text), shown);
}

void TestCliCommands::anEntryOfUnknownSize()
{
    const std::string path = packageFile({{"velk3.txt", "words"}}).toStdString();
    zipcalls::changeStat(
        [](zip_stat_t &stat) { stat.valid &= ~zip_uint64_t(ZIP_STAT_SIZE | ZIP_STAT_CRC); });
    QVERIFY(run({"package", path}).lines().contains("  not read: velk3.txt, ? bytes, CRC ?"));
    const QJsonObject entry = run({"package", "--json", path})
                                  .objects()
                                  .value(0)
                                  .value("packages")[0]
                                  .toObject()
                                  .value("entries")[0]
                                  .toObject();
    QCOMPARE(entry, (QJsonObject{{"name", "velk3.txt"}, {"role", "not read"}}));
}

void TestCliCommands::packagesThatRepairNothing_data()
{
    QTest::addColumn<bool>("sandbox");
    QTest::addColumn<bool>("images");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<bool>("repairs");
    QTest::newRow("whole") << true << true << QByteArray("velk3\n") << true;
    QTest::newRow("without a sandbox") << false << true << QByteArray("velk3\n") << false;
    QTest::newRow("EDID only") << false << false << QByteArray("velk3\n") << false;
    QTest::newRow("EDID and sandbox") << true << false << QByteArray("velk3\n") << false;
    QTest::newRow("nobody's") << true << true << QByteArray("toaster\n") << false;
}

void TestCliCommands::packagesThatRepairNothing()
{
    QFETCH(bool, sandbox);
    QFETCH(bool, images);
    QFETCH(QByteArray, key);
    QFETCH(bool, repairs);
    PackageContent content = smallContent(velk3);
    if (!sandbox) {
        content.sandbox.reset();
    }
    if (!images) {
        content.fx3.reset();
        content.fpga.reset();
    }
    std::vector<PackageEntry> entries = packageEntries(velk3, content);
    for (PackageEntry &entry : entries) {
        if (entry.name == "product.info") {
            entry.data = key;
        }
    }
    const Ran ran = run({"package", "--json", packageFile(entries).toStdString()});
    QCOMPARE(ran.objects().value(0).value("packages")[0].toObject().value("repairs"),
             QJsonValue(repairs));
}

// What comes of an error is no better an answer than the error.
void TestCliCommands::theFirstOfTwoErrorsIsTold()
{
    plugged(*bus, "ONE", 2, 7);
    bus->onTransfer([](const ScriptedTransfer &transfer) -> std::optional<int> {
        const bool isCrc = transfer.request == 0xC2 && transfer.length == 4;
        if (isCrc) {
            return LIBUSB_ERROR_PIPE;
        }
        return transfer.request == 0xC3 ? std::make_optional(LIBUSB_ERROR_TIMEOUT) : std::nullopt;
    });
    const QString path = packageFile(packageEntries(velk3, makeImages(velk3, 64, 256)));
    const Ran ran = run({"update", "--json", path.toStdString()});
    QCOMPARE(ran.status, ExitStatus::Failed);
    const QJsonObject row = ran.objects().last().value("devices")[0].toObject();
    QCOMPARE(row.value("error").toString(),
             QString("Error: failed FPGA CRC check: LIBUSB_ERROR_PIPE"));
    QVERIFY(!ran.errors.contains("LIBUSB_ERROR_TIMEOUT"));
}

// Without a word of its own it must not pass for a success.
void TestCliCommands::anUpdateThatEndsUnfinishedHasFailed()
{
    plugged(*bus, "ONE", 2, 7);
    const QString path = packageFile(packageEntries(velk3, makeImages(velk3, 64, 256)));
    ListedDevice device = listed(2, 7, "2-3", s_velk3);
    device.description.portNumber = 3;
    device.description.mode = 7; // none that an update knows
    // A package fits any device in repair; of the other modes nothing is known there.
    Package package;
    package.product = &s_products.at("velk3");
    UpdateResult result;
    runIn(s_nowhere, Output::Form::Text, [&](Session &session) {
        result = updateDevice(session, device, path, UpdateSteps(package, Normal));
        return result.status;
    });
    QCOMPARE(result.error, QString("the update did not take place"));
    QCOMPARE(result.status, ExitStatus::Failed);
    QVERIFY(bus->transfers().empty());
}

void TestCliCommands::withoutAViewARepairIsTried()
{
    BrokenDevice broken(*bus, "04b4:00f3");
    broken.loader->strings = {{2, "loader"}};
    broken.comesBackAs("sandbox", "e5c1:360f");
    const QString path = packageFile(packageEntries(velk3, makeImages(velk3, 64, 256)));
    const Ran ran = run({"update", path.toStdString(), "2-6"});
    QCOMPARE(ran.status, ExitStatus::Done);
    QCOMPARE(ran.output, QString("2-6: Update Completed\n"));
}

void TestCliCommands::whatTheSystemShowsNowTellsWhyARequestFailed()
{
    tree->add({"2-3", "e5c1", "3601", 7, "5000"});
    tree->add({"2-4", "e5c1", "3601", 8, "5000"});
    tree->bind("2-4:1.0", "usbfs");
    QCOMPARE(statusNow(listed(2, 7, "2-3"), tree->places()), ExitStatus::Failed);
    QCOMPARE(statusNow(listed(2, 8, "2-4"), tree->places()), ExitStatus::NoAccess);
    QCOMPARE(statusNow(listed(2, 9, "2-5"), tree->places()), ExitStatus::Failed);
    QCOMPARE(statusNow(listed(2, 8, "2-4"), s_nowhere), ExitStatus::Failed);
}

void TestCliCommands::aSandboxThatCannotBeUsed()
{
    const ProductInfo &product = s_products.at("velk3");
    tree->add({"2-3", "e5c1", "360f", 7, "5000"});
    tree->bind("2-3:1.0", "usbfs");
    tree->add({"2-4", "e5c1", "3601", 8, "5000"});
    tree->bind("2-4:1.0", "usbfs");
    tree->add({"2-5", "e5c1", "360f", 9, "5000"});
    const usbview::Places places = tree->places();

    const auto sandbox = closedSandbox(product, listed(2, 2, "2-3"), places);
    QVERIFY(sandbox.has_value());
    QCOMPARE(describe(*sandbox), QString("[e5c1:360f] at 2-3: another program holds it"));
    QVERIFY2(!closedSandbox(product, listed(2, 7, "2-3"), places), "it is the device itself");
    QVERIFY2(!closedSandbox(product, listed(2, 2, "2-4"), places), "it is no sandbox");
    QVERIFY2(!closedSandbox(product, listed(2, 2, "2-5"), places), "it can be used");
    QVERIFY2(!closedSandbox(product, listed(2, 2, "2-6"), places), "there is nothing");
    QVERIFY2(!closedSandbox(product, listed(2, 2, "2-3"), s_nowhere), "nobody can tell");
}

void TestCliCommands::sandboxesThatMightBeMistaken_data()
{
    QTest::addColumn<int>("busNumber");
    QTest::addColumn<int>("address");
    QTest::addColumn<QString>("portPath");
    QTest::addColumn<int>("productId");
    QTest::addColumn<bool>("mistakable");
    QTest::newRow("same port behind a hub") << 2 << 8 << "2-1.4" << 0x360F << true;
    QTest::newRow("same port of the bus") << 2 << 8 << "2-4" << 0x360F << true;
    QTest::newRow("another bus") << 1 << 8 << "1-1.4" << 0x360F << false;
    QTest::newRow("the device itself") << 2 << 7 << "2-3.4" << 0x360F << false;
    QTest::newRow("another port") << 2 << 8 << "2-4.1" << 0x360F << false;
    QTest::newRow("a port whose number ends like it") << 2 << 8 << "2-14" << 0x360F << false;
    QTest::newRow("no sandbox") << 2 << 8 << "2-1.4" << 0x3601 << false;
}

void TestCliCommands::sandboxesThatMightBeMistaken()
{
    QFETCH(int, busNumber);
    QFETCH(int, address);
    QFETCH(QString, portPath);
    QFETCH(int, productId);
    QFETCH(bool, mistakable);
    const std::vector<usbview::SystemDevice> shown{
        shownAt(quint8(busNumber), quint16(address), portPath, {0xE5C1, quint16(productId)})};
    const usbview::SystemDevice *found =
        mistakableSandbox(s_products.at("velk3"), listed(2, 7, "2-3.4", {0x04B4, 0x00F3}), shown);
    QCOMPARE(found, mistakable ? &shown.front() : nullptr);
}

// A product's sandbox may be of another group than its firmware.
void TestCliCommands::aSandboxIdAloneTellsTheGroup()
{
    ProductInfo product = s_products.at("velk3");
    product.sandboxIds = {{0xE5C1, 0x367F}};
    DeviceDescription device;
    device.vendorId = 0xE5C1;
    device.mode = SoftRepair;
    const auto fits = [&](quint16 productId) {
        device.productId = productId;
        return fitsUnasked(product, device);
    };
    QVERIFY(fits(0x3600));
    QVERIFY(fits(0x3670));
    QVERIFY(!fits(0x3680));
}

// A serial number may be that of a device whose own is not known, but of no other.
void TestCliCommands::whoMayHaveTheName()
{
    Devices devices;
    devices.all.push_back(listed(2, 7, "2-3", s_velk3));
    devices.all.back().description.serialNumber = "ONE";
    ListedDevice silent = listed(2, 8, "2-4", s_velk3);
    silent.usable = false;
    silent.description.serialNumber = "TWO"; // which is nobody's as long as it is not usable
    devices.all.push_back(silent);
    QCOMPARE(selectNamed(devices, {"ONE"}).devices.front(), &devices.all[0]);
    QCOMPARE(selectNamed(devices, {"TWO"}).status, ExitStatus::NoDevice);
    QVERIFY(selectNamed(devices, {"TWO"}).candidates.empty());

    ListedDevice held = silent;
    held.system->held = true;
    held.system->portPath = "2-5";
    devices.all.push_back(held);
    const Selection selection = selectNamed(devices, {"TWO"});
    QCOMPARE(selection.status, ExitStatus::NoAccess);
    QCOMPARE(selection.candidates, (std::vector<const ListedDevice *>{&devices.all[2]}));
}

QTEST_GUILESS_MAIN(TestCliCommands)
#include "tst_clicommands.moc"
