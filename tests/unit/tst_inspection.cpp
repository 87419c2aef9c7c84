#include "inspection.h"
#include "libziptexts.h"
#include "products.h"
#include "ziparchive.h"
#include "zipcalls.h"

#include <QTemporaryDir>
#include <QtTest>

#include <zip.h>

// What is told of a package without a device: what every entry is, and what an update would say of
// it. Nothing here needs a thread or a bus.
class TestInspection : public QObject
{
    Q_OBJECT

private slots:
    void init() { zipcalls::reset(); }
    void goodPackagesAreGood_data();
    void goodPackagesAreGood();
    void everyImageThatCannotBeOpenedHasItsText_data();
    void everyImageThatCannotBeOpenedHasItsText();
    void imagesThatCannotBeReadHaveTheirText_data();
    void imagesThatCannotBeReadHaveTheirText();
    void imagesAreAsLongAsIsStated();
    void sizesThatAreNotStatedAreNotMissed();
    void imagesWithoutEndAreGivenUp_data();
    void imagesWithoutEndAreGivenUp();
    void manySectionsAreCountedAndSomeListed();
    void ofEqualNamesTheFirstCounts();
    void entriesWithoutANameAreNotLookedAt();
    void archiveThatCannotBeListedIsRefused();
    void refusalOfThePackageStands();
    void sandboxThatCannotBeOpenedIsToldAlone();
};

namespace {

using Role = InspectedEntry::Role;

Inspection inspected(const std::vector<PackageEntry> &entries)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("package.fw");
    writeFile(path, zipArchive(entries));
    Zip archive(path.toStdString());
    return inspect_package(archive);
}

// A good velk3 package, but for the entry of this name.
std::vector<PackageEntry> velk3With(const PackageEntry &changed)
{
    std::vector<PackageEntry> entries = packageEntries(velk3, smallContent(velk3));
    for (PackageEntry &entry : entries) {
        if (entry.name == changed.name) {
            entry = changed;
            return entries;
        }
    }
    qFatal("no such entry in a package");
}

const InspectedEntry &entryNamed(const Inspection &inspection, const QString &name)
{
    for (const InspectedEntry &entry : inspection.entries) {
        if (entry.name == name) {
            return entry;
        }
    }
    qFatal("no such entry was inspected");
}

// "velk3.img: TEXT" of each entry with which something is wrong.
QStringList failuresOf(const Inspection &inspection)
{
    QStringList lines;
    for (const InspectedEntry &entry : inspection.entries) {
        if (!entry.failure.isEmpty()) {
            lines += entry.name + ": " + entry.failure;
        }
    }
    return lines;
}

PackageEntry sealed(const char *name, const QByteArray &data)
{
    PackageEntry entry{name, data};
    entry.encrypted = true;
    return entry;
}

PackageEntry withWrongCrc(const char *name, const QByteArray &data)
{
    PackageEntry entry{name, data};
    entry.statedCrc = 0;
    return entry;
}

const QString s_wrongMicrocodeLength = "the microcode is empty, or not as long as is stated";
const QString s_wrongBitstreamLength = "the bitstream is empty, or not as long as is stated";
const QString s_unreadableMicrocode = "Error: failed to read archieve %d";
const QString s_brokenBootImage = "FX3 checksum error";

constexpr int s_bound = 64 * 1024 * 1024; // of what is read of an image

} // namespace

void TestInspection::goodPackagesAreGood_data()
{
    QTest::addColumn<QByteArray>("product");
    for (const ProductFacts *product : allPackages()) {
        QTest::newRow(keyOf(*product)) << keyOf(*product);
    }
}

void TestInspection::goodPackagesAreGood()
{
    QFETCH(QByteArray, product);
    const ProductFacts &facts = productOf(product);
    const Inspection inspection = inspected(packageEntries(facts, smallContent(facts)));
    QVERIFY(inspection.isGood());
    QCOMPARE(failuresOf(inspection), QStringList());
    QCOMPARE(entryNamed(inspection, facts.fpgaName).role, Role::Bitstream);
    QCOMPARE(entryNamed(inspection, facts.fpgaName).size.value_or(0), quint64(8));
    QCOMPARE(entryNamed(inspection, facts.fpgaName).crc.value_or(0), crc32Of("bitstrm!"));
    QCOMPARE(entryNamed(inspection, facts.fx3Name).role, Role::Microcode);
    const InspectedEntry &sandbox = entryNamed(inspection, facts.sandboxName);
    QCOMPARE(sandbox.role, Role::Sandbox);
    QCOMPARE(sandbox.sectionCount, std::size_t(1));
    QCOMPARE(sandbox.sections[0].address, 0x40003000U);
    QCOMPARE(sandbox.sections[0].length, 8U);
    QCOMPARE(sandbox.entryAddress.value_or(0), 0x40003000U);
    if (facts.edidName) {
        QCOMPARE(entryNamed(inspection, facts.edidName).role, Role::Edid);
        QCOMPARE(entryNamed(inspection, facts.edidName).edidBlocks, 1);
    }
}

