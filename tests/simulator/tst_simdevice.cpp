#include "controlpipe.h"
#include "descriptors.h"

#include <QtTest>

using namespace sim;

// The devices' behaviour, without libusb.
class TestSimDevice : public QObject
{
    Q_OBJECT

private slots:
    void statusAnswersZeroWhileBusy();
    void microcodeIsWhatCameBetweenStartAndCompletion();
    void emptyMicrocodeCanBeCompleted();
    void startForgetsWhatCameBefore();
    void framedBitstreamIsTaken();
    void framedBitstreamOfNoBytesIsTaken();
    void headerNeedsNoPollBehindIt();
    void framedBitstreamWithAMistakeIsRefusedAtItsCompletion_data();
    void framedBitstreamWithAMistakeIsRefusedAtItsCompletion();
    void rawBitstreamTakesBlocksAsTheyAre();
    void edidIsTakenAtItsCompletion();
    void edidOfAProductWithoutOneIsRefusedWithoutViolation();
    void flagsAndUserModesAreKept();
    void inputRecordHasItsLayout();
    void inputFollowsItsTimeline();
    void violations_data();
    void violations();
    void everyRequestOfTheTableIsKnown();
    void violationsAreKeptUpToAHundred();
    void plainDeviceKnowsNoVendorRequest();
    void bootLoaderRefusesAllButItsRam();
    void ramReadsBackWhatWasWritten();
    void ramAddressesWrap();
    void badRamReadsBackInverted();
    void startNeedsTheWholeSandboxImage_data();
    void startNeedsTheWholeSandboxImage();
    void startWithoutImageNeedsWrittenRam();
    void identities_data();
    void identities();
    void powerCycleAfterACutWrite_data();
    void powerCycleAfterACutWrite();
    void brokenDeviceStaysBrokenUntilBothImagesAreWhole();
    void versionIsNamedByTheMicrocode_data();
    void versionIsNamedByTheMicrocode();
    void deviceDescriptorHasItsLayout();
    void absentSerialHasNoIndex();
    void stringDescriptorIsUtf16();
    void versionStringIsReadableOnlyWhileTheProductRuns();
    void pollAnsweredByAFaultEndsTheBusyTime();
    void earlierFaultWins();
    void bootImageIsParsed();
    void damagedBootImageIsRefused();
};

namespace {

constexpr bool s_claimed = true;

DeviceConfig configOf(const char *product, Mode mode = Mode::Normal)
{
    DeviceConfig config;
    config.name = "device";
    config.product = findProduct(product);
    config.runningId = config.product->runningId;
    config.mode = mode;
    return config;
}

Bytes bytesOf(const char *hex)
{
    const QByteArray bytes = QByteArray::fromHex(hex);
    return Bytes(bytes.begin(), bytes.end());
}

// A device with short words for what a program does.
struct Bench
{
    explicit Bench(DeviceConfig config) : device(std::move(config)) {}

    Outcome out(uint8_t request, const Bytes &data = {}, uint16_t value = 0, uint16_t index = 0)
    {
        const auto length = static_cast<uint16_t>(data.size());
        return device.control({0x40, request, value, index, length}, data, s_claimed, 0);
    }
    Outcome in(uint8_t request, uint16_t length, uint16_t value = 0, uint16_t index = 0,
               uint64_t nowMs = 0)
    {
        return device.control({0xC0, request, value, index, length}, {}, s_claimed, nowMs);
    }
    bool took(uint8_t request, const Bytes &data = {})
    {
        return out(request, data).status == Status::Ok;
    }
    int zerosBeforeReady(uint8_t request)
    {
        int zeros = 0;
        while (in(request, 1).data.at(0) == 0) {
            ++zeros;
        }
        return zeros;
    }
    // A whole write of blocks with polls between them.
    bool write(uint8_t start, uint8_t block, uint8_t complete, uint8_t status,
               const std::vector<Bytes> &blocks)
    {
        bool good = took(start);
        for (const Bytes &data : blocks) {
            zerosBeforeReady(status);
            good = good && took(block, data);
        }
        zerosBeforeReady(status);
        return took(complete) && good;
    }
    bool writeMicrocode(const std::vector<Bytes> &blocks)
    {
        return write(0xC5, 0xC6, 0xC7, 0xC8, blocks);
    }
    bool writeBitstream(const std::vector<Bytes> &blocks)
    {
        return write(0xC1, 0xC2, 0xC3, 0xC4, blocks);
    }
    QStringList violations() const
    {
        QStringList texts;
        for (const std::string &text : device.violations()) {
            texts << QString::fromStdString(text);
        }
        return texts;
    }

