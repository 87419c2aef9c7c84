#include "updaterun.h"

#include <QtTest>

// Is this file a package, for which product, is it complete, and is it for this device? All of it
// before the device is touched: here the device is not even on the bus, so a package that is
// accepted ends with "Cannot Access Device".
class TestPackage : public QObject
{
    Q_OBJECT

private slots:
    void whatIsNoArchiveIsRefusedBeforeAnyProgress_data();
    void whatIsNoArchiveIsRefusedBeforeAnyProgress();
    void pathsThatAreNotAsciiAreOpened();

    void theFirstLineIsTheProduct_data();
    void theFirstLineIsTheProduct();
    void anUnsupportedKeyIsShownAsItIs_data();
    void anUnsupportedKeyIsShownAsItIs();
    void aKeyWithoutEndIsReadUpToABound();
    void aPackageWithoutProductInfoIsALegacyOne();
    void anEncryptedProductInfoIsRefused();
    void aDamagedProductInfoIsRefused_data();
    void aDamagedProductInfoIsRefused();

    void completePackagesAreAccepted_data();
    void completePackagesAreAccepted();
    void missingFilesAreNamedInOrder_data();
    void missingFilesAreNamedInOrder();
    void anEdidAloneIsAPackage_data();
    void anEdidAloneIsAPackage();
    void sorn3KnowsNoEdid();
    void namesAreMatchedExactly_data();
    void namesAreMatchedExactly();
    void versionTextIsIgnored();
    void theLogNamesWhatIsMissingAndWhatIsOptional();

    void devicesThatFit_data();
    void devicesThatFit();
};

namespace {

const QStringList s_accepted{
    "progress 1", "progress 2",
    "error Cannot Access Device. Administrative privilegies may be required", "complete"};

QStringList refused(const QString &text)
{
    return {"progress 1", "error " + text, "complete"};
}

DeviceDescription absentDevice(quint16 vendorId, quint16 productId, quint32 mode = 0)
{
    DeviceDescription record{};
    record.vendorId = vendorId;
    record.productId = productId;
    record.mode = mode;
    return record;
}

// A velk3 package with this entry in place of its product.info.
std::vector<PackageEntry> velk3With(const PackageEntry &info)
{
    auto entries = packageEntries("velk3", smallImages("velk3"));
    entries[0] = info;
    return entries;
}

QStringList runAbsent(const std::vector<PackageEntry> &package, quint16 productId = 0x3601)
{
    UpdateRun run;
    const QStringList events = run.run(absentDevice(0xE5C1, productId), package);
    if (!run.bus.handleCalls().isEmpty())
        return run.bus.handleCalls();
    return events;
}

} // namespace

void TestPackage::whatIsNoArchiveIsRefusedBeforeAnyProgress_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("reason");
    const QByteArray whole = zipArchive(packageEntries("velk3", smallImages("velk3")));
    QTest::newRow("0 bytes") << QByteArray("") << "Not a zip archive";
    QTest::newRow("text") << QByteArray("no archive ").repeated(30) << "Not a zip archive";
    QTest::newRow("cut in half") << whole.left(whole.size() / 2) << "Not a zip archive";
    QTest::newRow("its last byte missing") << whole.chopped(1) << "Not a zip archive";
    QTest::newRow("missing") << QByteArray() << "No such file";
}

void TestPackage::whatIsNoArchiveIsRefusedBeforeAnyProgress()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, reason);
    UpdateRun run;
    const QString path = run.directory.filePath("file.fw");
    if (!file.isNull())
        writeFile(path, file);
    QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), path),
             (QStringList{"error Cannot open firmware package: " + reason, "complete"}));
    QCOMPARE(run.debugLines(),
             (QStringList{"Updater start", "Can't open firmware file: " + reason}));
    QVERIFY(run.bus.calls().isEmpty());
}

