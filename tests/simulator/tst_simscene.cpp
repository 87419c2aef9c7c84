#include "builtinscenes.h"
#include "scene.h"

#include <QtTest>

using namespace sim;

// Scenes as people write them.
class TestSimScene : public QObject
{
    Q_OBJECT

private slots:
    void wholeSceneIsRead();
    void defaultsHold();
    void commentsBlanksAndQuotesAreUnderstood();
    void countMakesNumberedDevices();
    void faultOfAGroupMeansEachOfIt();
    void faultsAreRead_data();
    void faultsAreRead();
    void repeatedSignalsFormATimeline();
    void constantSignalReplacesTheTimeline();
    void denialIsNoticed_data();
    void denialIsNoticed();
    void errorsNameLineAndWord_data();
    void errorsNameLineAndWord();
    void missingFileIsNamed();
    void fileThatIsNoBootImageIsNamed();
    void unknownSceneIsNamed();
    void builtinSceneWinsOverAFileOfItsName();
    void everyBuiltinSceneIsGood();
};

namespace {

Scene parse(const QByteArray &text)
{
    return parseScene(text.toStdString(), "scene.txt", {});
}

// The complaint about a scene; empty when there is none.
QString complaint(const QByteArray &text)
{
    try {
        parse(text);
    } catch (const SceneError &error) {
        return QString::fromUtf8(error.what());
    }
    return {};
}

Fault faultOf(const QByteArray &words)
{
    return parse("device v\nproduct velk3\nfault v " + words + "\n").devices.at(0).faults.at(0);
}

} // namespace

void TestSimScene::wholeSceneIsRead()
{
    const Scene scene =
        parse("title \"A title\"\nlenient\ntranscript full\n"
              "device grabber\n  product velk3_4k\n  id 5555:3601\n  mode soft-f\n"
              "  bus 2\n  behind-hub 4.31\n  port 3\n  address 0x10\n  product-string \"P\"\n  "
              "serial none\n"
              "  version \"9.9\"\n  interfaces 3\n  kernel-driver uvcvideo\n  "
              "kernel-driver snd-usb-audio interface 2\n  access denied\n  busy-polls 7\n"
              "  latency 4\n  flags 0x17\n  user-mode 1 1280x720 off\n"
              "  speed 480\n  return after 9 as e5c1:364f bus 7 address 40 speed 10000 again 30 "
              "denied\n  "
              "bad-ram 0x40000000\n"
              "  bad-ram 1\n  power-cycle-when-idle 250\n");
    QCOMPARE(scene.title, std::string("A title"));
    QVERIFY(!scene.strict);
    QVERIFY(scene.fullTranscript);
    const DeviceConfig &config = scene.devices.at(0).config;
    QCOMPARE(config.name, std::string("grabber"));
    QCOMPARE(config.product->name, "velk3_4k");
    QVERIFY(config.runningId == (UsbId{0x5555, 0x3601}));
    QVERIFY(config.mode == Mode::SoftF);
    QCOMPARE(config.bus, 2u);
    QCOMPARE(config.hubs, std::string("4.31"));
    QCOMPARE(config.port.value(), 3u);
    QCOMPARE(config.address.value(), 16u);
    QCOMPARE(config.productString.text, std::string("P"));
    QVERIFY(config.serial.kind == StringSetting::None);
    QCOMPARE(config.version.text, std::string("9.9"));
    QCOMPARE(config.interfaces, 3u);
    const std::map<unsigned, std::string> drivers{{0, "uvcvideo"}, {2, "snd-usb-audio"}};
    QVERIFY(config.kernelDrivers == drivers);
    QVERIFY(config.accessDenied);
    QCOMPARE(config.busyPolls, 7u);
    QCOMPARE(config.latencyMs, 4u);
    QCOMPARE(config.flags, uint8_t(0x17));
    QCOMPARE(config.userModes.at(1).width, uint16_t(1280));
    QCOMPARE(config.userModes.at(1).height, uint16_t(720));
    QCOMPARE(config.userModes.at(1).disabled, uint8_t(1));
    QCOMPARE(config.comeback.afterMs, 9u);
    QVERIFY(config.comeback.id == (UsbId{0xE5C1, 0x364F}));
    QCOMPARE(config.comeback.address.value(), 40u);
    QVERIFY(config.comeback.denied);
    QCOMPARE(config.comeback.bus.value(), 7u);
    QCOMPARE(config.comeback.againMs.value(), 30u);
    QCOMPARE(config.comeback.speed.value(), 10000u);
    QCOMPARE(config.speed, 480u);
    QCOMPARE(config.badRam, (std::vector<uint32_t>{0x40000000, 1}));
    QCOMPARE(config.powerCycleWhenIdleMs.value(), 250u);
}