void TestInspection::everyImageThatCannotBeOpenedHasItsText_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("text");
    QTest::newRow("bitstream") << QByteArray("velk3.bin") << "Error: failed to find FPGA image";
    QTest::newRow("microcode") << QByteArray("velk3.img")
                               << "Error: failed to find microcode image";
    QTest::newRow("sandbox") << QByteArray("velk3-sandbox.img")
                             << "the sandbox cannot be opened: " + libzipText(ZIP_ER_NOPASSWD);
    QTest::newRow("EDID") << QByteArray("edid_velk3_uvc.edid") << "Can't open EDID file";
}

void TestInspection::everyImageThatCannotBeOpenedHasItsText()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, text);
    const Inspection inspection = inspected(velk3With(sealed(name, "12345678")));
    QCOMPARE(failuresOf(inspection), QStringList{name + ": " + text});
    QVERIFY(!inspection.isGood());
}

void TestInspection::imagesThatCannotBeReadHaveTheirText_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("data"); // whose CRC is wrong
    QTest::addColumn<QString>("text");
    const QByteArray sandbox = bootImage({{0x40003000, "sandbox!"}}, 0x40003000);
    QTest::newRow("bitstream") << QByteArray("velk3.bin") << QByteArray("bits")
                               << "Error: failed to read FPGA image: " + libzipText(ZIP_ER_CRC);
    QTest::newRow("microcode") << QByteArray("velk3.img") << QByteArray("code")
                               << s_unreadableMicrocode;
    QTest::newRow("sandbox cut in its header")
        << QByteArray("velk3-sandbox.img") << QByteArray("CY\x1C") << s_brokenBootImage;
    QTest::newRow("sandbox cut in its checksum")
        << QByteArray("velk3-sandbox.img") << sandbox.chopped(1) << s_brokenBootImage;
}

void TestInspection::imagesThatCannotBeReadHaveTheirText()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, data);
    QFETCH(QString, text);
    const Inspection inspection = inspected(velk3With(withWrongCrc(name, data)));
    QCOMPARE(failuresOf(inspection), QStringList{name + ": " + text});
    QVERIFY(!entryNamed(inspection, name).entryAddress);
}

void TestInspection::imagesAreAsLongAsIsStated()
{
    QCOMPARE(failuresOf(inspected(velk3With({"velk3.img", ""}))),
             QStringList{"velk3.img: " + s_wrongMicrocodeLength});
    QCOMPARE(failuresOf(inspected(velk3With({"velk3.bin", ""}))),
             QStringList{"velk3.bin: " + s_wrongBitstreamLength});
    zipcalls::changeStat([](zip_stat_t &stat) { stat.size += 4; });
    QCOMPARE(failuresOf(inspected(packageEntries(velk3, smallContent(velk3)))),
             (QStringList{"velk3.bin: " + s_wrongBitstreamLength,
                          "velk3.img: " + s_wrongMicrocodeLength}));
}

void TestInspection::sizesThatAreNotStatedAreNotMissed()
{
    zipcalls::changeStat(
        [](zip_stat_t &stat) { stat.valid &= ~zip_uint64_t(ZIP_STAT_SIZE | ZIP_STAT_CRC); });
    const Inspection inspection = inspected(packageEntries(velk3, smallContent(velk3)));
    QVERIFY2(inspection.isGood(), qPrintable(failuresOf(inspection).join('\n')));
    for (const InspectedEntry &entry : inspection.entries) {
        QVERIFY(!entry.size);
        QVERIFY(!entry.crc);
    }
}