    CaptureDevice device;
};

// "FPGA", 4 bytes, and zlib's CRC-32 of these 8 bytes; worked out with Python's zlib.crc32.
const char *const s_header4 = "46504741"
                              "04000000"
                              "ce21a951";
const char *const s_image4 = "01020304";
const char *const s_crc4 = "cdfb3cb6";

// Two sections, of 2 words and 1 word, entry 0x40000004, sum 1 + 2 + 0x10.
const char *const s_bootImage = "43591cb0"
                                "02000000"
                                "00000040"
                                "01000000"
                                "02000000"
                                "01000000"
                                "00010040"
                                "10000000"
                                "00000000"
                                "04000040"
                                "13000000";

} // namespace

void TestSimDevice::statusAnswersZeroWhileBusy()
{
    Bench bench(configOf("velk3"));
    QCOMPARE(bench.zerosBeforeReady(0xC8), 0);
    bench.out(0xC5);
    QCOMPARE(bench.zerosBeforeReady(0xC8), 3);
    QCOMPARE(bench.zerosBeforeReady(0xC8), 0);
    bench.out(0xC6, Bytes(4));
    QCOMPARE(bench.zerosBeforeReady(0xC4), 0); // the bitstream side is another
    QCOMPARE(bench.zerosBeforeReady(0xC8), 3);
}

void TestSimDevice::microcodeIsWhatCameBetweenStartAndCompletion()
{
    Bench bench(configOf("velk3"));
    QVERIFY(bench.writeMicrocode({bytesOf("00010203"), bytesOf("0405060708090a0b")}));
    QCOMPARE(bench.device.microcode().image(), bytesOf("000102030405060708090a0b"));
    QVERIFY(bench.device.wasUpdated());
    QVERIFY(bench.violations().isEmpty());
}

void TestSimDevice::emptyMicrocodeCanBeCompleted()
{
    Bench bench(configOf("velk3"));
    QVERIFY(bench.writeMicrocode({}));
    QVERIFY(bench.device.microcode().state() == ImageMemory::State::Complete);
    QVERIFY(bench.device.microcode().image().empty());
}

void TestSimDevice::startForgetsWhatCameBefore()
{
    Bench bench(configOf("velk3"));
    bench.out(0xC5);
    bench.zerosBeforeReady(0xC8);
    bench.out(0xC6, bytesOf("aaaaaaaa"));
    QVERIFY(bench.writeMicrocode({bytesOf("bbbbbbbb")}));
    QCOMPARE(bench.device.microcode().image(), bytesOf("bbbbbbbb"));
}

void TestSimDevice::framedBitstreamIsTaken()
{
    Bench bench(configOf("velk3"));
    QVERIFY(bench.writeBitstream(
        {bytesOf(s_header4), bytesOf("0102"), bytesOf("0304"), bytesOf(s_crc4)}));
    QCOMPARE(bench.device.bitstream().image(), bytesOf(s_image4));
}

void TestSimDevice::framedBitstreamOfNoBytesIsTaken()
{
    Bench bench(configOf("sorn3"));
    QVERIFY(bench.writeBitstream({bytesOf("46504741"
                                          "00000000"
                                          "99b6cbde"),
                                  bytesOf("00000000")}));
    QVERIFY(bench.device.bitstream().image().empty());
}