void TestSimScene::defaultsHold()
{
    const Scene scene = parse("device a\nproduct sorn3\ndevice b\nproduct velk3\n");
    QVERIFY(scene.strict);
    QVERIFY(!scene.fullTranscript);
    const DeviceConfig &config = scene.devices.at(1).config;
    QVERIFY(config.runningId == (UsbId{0xE5C1, 0x3601}));
    QVERIFY(config.mode == Mode::Normal);
    QCOMPARE(config.serial.text, std::string("SIM00002"));
    QCOMPARE(config.busyPolls, 3u);
    QCOMPARE(config.comeback.afterMs, 500u);
    QVERIFY(!config.port);
    QCOMPARE(config.speed, 5000u);
    QCOMPARE(config.interfaces, 1u);
    QVERIFY(config.kernelDrivers.empty());
    QVERIFY(!config.powerCycleWhenIdleMs);
}

void TestSimScene::commentsBlanksAndQuotesAreUnderstood()
{
    const Scene scene = parse("# a scene\r\n\n\tdevice a # here it begins\r\nproduct velk3#\n"
                              "serial \"a # \\\"b\\\\\"# c\n");
    QCOMPARE(scene.devices.at(0).config.serial.text, std::string("a # \"b\\"));
}

void TestSimScene::countMakesNumberedDevices()
{
    const Scene scene = parse("device a\nproduct velk3\ncount 3\nport 5\naddress 20\n");
    QCOMPARE(scene.devices.size(), size_t(3));
    QCOMPARE(scene.devices[2].config.name, std::string("a3"));
    QCOMPARE(scene.devices[2].config.port.value(), 7u);
    QCOMPARE(scene.devices[2].config.address.value(), 22u);
    QCOMPARE(scene.devices[2].config.serial.text, std::string("SIM00003"));
}

void TestSimScene::faultOfAGroupMeansEachOfIt()
{
    const Scene scene = parse("device a\nproduct velk3\ncount 2\n"
                              "fault a claim busy\nfault a2 open denied\n");
    QCOMPARE(scene.devices[0].faults.size(), size_t(1));
    QCOMPARE(scene.devices[1].faults.size(), size_t(2));
}

void TestSimScene::faultsAreRead_data()
{
    QTest::addColumn<QByteArray>("words");
    QTest::addColumn<int>("where");
    QTest::addColumn<int>("code");
    QTest::addColumn<unsigned>("nth");
    QTest::addColumn<int>("action");
    const auto row = [](const char *words, Fault::Where where, int code, unsigned nth,
                        Fault::Action action) {
        QTest::newRow(words) << QByteArray(words) << int(where) << code << nth << int(action);
    };
    row("transfer nth 17 stall", Fault::Where::Transfer, 0, 17, Fault::Action::Stall);
    row("FX3_WRITE silence", Fault::Where::Request, 0xC6, 1, Fault::Action::Silence);
    row("0xA0 in every protocol", Fault::Where::Request, 0xA0, 0, Fault::Action::Protocol);
    row("178 overflow", Fault::Where::Request, 178, 1, Fault::Action::Overflow);
    row("MEMORY_START stall performed", Fault::Where::Start, 0, 1, Fault::Action::Stall);
    row("string 3 nth 2 short 1", Fault::Where::String, 3, 2, Fault::Action::Short);
    row("claim nth 2 busy", Fault::Where::Claim, 0, 2, Fault::Action::Busy);
    row("claim not-found", Fault::Where::Claim, 0, 1, Fault::Action::NotFound);
    row("open denied", Fault::Where::Open, 0, 0, Fault::Action::Denied);
    row("open no-device", Fault::Where::Open, 0, 0, Fault::Action::NoDevice);
    row("FX3_STATUS zeros 5", Fault::Where::Request, 0xC8, 1, Fault::Action::Zeros);
    row("EDID_WRITE delay 100", Fault::Where::Request, 0xD2, 1, Fault::Action::Delay);
    row("transfer disconnect replug 100 address 9", Fault::Where::Transfer, 0, 1,
        Fault::Action::Disconnect);
}

void TestSimScene::faultsAreRead()
{
    QFETCH(QByteArray, words);
    const Fault fault = faultOf(words);
    QTEST(int(fault.where), "where");
    QTEST(int(fault.code), "code");
    QTEST(fault.nth, "nth");
    QTEST(int(fault.action), "action");
    QCOMPARE(fault.performed, words.contains("performed"));
    QCOMPARE(fault.replugMs.has_value(), words.contains("replug"));
    if (fault.replugMs) {
        QCOMPARE(*fault.replugMs, 100u);
        QCOMPARE(fault.replugAddress.value(), 9u);
    }
    QVERIFY(faultOf("USER_MODE out index 2 data 00ff").data == (Bytes{0x00, 0xFF}));
    QCOMPARE(faultOf("USER_MODE out index 2 stall").index.value(), uint16_t(2));
}