void TestInspection::imagesWithoutEndAreGivenUp_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("text");
    QTest::newRow("bitstream") << QByteArray("velk3.bin")
                               << "Error: failed to read FPGA image: it is too long";
    QTest::newRow("microcode") << QByteArray("velk3.img") << s_unreadableMicrocode;
    QTest::newRow("sandbox") << QByteArray("velk3-sandbox.img") << s_brokenBootImage;
}

// Good images but for their length: as a boot image, sections of zeros, as long as one may be.
void TestInspection::imagesWithoutEndAreGivenUp()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, text);
    constexpr int longestSection = 0x200000;
    constexpr int sections = s_bound / longestSection + 2;
    QByteArray image("CY\x1C\xB0");
    for (int i = 0; i < sections; ++i) {
        image += le32(longestSection / 4) + le32(0) + QByteArray(longestSection, '\0');
    }
    image += le32(0) + le32(0) + le32(0);
    const Inspection inspection = inspected(velk3With({name, image, true}));
    QCOMPARE(failuresOf(inspection), QStringList{name + ": " + text});
    if (entryNamed(inspection, name).role == Role::Sandbox) {
        QCOMPARE(entryNamed(inspection, name).sectionCount, std::size_t(sections - 1));
    }
}

void TestInspection::manySectionsAreCountedAndSomeListed()
{
    const std::vector<BootSection> sections(65, {0x40003000, "data"});
    const Inspection inspection =
        inspected(velk3With({"velk3-sandbox.img", bootImage(sections, 0x40003000)}));
    QVERIFY(inspection.isGood());
    const InspectedEntry &sandbox = entryNamed(inspection, "velk3-sandbox.img");
    QCOMPARE(sandbox.sectionCount, std::size_t(65));
    QCOMPARE(sandbox.sections.size(), std::size_t(64));
}

// As an update takes it.
void TestInspection::ofEqualNamesTheFirstCounts()
{
    for (const bool goodFirst : {true, false}) {
        const PackageEntry empty{"velk3.bin", ""};
        std::vector<PackageEntry> entries = packageEntries(velk3, smallContent(velk3));
        entries.insert(goodFirst ? entries.end() : entries.begin(), empty);
        const Inspection inspection = inspected(entries);
        QCOMPARE(inspection.entries.size(), entries.size());
        QCOMPARE(inspection.isGood(), goodFirst);
    }
}

// Also where the product has no EDID, and so no name for it.
void TestInspection::entriesWithoutANameAreNotLookedAt()
{
    zipcalls::changeStat([](zip_stat_t &stat) { stat.valid &= ~zip_uint64_t(ZIP_STAT_NAME); });
    for (const ProductFacts *product : allProducts()) {
        const Inspection inspection = inspected(packageEntries(*product, smallContent(*product)));
        QVERIFY(!inspection.entries.empty());
        for (const InspectedEntry &entry : inspection.entries) {
            QCOMPARE(entry.name, QString());
            QCOMPARE(entry.role, Role::Other);
            QCOMPARE(entry.failure, QString());
        }
    }
}

// The package is one, but nobody can say what is in it.
void TestInspection::archiveThatCannotBeListedIsRefused()
{
    zipcalls::failStat(2);
    const Inspection inspection = inspected(packageEntries(velk3, smallContent(velk3)));
    QVERIFY(inspection.entries.empty());
    QCOMPARE(inspection.package.refusal, libzipText(ZIP_ER_INVAL));
    QVERIFY(!inspection.isGood());
}

void TestInspection::refusalOfThePackageStands()
{
    zipcalls::failStat(0);
    const Inspection inspection = inspected({{"product.info", "toaster\n"}});
    QVERIFY(inspection.entries.empty());
    QCOMPARE(inspection.package.refusal, QString("Unsupported product: 'toaster'"));
}

void TestInspection::sandboxThatCannotBeOpenedIsToldAlone()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("package.fw");
    for (const bool isSealed : {true, false}) {
        PackageEntry sandbox{"velk3-sandbox.img", "anything"};
        sandbox.encrypted = isSealed;
        writeFile(path, zipArchive(velk3With(sandbox)));
        Zip archive(path.toStdString());
        const Package package = read_package(archive);
        QCOMPARE(package.refusal, QString());
        QCOMPARE(closed_sandbox(archive, *package.product),
                 isSealed ? "the sandbox cannot be opened: " + libzipText(ZIP_ER_NOPASSWD)
                          : QString());
    }
}

QTEST_GUILESS_MAIN(TestInspection)
#include "tst_inspection.moc"