void TestPackage::pathsThatAreNotAsciiAreOpened()
{
    UpdateRun run;
    const QString path = run.directory.filePath(QString::fromUtf8("прошивка größer 固件.fw"));
    writeFile(path, zipArchive(packageEntries("velk3", smallImages("velk3"))));
    QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), path), s_accepted);
}

void TestPackage::theFirstLineIsTheProduct_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::newRow("with line feed") << QByteArray("velk3\n");
    QTest::newRow("without line feed") << QByteArray("velk3");
    QTest::newRow("more lines") << QByteArray("velk3\nversion 7\nsorn3\n");
    QTest::newRow("a long second line") << "velk3\n" + QByteArray(5000, 'x');
    QTest::newRow("text up to the first NUL") << QByteArray("velk3\0junk\n", 11);
    QTest::newRow("NUL at its end") << QByteArray("velk3\0", 6);
    // A NUL cuts its piece of 15 bytes short, and the next piece goes on.
    QTest::newRow("NUL in one piece, rest in the next") << QByteArray("ve\0@56789012345lk3\n", 19);
    QTest::newRow("only the first NUL of a piece counts") << QByteArray("velk3\0abc\0def\n", 14);
}

void TestPackage::theFirstLineIsTheProduct()
{
    QFETCH(QByteArray, info);
    for (const bool deflated : {false, true}) {
        UpdateRun run;
        QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), velk3With({"product.info", info, deflated})),
                 s_accepted);
        QCOMPARE(run.debugLines().at(1), QStringLiteral("Deal with product:  velk3"));
    }
}

void TestPackage::anUnsupportedKeyIsShownAsItIs_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QString>("key");
    const QByteArray letters("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOP");
    QTest::newRow("empty file") << QByteArray() << "";
    QTest::newRow("empty line") << QByteArray("\n") << "";
    QTest::newRow("empty line, then a product") << QByteArray("\nvelk3\n") << "";
    for (const int length : {1, 14, 15, 16, 29, 30, 31, 40}) {
        const QByteArray line = letters.left(length);
        QTest::addRow("%d bytes", length) << line + "\nrest\n" << QString(line);
        QTest::addRow("%d bytes without line feed", length) << line << QString(line);
    }
    QTest::newRow("carriage return") << QByteArray("sorn3\r\n") << "sorn3\r";
    QTest::newRow("blank after it") << QByteArray("velk3 \n") << "velk3 ";
    QTest::newRow("blank before it") << QByteArray(" velk3\n") << " velk3";
    QTest::newRow("other case") << QByteArray("VELK3\n") << "VELK3";
    QTest::newRow("NUL first") << QByteArray("\0velk3\n", 7) << "";
    QTest::newRow("line feed behind a NUL still ends it") << QByteArray("ab\0c\ndef\n", 9) << "ab";
    QTest::newRow("a place holder") << QByteArray("%1\n") << "%1";
    QTest::newRow("not appended to the default") << QByteArray("x\n") << "x";
}

void TestPackage::anUnsupportedKeyIsShownAsItIs()
{
    QFETCH(QByteArray, info);
    QFETCH(QString, key);
    QCOMPARE(runAbsent(velk3With({"product.info", info})),
             refused("Unsupported product: '" + key + "'"));
}

// A package of some kilobytes can unpack to gigabytes without a line feed.
void TestPackage::aKeyWithoutEndIsReadUpToABound()
{
    constexpr int kib = 1024;
    const PackageEntry info{"product.info", QByteArray(1024 * kib, 'k'), true};
    const QStringList said = runAbsent(velk3With(info));
    QCOMPARE(said.size(), 3);
    QVERIFY(said.at(1).startsWith("error Unsupported product: 'kkkk"));
    QVERIFY2(said.at(1).size() > 64 * kib, "keys of any sane length are shown whole");
    QVERIFY2(said.at(1).size() < 65 * kib, qPrintable(QString::number(said.at(1).size())));
}