void TestSimDevice::headerNeedsNoPollBehindIt()
{
    Bench bench(configOf("velk3"));
    bench.out(0xC1);
    bench.zerosBeforeReady(0xC4);
    QVERIFY(bench.took(0xC2, bytesOf(s_header4)));
    QVERIFY(bench.took(0xC2, bytesOf(s_image4)));
    QVERIFY(!bench.took(0xC2, bytesOf(s_crc4))); // but data does
    QCOMPARE(bench.violations(), QStringList("FPGA_WRITE: block while busy"));
}

void TestSimDevice::framedBitstreamWithAMistakeIsRefusedAtItsCompletion_data()
{
    QTest::addColumn<QStringList>("blocks");
    QTest::newRow("magic") << QStringList{"46504742"
                                          "04000000"
                                          "ce21a951",
                                          s_image4, s_crc4};
    QTest::newRow("header checksum") << QStringList{"46504741"
                                                    "04000000"
                                                    "ce21a952",
                                                    s_image4, s_crc4};
    QTest::newRow("image checksum") << QStringList{s_header4, s_image4, "cdfb3cb7"};
    QTest::newRow("no checksum") << QStringList{s_header4, s_image4};
    QTest::newRow("too little data") << QStringList{s_header4, "010203"};
    QTest::newRow("too much data in one block") << QStringList{s_header4, "0102030405", s_crc4};
    QTest::newRow("too much data behind") << QStringList{s_header4, s_image4, "05", s_crc4};
    QTest::newRow("a second checksum") << QStringList{s_header4, s_image4, s_crc4, s_crc4};
    QTest::newRow("nothing at all") << QStringList{};
}

void TestSimDevice::framedBitstreamWithAMistakeIsRefusedAtItsCompletion()
{
    QFETCH(QStringList, blocks);
    Bench bench(configOf("velk3"));
    std::vector<Bytes> data;
    for (const QString &block : blocks) {
        data.push_back(bytesOf(block.toLatin1()));
    }
    QVERIFY(!bench.writeBitstream(data));
    QVERIFY(bench.device.bitstream().state() == ImageMemory::State::Writing);
    QVERIFY(bench.device.bitstream().image().empty());
    QVERIFY(bench.violations().isEmpty());
}

void TestSimDevice::rawBitstreamTakesBlocksAsTheyAre()
{
    Bench bench(configOf("velk3_4k"));
    QVERIFY(bench.writeBitstream({bytesOf("01"), bytesOf("0203")}));
    QCOMPARE(bench.device.bitstream().image(), bytesOf("010203"));
}

void TestSimDevice::edidIsTakenAtItsCompletion()
{
    Bench bench(configOf("velk3"));
    bench.out(0xCF);
    bench.out(0xD2, Bytes(256, 7));
    QVERIFY(bench.device.edid().image().empty());
    bench.out(0xD4);
    QCOMPARE(bench.device.edid().image(), Bytes(256, 7));
    // One that is cut short leaves the old one.
    bench.out(0xCF);
    bench.out(0xD2, Bytes(128, 9));
    bench.device.powerCycle();
    QCOMPARE(bench.device.edid().image(), Bytes(256, 7));
    QVERIFY(bench.device.mode() == Mode::Normal);
}

void TestSimDevice::edidOfAProductWithoutOneIsRefusedWithoutViolation()
{
    Bench bench(configOf("sorn3"));
    QVERIFY(!bench.took(0xCF));
    QVERIFY(bench.violations().isEmpty());
}

void TestSimDevice::flagsAndUserModesAreKept()
{
    DeviceConfig config = configOf("velk3");
    config.flags = 0xFF;
    config.userModes[2] = {1280, 720, 1};
    Bench bench(config);
    QCOMPARE(bench.in(0xE2, 1).data, bytesOf("ff"));
    QCOMPARE(bench.in(0xB3, 5, 0, 2).data, bytesOf("0005d00201"));
    bench.out(0xE3, bytesOf("17"));
    bench.out(0xB3, bytesOf("8007380400"), 0, 1);
    QCOMPARE(bench.in(0xE2, 1).data, bytesOf("17"));
    QCOMPARE(bench.in(0xB3, 5, 0, 1).data, bytesOf("8007380400"));
    QCOMPARE(bench.in(0xB3, 5, 0, 2).data, bytesOf("0005d00201"));
}