void TestSimScene::repeatedSignalsFormATimeline()
{
    const Scene scene = parse("device a\nproduct velk3\ninput at 500 none\n"
                              "input at 100 1920x1080i 59940 \"N\" \"I\"\ninput repeat 1000\n");
    const InputTimeline &input = scene.devices[0].config.input;
    QCOMPARE(input.at(99).width, uint16_t(0));
    QCOMPARE(input.at(1100).width, uint16_t(1920));
    QCOMPARE(input.at(1100).height, uint16_t(1080));
    QCOMPARE(input.at(1100).frameRate, 59940u);
    QCOMPARE(input.at(1100).interlaced, true);
    QCOMPARE(input.at(1100).name, std::string("N"));
    QCOMPARE(input.at(1100).info, std::string("I"));
    QCOMPARE(input.at(500).width, uint16_t(0));
}

void TestSimScene::constantSignalReplacesTheTimeline()
{
    const Scene scene = parse("device a\nproduct velk3\ninput at 500 none\ninput repeat 600\n"
                              "input 720x480p 60000 \"\" \"\"\n");
    QCOMPARE(scene.devices[0].config.input.at(550).width, uint16_t(720));
    QCOMPARE(scene.devices[0].config.input.at(550).interlaced, false);
}

void TestSimScene::denialIsNoticed_data()
{
    QTest::addColumn<QByteArray>("words");
    QTest::addColumn<bool>("denies");
    QTest::newRow("none") << QByteArray("") << false;
    QTest::newRow("access granted") << QByteArray("access granted") << false;
    QTest::newRow("access denied") << QByteArray("access denied") << true;
    QTest::newRow("return denied") << QByteArray("return denied") << true;
    QTest::newRow("fault") << QByteArray("fault v open denied") << true;
    QTest::newRow("said so") << QByteArray("allow-denial") << true;
}

void TestSimScene::denialIsNoticed()
{
    QFETCH(QByteArray, words);
    QTEST(parse("device v\nproduct velk3\n" + words + "\n").deniesAccess(), "denies");
}

void TestSimScene::errorsNameLineAndWord_data()
{
    QTest::addColumn<QByteArray>("line"); // the fourth, inside a device
    QTest::addColumn<QString>("error");
    const auto row = [](const char *line, const char *error) {
        QTest::newRow(*line ? line : "nothing")
            << QByteArray(line) << (*error ? QString("scene.txt:4: ") + error : QString());
    };
    row("", "");
    row("foo", "unknown word 'foo'");
    row("product velk4", "unknown product 'velk4'");
    row("product", "missing product after 'product'");
    row("product velk3 velk3", "unexpected word 'velk3'");
    row("speed 1000", "speed '1000' is not 12, 480, 5000 or 10000");
    row("return after 9 speed fast", "speed 'fast' is not 12, 480, 5000 or 10000");
    row("interfaces 0", "interfaces '0' is not a number from 1 to 8");
    row("kernel-driver uvcvideo interface 8", "interface '8' is not a number from 0 to 7");
    row("behind-hub 1.32", "port '32' is not a number from 1 to 31");
    row("behind-hub 1..2", "port '' is not a number from 1 to 31");
    row("behind-hub 1.1.1.1.1.1", "more than 5 hubs in '1.1.1.1.1.1'");
    row("mode dead", "unknown mode 'dead'");
    row("id 123:4567", "id '123:4567' is not of the form VVVV:PPPP");
    row("id e5c1:36g1", "half of an id '0x36g1' is not a number from 0 to 65535");
    row("port 0", "port '0' is not a number from 1 to 255");
    row("port 12x", "port '12x' is not a number from 1 to 255");
    row("address 1", "address '1' is not a number from 2 to 127");
    row("serial A1B2", "text 'A1B2' is not in quotes");
    row("serial \"A1B2", "text without its closing quote '\"A1B2'");
    row("busy-polls -1", "polls '-1' is not a number from 0 to 1000000");
    row("flags 0x100", "flags '0x100' is not a number from 0 to 255");
    row("flags", "missing flags after 'flags'");
    row("user-mode 3 1x1 on", "user mode '3' is not a number from 0 to 2");
    row("user-mode 0 1280 on", "'1280' is not of the form WIDTHxHEIGHT");
    row("user-mode 0 1280x720p on", "'1280x720p' is not of the form WIDTHxHEIGHT");
    row("user-mode 0 1280x720 maybe", "unknown word 'maybe'");
    row("input at 5 1280x720 5 \"\" \"\"",
        "'1280x720' is not of the form WIDTHxHEIGHTp or WIDTHxHEIGHTi");
    row("input at soon none", "time 'soon' is not a number from 0 to 86400000");
    row("return later", "unknown word 'later'");
    row("access maybe", "unknown word 'maybe'");
    row("transcript loud", "unknown word 'loud'");
    row("title Title", "title 'Title' is not in quotes");
    row("strict now", "unexpected word 'now'");
    row("count 0", "count '0' is not a number from 1 to 120");
    row("device a/b", "'a/b' is no name for a device");
    row("fault w claim busy", "no device 'w' above");
    row("fault v", "missing place of the fault after 'v'");
    row("fault v FX3_WRIT stall", "unknown request 'FX3_WRIT'");
    row("fault v FX3_WRITE", "missing action after 'FX3_WRITE'");
    row("fault v FX3_WRITE nth 0 stall", "occurrence '0' is not a number from 1 to 4294967295");
    row("fault v FX3_WRITE explode", "unknown word 'explode'");
    row("fault v FX3_WRITE busy", "'busy' cannot happen there");
    row("fault v claim stall", "'stall' cannot happen there");
    row("fault v FX3_STATUS data 0", "'0' is not a number of bytes in hexadecimal");
    row("fault v FX3_STATUS short 1 performed", "unexpected word 'performed'");
}