void TestPackage::aPackageWithoutProductInfoIsALegacyOne()
{
    UpdateRun run;
    const std::vector<PackageEntry> package{
        {"velk3.bin", "1234"}, {"QuorlinDriverlessGrabber.img", "1234"}, {"usb-sandbox.img", "CY"}};
    QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), package), s_accepted);
    QCOMPARE(run.debugLines(), (QStringList{"Updater start", "Deal with product:  legacy"}));
}

void TestPackage::anEncryptedProductInfoIsRefused()
{
    PackageEntry secret{"product.info", "velk3\n"};
    secret.encrypted = true;
    UpdateRun run;
    QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), velk3With(secret)),
             refused("Product info file found but can't be opened: No password provided"));
    QCOMPARE(run.debugLines().last(), QStringLiteral("Product info file found but can't be opened: "
                                                     " No password provided"));
}

void TestPackage::aDamagedProductInfoIsRefused_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("found out at the second piece") << 15;
    QTest::newRow("found out at the third piece") << 30;
}

void TestPackage::aDamagedProductInfoIsRefused()
{
    QFETCH(int, length);
    PackageEntry damaged{"product.info", QByteArray(length, 'k')};
    damaged.statedCrc = 0x12345678;
    UpdateRun run;
    QCOMPARE(run.run(absentDevice(0xE5C1, 0x3601), velk3With(damaged)),
             refused("Can't read Product info file: CRC error"));
    QCOMPARE(run.debugLines().last(), QStringLiteral("Can't read Product info file:  CRC error"));
}

void TestPackage::completePackagesAreAccepted_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<int>("productId");
    QTest::addColumn<bool>("withEdid");
    QTest::newRow("legacy") << QByteArray("legacy") << 0x3601 << true;
    QTest::newRow("legacy without EDID") << QByteArray("legacy") << 0x3601 << false;
    QTest::newRow("velk3") << QByteArray("velk3") << 0x3601 << true;
    QTest::newRow("velk3 without EDID") << QByteArray("velk3") << 0x3601 << false;
    QTest::newRow("sorn3") << QByteArray("sorn3") << 0x3621 << false;
    QTest::newRow("velk3_4k") << QByteArray("velk3_4k") << 0x3631 << true;
    QTest::newRow("velk3_4k without EDID") << QByteArray("velk3_4k") << 0x3641 << false;
}

void TestPackage::completePackagesAreAccepted()
{
    QFETCH(QByteArray, product);
    QFETCH(int, productId);
    QFETCH(bool, withEdid);
    Images images = smallImages(product);
    if (!withEdid)
        images.edid.reset();
    QCOMPARE(runAbsent(packageEntries(product, images), static_cast<quint16>(productId)),
             s_accepted);
}

void TestPackage::missingFilesAreNamedInOrder_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QString>("held"); // f: bitstream, x: microcode, s: sandbox, e: EDID
    QTest::addColumn<QString>("missing");
    const QByteArray velk3("velk3");
    QTest::newRow("nothing") << velk3 << ""
                             << "velk3.bin, velk3.img, velk3-sandbox.img";
    QTest::newRow("no bitstream") << velk3 << "xs"
                                  << "velk3.bin";
    QTest::newRow("no microcode") << velk3 << "fs"
                                  << "velk3.img";
    QTest::newRow("no sandbox") << velk3 << "fx"
                                << "velk3-sandbox.img";
    QTest::newRow("bitstream alone") << velk3 << "f"
                                     << "velk3.img, velk3-sandbox.img";
    QTest::newRow("microcode alone") << velk3 << "x"
                                     << "velk3.bin, velk3-sandbox.img";
    QTest::newRow("sandbox alone") << velk3 << "s"
                                   << "velk3.bin, velk3.img";
    QTest::newRow("EDID, no bitstream") << velk3 << "xse"
                                        << "velk3.bin";
    QTest::newRow("EDID and bitstream") << velk3 << "fe"
                                        << "velk3.img, velk3-sandbox.img";
    QTest::newRow("EDID and microcode") << velk3 << "xe"
                                        << "velk3.bin, velk3-sandbox.img";
    QTest::newRow("EDID and sandbox") << velk3 << "se"
                                      << "velk3.bin, velk3.img";
    QTest::newRow("EDID, no sandbox") << velk3 << "fxe"
                                      << "velk3-sandbox.img";
    QTest::newRow("legacy, nothing") << QByteArray("legacy") << ""
                                     << "velk3.bin, QuorlinDriverlessGrabber.img, usb-sandbox.img";
    QTest::newRow("sorn3, nothing") << QByteArray("sorn3") << ""
                                    << "sorn3.bin, sorn3.img, sorn3-sandbox.img";
    QTest::newRow("velk3_4k, nothing") << QByteArray("velk3_4k") << ""
                                       << "velk3_4k.bin, velk3_4k.img, velk3_4k-sandbox.img";
}