void TestSimDevice::inputRecordHasItsLayout()
{
    // 12 bytes of information, 8 of name, frame rate, width, height, interlaced.
    QCOMPARE(toRecord({1920, 1080, true, 60000, "A", "B"}), bytesOf("420000000000000000000000"
                                                                    "4100000000000000"
                                                                    "60ea0000"
                                                                    "8007"
                                                                    "3804"
                                                                    "01"));
    QCOMPARE(toRecord({}), Bytes(29, 0));
    // Texts that are too long fill their field and have no terminator.
    QCOMPARE(toRecord({0, 0, false, 0, "123456789", "1234567890123"}).at(11), uint8_t('2'));
}

void TestSimDevice::inputFollowsItsTimeline()
{
    DeviceConfig config = configOf("velk3");
    config.input.add(200, {});
    config.input.add(100, {640, 480, false, 60000, "", ""});
    config.input.repeatEvery(1000);
    Bench bench(config);
    QCOMPARE(bench.in(0xB2, 29, 0, 0, 99).data, Bytes(29, 0));
    QCOMPARE(bench.in(0xB2, 29, 0, 0, 100).data.at(24), uint8_t(0x80));
    QCOMPARE(bench.in(0xB2, 29, 0, 0, 200).data, Bytes(29, 0));
    QCOMPARE(bench.in(0xB2, 29, 0, 0, 1150).data.at(24), uint8_t(0x80));
}

void TestSimDevice::violations_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("request");
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, int type, int request, int value, int index, int length,
                        const char *text) {
        QTest::newRow(name) << type << request << value << index << length << QString(text);
    };
    row("recipient", 0xC1, 0xC8, 0, 0, 1, "bmRequestType is 0xc1");
    row("class request", 0xA1, 0xC8, 0, 0, 1, "bmRequestType is 0xa1");
    row("code", 0x40, 0xC9, 0, 0, 0, "unknown request: bRequest is 0xc9");
    row("direction", 0x40, 0xC8, 0, 0, 1, "FX3_STATUS: wrong direction");
    row("value", 0x40, 0xC5, 1, 0, 0, "FX3_START: wValue is 0x1");
    row("index", 0x40, 0xC1, 0, 1, 0, "FPGA_START: wIndex is 0x1");
    row("user mode", 0xC0, 0xB3, 0, 3, 5, "USER_MODE: wIndex is 0x3");
    row("length", 0xC0, 0xB2, 0, 0, 28, "INPUT_STATUS: wLength is 0x1c");
    row("poll of two bytes", 0xC0, 0xC8, 0, 0, 2, "FX3_STATUS: wLength is 0x2");
    row("block of none", 0x40, 0xC2, 0, 0, 0, "FPGA_WRITE: wLength is 0x0");
    row("block over 4096", 0x40, 0xC2, 0, 0, 4097, "FPGA_WRITE: wLength is 0x1001");
    row("odd microcode", 0x40, 0xC6, 0, 0, 6, "FX3_WRITE: wLength is 0x6");
    row("microcode without a start", 0x40, 0xC6, 0, 0, 8, "FX3_WRITE: block without a start");
    row("bitstream without a start", 0x40, 0xC2, 0, 0, 8, "FPGA_WRITE: block without a start");
    row("EDID without a start", 0x40, 0xD2, 0, 0, 128, "EDID_WRITE: EDID without a start");
    row("completion without a start", 0x40, 0xC7, 0, 0, 0,
        "FX3_COMPLETE: completion without a start");
    row("EDID completion without a start", 0x40, 0xD4, 0, 0, 0,
        "EDID_COMPLETE: EDID completion without a start");
    row("memory access", 0xC0, 0xA0, 0, 0, 4, "MEMORY_ACCESS while the product runs");
}