void TestSimScene::errorsNameLineAndWord()
{
    QFETCH(QByteArray, line);
    QTEST(complaint("# scene\ndevice v\n  product velk3\n" + line + "\n"), "error");
    // Mistakes that show only once the whole scene is known stand at the line of their device.
    QCOMPARE(complaint("\ndevice v\n\n"), QString("scene.txt:2: device 'v' has no product"));
    QCOMPARE(complaint("device v\nproduct other\n"), QString("scene.txt:1: device 'v' has no id"));
    QCOMPARE(complaint("product velk3\n"),
             QString("scene.txt:1: 'product' stands before the first device"));
    const QByteArray twice = "device v\nproduct velk3\nport 4\ndevice ";
    QCOMPARE(complaint(twice + "v\nproduct velk3\n"), QString("scene.txt:4: a second device 'v'"));
    QCOMPARE(complaint(twice + "w\nproduct velk3\nport 4\n"),
             QString("scene.txt:4: port '4' is taken"));
}

void TestSimScene::missingFileIsNamed()
{
    const QByteArray text = "device v\nproduct velk3\nmicrocode no-such-file\n";
    QCOMPARE(complaint(text), QString("scene.txt:3: cannot read file 'no-such-file'"));
    try {
        parseScene(text.toStdString(), "scene.txt", "/there");
        QFAIL("the file was found");
    } catch (const SceneError &error) {
        QCOMPARE(error.what(), "scene.txt:3: cannot read file '/there/no-such-file'");
    }
}

void TestSimScene::fileThatIsNoBootImageIsNamed()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    const QString path = file.fileName();
    QCOMPARE(complaint("device v\nproduct velk3\nsandbox-image " + path.toUtf8() + "\n"),
             QString("scene.txt:3: file '%1' is no FX3 boot image").arg(path));
}

void TestSimScene::unknownSceneIsNamed()
{
    try {
        loadScene("no-such-scene");
        QFAIL("the scene was found");
    } catch (const SceneError &error) {
        QCOMPARE(error.what(), "no scene 'no-such-scene'");
    }
}

void TestSimScene::builtinSceneWinsOverAFileOfItsName()
{
    QTemporaryDir directory;
    QFile file(directory.filePath("none"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("device v\nproduct velk3\n");
    file.close();
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    const size_t builtin = loadScene("none").devices.size();
    const size_t own = loadScene("./none").devices.size();
    QDir::setCurrent(before);
    QCOMPARE(builtin, size_t(0));
    QCOMPARE(own, size_t(1));
}

void TestSimScene::everyBuiltinSceneIsGood()
{
    const QMap<QString, int> sizes = {
        {"none", 0},           {"velk3", 1},         {"sorn3", 1},           {"velk3_4k", 1},
        {"several", 4},        {"twenty", 20},       {"hundred", 100},       {"soft-velk3", 1},
        {"soft-sorn3", 1},     {"soft-velk3_4k", 1}, {"hard-velk3", 1},      {"hard-sorn3", 1},
        {"hard-velk3_4k", 1},  {"late-sandbox", 1},  {"lost-sandbox", 1},    {"other-sandbox", 1},
        {"denied-sandbox", 1}, {"bad-ram", 1},       {"running-sandbox", 1}, {"live-signal", 1},
        {"demo", 4},
    };
    QMap<QString, int> found;
    for (const BuiltinScene *scene = s_builtinScenes; scene->name; ++scene) {
        const Scene loaded = loadScene(scene->name);
        QVERIFY2(!loaded.title.empty(), scene->name);
        found[scene->name] = static_cast<int>(loaded.devices.size());
    }
    QCOMPARE(found, sizes);
}

QTEST_GUILESS_MAIN(TestSimScene)
#include "tst_simscene.moc"