void TestPackage::missingFilesAreNamedInOrder()
{
    QFETCH(QByteArray, product);
    QFETCH(QString, held);
    QFETCH(QString, missing);
    Images images = smallImages(product);
    if (!held.contains('f'))
        images.fpga.reset();
    if (!held.contains('x'))
        images.fx3.reset();
    if (!held.contains('s'))
        images.sandbox.reset();
    if (!held.contains('e'))
        images.edid.reset();
    QCOMPARE(runAbsent(packageEntries(product, images)),
             refused("Invalid firmware package. File(s) not found: " + missing));
}

void TestPackage::anEdidAloneIsAPackage_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<int>("productId");
    QTest::newRow("legacy") << QByteArray("legacy") << 0x3601;
    QTest::newRow("velk3") << QByteArray("velk3") << 0x3601;
    QTest::newRow("velk3_4k") << QByteArray("velk3_4k") << 0x3641;
}

void TestPackage::anEdidAloneIsAPackage()
{
    QFETCH(QByteArray, product);
    QFETCH(int, productId);
    const Images images{{}, {}, {}, smallImages(product).edid};
    QCOMPARE(runAbsent(packageEntries(product, images), static_cast<quint16>(productId)),
             s_accepted);
}

void TestPackage::sorn3KnowsNoEdid()
{
    // Neither another product's EDID nor an entry without a name counts as one.
    std::vector<PackageEntry> package{{"product.info", "sorn3\n"}};
    package.push_back({"edid_velk3_uvc.edid", edidText(edidBlocks(1))});
    QCOMPARE(runAbsent(package, 0x3621), refused("Invalid firmware package. File(s) not found: "
                                                 "sorn3.bin, sorn3.img, sorn3-sandbox.img"));

    package = packageEntries("sorn3", smallImages("sorn3"));
    package.push_back({"edid_velk3_uvc.edid", edidText(edidBlocks(1))});
    UpdateRun run;
    const auto *device = run.bus.plug("a", 0xE5C1, 0x3621);
    QVERIFY(run.run(recordOf(device), package).contains("progress 100"));
    QVERIFY(run.debugLines().contains("Update steps: 2"));
    QVERIFY(run.bus.describedTransfers().filter("40 cf").isEmpty());
    QVERIFY(run.debugLines().filter("optional file").isEmpty());
}

void TestPackage::namesAreMatchedExactly_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("other case") << QByteArray("Velk3.bin");
    QTest::newRow("in a folder") << QByteArray("velk3/velk3.bin");
    QTest::newRow("in this folder") << QByteArray("./velk3.bin");
    QTest::newRow("with a blank") << QByteArray("velk3.bin ");
}

void TestPackage::namesAreMatchedExactly()
{
    QFETCH(QByteArray, name);
    auto package = packageEntries("velk3", smallImages("velk3"));
    QCOMPARE(package[1].name, QByteArray("velk3.bin"));
    package[1].name = name;
    QCOMPARE(runAbsent(package), refused("Invalid firmware package. File(s) not found: velk3.bin"));
}