void TestSimDevice::violations()
{
    QFETCH(int, type);
    QFETCH(int, request);
    QFETCH(int, value);
    QFETCH(int, index);
    QFETCH(int, length);
    QFETCH(QString, text);
    Bench bench(configOf("velk3"));
    const Setup setup = {static_cast<uint8_t>(type), static_cast<uint8_t>(request),
                         static_cast<uint16_t>(value), static_cast<uint16_t>(index),
                         static_cast<uint16_t>(length)};
    const Bytes data(type & 0x80 ? 0 : static_cast<size_t>(length));
    QVERIFY(bench.device.control(setup, data, s_claimed, 0).status == Status::Stall);
    QCOMPARE(bench.violations(), QStringList(text));
}

// A row that is added to the table and nowhere else must not pass for something that it is not.
void TestSimDevice::everyRequestOfTheTableIsKnown()
{
    for (int code = 0; code <= 0xFF; ++code) {
        for (const Direction direction : {Direction::In, Direction::Out}) {
            const RequestRule *rule = findRule(static_cast<uint8_t>(code), direction);
            if (!rule || rule->addressed) {
                continue;
            }
            Bench bench(configOf("velk3"));
            const Bytes data(rule->minLength);
            if (direction == Direction::In) {
                bench.in(rule->code, rule->minLength);
            } else {
                bench.out(rule->code, data);
            }
            QCOMPARE(bench.violations().filter("does not know it"), QStringList());
        }
    }
}

void TestSimDevice::violationsAreKeptUpToAHundred()
{
    Bench bench(configOf("velk3"));
    int told = 0;
    bench.device.onViolation = [&told](const std::string &) { ++told; };
    for (int i = 0; i < 150; ++i) {
        bench.out(0xC9);
    }
    QCOMPARE(bench.violations().size(), 100);
    QCOMPARE(told, 150);
}

void TestSimDevice::plainDeviceKnowsNoVendorRequest()
{
    DeviceConfig config = configOf("other");
    config.runningId = {0x1209, 1};
    Bench bench(config);
    QVERIFY(bench.in(0xC8, 1).status == Status::Stall);
    QCOMPARE(bench.violations(),
             QStringList("vendor request to a device that is no capture device"));
}

void TestSimDevice::bootLoaderRefusesAllButItsRam()
{
    Bench bench(configOf("velk3", Mode::Hard));
    QVERIFY(bench.in(0xC8, 1).status == Status::Stall);
    QCOMPARE(bench.violations(), QStringList("FX3_STATUS to a boot loader"));
    // It asks for no claim.
    const Outcome outcome = bench.device.control({0xC0, 0xA0, 0, 0, 2}, {}, false, 0);
    QCOMPARE(outcome.data, bytesOf("0000"));
}

void TestSimDevice::ramReadsBackWhatWasWritten()
{
    Bench bench(configOf("velk3", Mode::Soft));
    bench.out(0xA0, bytesOf("0102030405"), 0x0FFE, 0x4001);
    QCOMPARE(bench.in(0xA0, 7, 0x0FFD, 0x4001).data, bytesOf("00010203040500"));
}

void TestSimDevice::ramAddressesWrap()
{
    Bench bench(configOf("velk3", Mode::Soft));
    bench.out(0xA0, bytesOf("01020304"), 0xFFFE, 0xFFFF);
    QCOMPARE(bench.in(0xA0, 2, 0, 0).data, bytesOf("0304"));
}

void TestSimDevice::badRamReadsBackInverted()
{
    DeviceConfig config = configOf("velk3", Mode::Soft);
    config.badRam = {0x40000001};
    Bench bench(config);
    bench.out(0xA0, bytesOf("010203"), 0, 0x4000);
    QCOMPARE(bench.in(0xA0, 3, 0, 0x4000).data, bytesOf("01fd03"));
}

void TestSimDevice::startNeedsTheWholeSandboxImage_data()
{
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<int>("entry");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("as it is") << QByteArray("10000000") << 0x40000004 << true;
    QTest::newRow("one bit wrong") << QByteArray("11000000") << 0x40000004 << false;
    QTest::newRow("not all of it") << QByteArray("100000") << 0x40000004 << false;
    QTest::newRow("other entry") << QByteArray("10000000") << 0x40000000 << false;
}

void TestSimDevice::startNeedsTheWholeSandboxImage()
{
    QFETCH(QByteArray, second);
    QFETCH(int, entry);
    QFETCH(bool, accepted);
    DeviceConfig config = configOf("velk3", Mode::Hard);
    config.sandboxImage = parseBootImage(bytesOf(s_bootImage));
    Bench bench(config);
    bench.out(0xA0, bytesOf("0100000002000000"), 0, 0x4000);
    bench.out(0xA0, bytesOf(second), 0x0100, 0x4000);
    QVERIFY(!bench.device.takeDeparture());
    bench.out(0xA0, {}, static_cast<uint16_t>(entry & 0xFFFF), static_cast<uint16_t>(entry >> 16));
    const auto departure = bench.device.takeDeparture();
    QVERIFY(departure.has_value());
    QCOMPARE(departure->accepted, accepted);
    QVERIFY(bench.device.mode() == (accepted ? Mode::Sandbox : Mode::Dead));
    QVERIFY(!bench.device.takeDeparture());
}

void TestSimDevice::startWithoutImageNeedsWrittenRam()
{
    Bench bench(configOf("velk3", Mode::Soft));
    bench.out(0xA0, bytesOf("0102"), 0, 0x4000);
    bench.out(0xA0, {}, 2, 0x4000);
    QCOMPARE(bench.device.takeDeparture()->accepted, false);
    bench.device.powerCycle();
    bench.out(0xA0, bytesOf("0102"), 0, 0x4000);
    bench.out(0xA0, {}, 1, 0x4000);
    QCOMPARE(bench.device.takeDeparture()->accepted, true);
}

void TestSimDevice::identities_data()
{
    QTest::addColumn<QString>("product");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("id");
    const auto row = [](const char *product, Mode mode, const char *id) {
        QTest::addRow("%s %s", product, toText(mode))
            << QString(product) << int(mode) << QString(id);
    };
    row("velk3", Mode::Normal, "e5c1:3601");
    row("velk3", Mode::Soft, "e5c1:3600");
    row("velk3", Mode::SoftF, "e5c1:360f");
    row("velk3", Mode::Sandbox, "e5c1:360f");
    row("velk3", Mode::Hard, "04b4:00f3");
    row("sorn3", Mode::Normal, "e5c1:3621");
    row("sorn3", Mode::Soft, "e5c1:3620");
    row("sorn3", Mode::Sandbox, "e5c1:362f");
    row("velk3_4k", Mode::Normal, "e5c1:3631");
    row("velk3_4k", Mode::Soft, "e5c1:3630");
    row("velk3_4k", Mode::Sandbox, "e5c1:363f");
}

void TestSimDevice::identities()
{
    QFETCH(QString, product);
    QFETCH(int, mode);
    QFETCH(QString, id);
    const CaptureDevice device(configOf(product.toLatin1(), static_cast<Mode>(mode)));
    QCOMPARE(QString::fromStdString(toText(device.id())), id);
    // Whatever vendor the firmware names, the boot loaders are the maker's.
    QCOMPARE(QString::fromStdString(toText(identityIn(Mode::Soft, {0x5555, 0x3601}))),
             QString("e5c1:3600"));
}