void TestPackage::versionTextIsIgnored()
{
    auto package = packageEntries("velk3", smallImages("velk3"));
    PackageEntry version{"version.txt", "1.2.3"};
    version.statedCrc = 1; // nobody finds out
    package.push_back(version);
    QCOMPARE(runAbsent(package), s_accepted);
}

void TestPackage::theLogNamesWhatIsMissingAndWhatIsOptional()
{
    Images images = smallImages("velk3");
    images.fx3.reset();
    images.sandbox.reset();
    UpdateRun run;
    run.run(absentDevice(0xE5C1, 0x3601), packageEntries("velk3", images));
    QCOMPARE(run.debugLines(), (QStringList{"Updater start", "Deal with product:  velk3",
                                            "required file not found:  velk3.img",
                                            "required file not found:  velk3-sandbox.img",
                                            "optional file found:  edid_velk3_uvc.edid"}));
}

void TestPackage::devicesThatFit_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<int>("vendorId");
    QTest::addColumn<int>("productId");
    QTest::addColumn<quint32>("mode");
    QTest::addColumn<bool>("fits");
    const auto row = [](const char *product, int vendor, int id, quint32 mode, bool fits) {
        QTest::addRow("%s, %04x:%04x, mode %u", product, vendor, id, mode)
            << QByteArray(product) << vendor << id << mode << fits;
    };
    for (const char *product : {"velk3", "legacy"}) {
        row(product, 0xE5C1, 0x3601, 0, true);
        row(product, 0x5555, 0x3601, 0, true);
        row(product, 0xE5C1, 0x360F, 1, true);
        row(product, 0xE5C1, 0x3600, 1, true);
        row(product, 0xE5C1, 0x3620, 1, true); // any repair id of the vendor
        row(product, 0x5555, 0x3600, 1, true);
        row(product, 0xE5C1, 0x360F, 0, true); // the id decides, not the mode
        row(product, 0xE5C1, 0x3621, 0, false);
        row(product, 0xE5C1, 0x3602, 0, false);
        row(product, 0xE5C1, 0x360E, 1, false);
        row(product, 0x04B4, 0x3601, 0, false);
        row(product, 0x04B4, 0x3600, 1, false);
    }
    row("sorn3", 0xE5C1, 0x3621, 0, true);
    row("sorn3", 0xE5C1, 0x3640, 1, true);
    row("sorn3", 0xE5C1, 0x3601, 0, false);
    row("sorn3", 0x5555, 0x3601, 0, false);
    row("sorn3", 0x5555, 0x3600, 1, false);
    row("velk3_4k", 0xE5C1, 0x3631, 0, true);
    row("velk3_4k", 0xE5C1, 0x3641, 0, true);
    row("velk3_4k", 0xE5C1, 0x364F, 1, true);
    row("velk3_4k", 0xE5C1, 0x3621, 0, false);
    row("velk3_4k", 0x5555, 0x3631, 0, false);
    // The bare controller says nothing of its product: a device in hard repair fits every package.
    for (const char *product : {"legacy", "velk3", "sorn3", "velk3_4k"}) {
        row(product, 0x04B4, 0x00F3, 2, true);
        row(product, 0x04B4, 0x00F3, 0, false);
        row(product, 0x04B4, 0x00F3, 1, false);
        row(product, 0x04B4, 0x00F0, 1, false);
    }
}

void TestPackage::devicesThatFit()
{
    QFETCH(QByteArray, product);
    QFETCH(int, vendorId);
    QFETCH(int, productId);
    QFETCH(quint32, mode);
    QFETCH(bool, fits);
    UpdateRun run;
    const DeviceDescription device =
        absentDevice(static_cast<quint16>(vendorId), static_cast<quint16>(productId), mode);
    QCOMPARE(run.run(device, packageEntries(product, smallImages(product))),
             fits ? s_accepted : refused("Selected device and firmware incompatible"));
    QVERIFY(run.bus.handleCalls().isEmpty());
}

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