void TestSimDevice::powerCycleAfterACutWrite_data()
{
    QTest::addColumn<QList<int>>("requests"); // each followed by polls
    QTest::addColumn<int>("mode");
    QTest::newRow("nothing") << QList<int>{} << int(Mode::Normal);
    QTest::newRow("microcode started") << QList<int>{0xC5} << int(Mode::Soft);
    QTest::newRow("microcode completed") << QList<int>{0xC5, 0xC7} << int(Mode::Normal);
    QTest::newRow("bitstream started") << QList<int>{0xC5, 0xC7, 0xC1} << int(Mode::Soft);
    QTest::newRow("both completed") << QList<int>{0xC5, 0xC7, 0xC1, 0xC3} << int(Mode::Normal);
    QTest::newRow("EDID started") << QList<int>{0xCF} << int(Mode::Normal);
}

void TestSimDevice::powerCycleAfterACutWrite()
{
    QFETCH(QList<int>, requests);
    QFETCH(int, mode);
    Bench bench(configOf("velk3_4k"));
    for (const int request : requests) {
        QVERIFY(bench.took(static_cast<uint8_t>(request)));
        bench.zerosBeforeReady(0xC8);
        bench.zerosBeforeReady(0xC4);
    }
    bench.device.powerCycle();
    QCOMPARE(int(bench.device.mode()), mode);
}

void TestSimDevice::brokenDeviceStaysBrokenUntilBothImagesAreWhole()
{
    Bench bench(configOf("velk3_4k", Mode::Hard));
    const auto startSandbox = [&bench] {
        bench.out(0xA0, bytesOf("01"), 0, 0x4000);
        bench.out(0xA0, {}, 0, 0x4000);
        return bench.device.mode() == Mode::Sandbox;
    };
    QVERIFY(startSandbox());
    QVERIFY(bench.writeMicrocode({Bytes(4)}));
    bench.device.powerCycle();
    QVERIFY(bench.device.mode() == Mode::Hard);
    QVERIFY(startSandbox());
    QVERIFY(bench.writeBitstream({Bytes(4)}));
    bench.device.powerCycle();
    QVERIFY(bench.device.mode() == Mode::Normal);
}

void TestSimDevice::versionIsNamedByTheMicrocode_data()
{
    QTest::addColumn<QByteArray>("microcode");
    QTest::addColumn<QString>("version");
    QTest::newRow("named") << QByteArray("abVERSION=2.0.1\0cd", 17) << "2.0.1";
    QTest::newRow("named at the end") << QByteArray("VERSION=3") << "3";
    QTest::newRow("the first counts") << QByteArray("VERSION=1\0VERSION=2", 19) << "1";
    QTest::newRow("cut at 31") << "VERSION=" + QByteArray(40, '7') << QString(31, '7');
    // CRC-32 of "123456789" is the well-known check value 0xcbf43926; 0x3926 is 14630.
    QTest::newRow("not named") << QByteArray("123456789") << "0.0.14630";
    QTest::newRow("named empty") << QByteArray("VERSION=\0", 9) << "0.0.63547";
}

void TestSimDevice::versionIsNamedByTheMicrocode()
{
    QFETCH(QByteArray, microcode);
    QFETCH(QString, version);
    QCOMPARE(QString::fromStdString(versionOf(Bytes(microcode.begin(), microcode.end()))), version);
}

void TestSimDevice::deviceDescriptorHasItsLayout()
{
    QCOMPARE(deviceDescriptor({0xE5C1, 0x3601}, {true, true}), bytesOf("12"
                                                                       "01"
                                                                       "0003"
                                                                       "000000"
                                                                       "09"
                                                                       "c1e5"
                                                                       "0136"
                                                                       "0001"
                                                                       "01"
                                                                       "02"
                                                                       "04"
                                                                       "01"));
    QCOMPARE(configurationDescriptor(), bytesOf("09021200010100"
                                                "8032"
                                                "0904000000ff000000"));
}

void TestSimDevice::absentSerialHasNoIndex()
{
    DeviceConfig config = configOf("velk3");
    config.serial = {StringSetting::None, {}};
    Bench bench(config);
    const Outcome outcome = bench.device.control({0x80, 6, 0x0100, 0, 18}, {}, false, 0);
    QCOMPARE(outcome.data.at(16), uint8_t(0));
    QCOMPARE(outcome.data.at(15), uint8_t(2));
    QVERIFY(bench.device.control({0x80, 6, 0x0304, 0x0409, 255}, {}, false, 0).status ==
            Status::Stall);
    QVERIFY(bench.violations().isEmpty());
}

void TestSimDevice::stringDescriptorIsUtf16()
{
    QCOMPARE(stringDescriptor("A\xC3\xA9"), bytesOf("0603"
                                                    "4100"
                                                    "e900"));
    QCOMPARE(stringDescriptor("\xF0\x9F\x93\xB7"), bytesOf("0603"
                                                           "3dd8"
                                                           "f7dc"));
    QCOMPARE(stringDescriptor(std::string(200, 'x')).size(), size_t(254));
}

void TestSimDevice::versionStringIsReadableOnlyWhileTheProductRuns()
{
    const Setup version = {0x80, 6, 0x0303, 0x0409, 255};
    Bench running(configOf("velk3"));
    QCOMPARE(running.device.control(version, {}, false, 0).data, stringDescriptor("1.0.0"));
    Bench broken(configOf("velk3", Mode::Soft));
    QVERIFY(broken.device.control(version, {}, false, 0).status == Status::Stall);
}

void TestSimDevice::pollAnsweredByAFaultEndsTheBusyTime()
{
    Bench bench(configOf("velk3"));
    FaultPlan faults;
    Fault fault;
    fault.where = Fault::Where::Request;
    fault.code = Fx3Status;
    fault.action = Fault::Action::Data;
    fault.data = {0xFF};
    faults.add(fault);
    bench.out(0xC5);
    const Completion completion =
        transfer(bench.device, faults, {0xC0, Fx3Status, 0, 0, 1}, {}, s_claimed, 0);
    QCOMPARE(completion.outcome.data, bytesOf("ff"));
    QVERIFY(completion.faulted);
    QVERIFY(bench.took(0xC6, Bytes(4))); // the program was told that it may
}

void TestSimDevice::earlierFaultWins()
{
    FaultPlan faults;
    Fault any;
    any.nth = 2;
    any.action = Fault::Action::Silence;
    Fault ping;
    ping.where = Fault::Where::Request;
    ping.code = Fx3Status;
    ping.nth = 2;
    ping.action = Fault::Action::Stall;
    faults.add(any);
    faults.add(ping);
    const Setup setup = {0xC0, Fx3Status, 0, 0, 1};
    QVERIFY(!faults.strikeTransfer(setup));
    QVERIFY(faults.strikeTransfer(setup)->action == Fault::Action::Silence);
    QVERIFY(!faults.strikeTransfer(setup)); // the other counted too
}

void TestSimDevice::bootImageIsParsed()
{
    const auto image = parseBootImage(bytesOf(s_bootImage));
    QVERIFY(image.has_value());
    QCOMPARE(image->entry, 0x40000004u);
    QCOMPARE(image->sections.size(), size_t(2));
    QCOMPARE(image->sections[1].address, 0x40000100u);
    QCOMPARE(image->sections[1].data, bytesOf("10000000"));
}

void TestSimDevice::damagedBootImageIsRefused()
{
    const Bytes whole = bytesOf(s_bootImage);
    for (size_t size = 0; size < whole.size(); ++size) {
        QVERIFY2(!parseBootImage(Bytes(whole.begin(), whole.begin() + static_cast<long>(size))),
                 qPrintable(QString("cut at %1").arg(size)));
    }
    Bytes wrongSum = whole;
    wrongSum.back() ^= 1;
    QVERIFY(!parseBootImage(wrongSum));
    Bytes wrongSignature = whole;
    wrongSignature[1] = 'Z';
    QVERIFY(!parseBootImage(wrongSignature));
    Bytes hugeSection = whole;
    hugeSection[7] = 0xFF;
    QVERIFY(!parseBootImage(hugeSection));
}

QTEST_GUILESS_MAIN(TestSimDevice)
#include "tst_simdevice.moc"
