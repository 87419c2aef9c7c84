#include "capturedoutput.h"
#include "libziptexts.h"
#include "products.h"

#include "package.h"
#include "ziparchive.h"

#include <QTemporaryDir>
#include <QtTest>

#include <zip.h>

// Is this file a package, for which product, is it complete, and is it for this device? Nothing
// here needs a thread or a bus.
class TestPackage : public QObject
{
    Q_OBJECT

private slots:
    void whatIsNoArchiveIsRefused_data();
    void whatIsNoArchiveIsRefused();
    void pathsThatAreNotAsciiAreOpened();

    void theFirstLineIsTheProduct_data();
    void theFirstLineIsTheProduct();
    void anUnsupportedKeyIsShownAsItIs_data();
    void anUnsupportedKeyIsShownAsItIs();
    void aKeyWithoutEndIsReadUpToABound_data();
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

struct Reading
{
    Package package;
    QStringList log;
};

Reading readPackageFile(const QString &path)
{
    const CapturedDebug debug;
    Zip archive(path.toStdString());
    const Package package = read_package(archive);
    return {package, debug.lines()};
}

Reading readEntries(const std::vector<PackageEntry> &entries)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("package.fw");
    writeFile(path, zipArchive(entries));
    return readPackageFile(path);
}

QString refusalOf(const std::vector<PackageEntry> &entries)
{
    return readEntries(entries).package.refusal;
}

// A velk3 package with this entry in place of its product.info.
std::vector<PackageEntry> velk3With(const PackageEntry &info)
{
    auto entries = packageEntries(velk3, smallContent(velk3));
    entries[0] = info;
    return entries;
}

} // namespace

void TestPackage::whatIsNoArchiveIsRefused_data()
{
    QTest::addColumn<QByteArray>("file");
    const QByteArray whole = zipArchive(packageEntries(velk3, smallContent(velk3)));
    QTest::newRow("0 bytes") << QByteArray("");
    QTest::newRow("text") << QByteArray("no archive ").repeated(30);
    QTest::newRow("cut in half") << whole.left(whole.size() / 2);
    QTest::newRow("its last byte missing") << whole.chopped(1);
    QTest::newRow("missing") << QByteArray();
}

void TestPackage::whatIsNoArchiveIsRefused()
{
    QFETCH(QByteArray, file);
    const QTemporaryDir directory;
    const QString path = directory.filePath("file.fw");
    if (!file.isNull()) {
        writeFile(path, file);
    }
    const QString reason = libzipTextOfOpening(path);
    QVERIFY(!reason.isEmpty());
    const Reading reading = readPackageFile(path);
    QCOMPARE(reading.package.refusal, "Cannot open firmware package: " + reason);
    QVERIFY(reading.package.product == nullptr);
    QCOMPARE(reading.log, QStringList{"Can't open firmware file: " + reason});
}

void TestPackage::pathsThatAreNotAsciiAreOpened()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QString::fromUtf8("прошивка größer 固件.fw"));
    writeFile(path, zipArchive(packageEntries(velk3, smallContent(velk3))));
    QCOMPARE(readPackageFile(path).package.refusal, QString());
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
        const Reading reading = readEntries(velk3With({"product.info", info, deflated}));
        QCOMPARE(reading.package.refusal, QString());
        QCOMPARE(reading.package.productKey, std::string("velk3"));
        QCOMPARE(reading.log.first(), QString("Deal with product:  velk3"));
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
        // It is read in pieces of 15 bytes, which make one key.
        const char *pieces = length > 15 ? "over 15, in pieces" : "in one piece";
        QTest::addRow("a first line of %d bytes, %s", length, pieces) << line + "\nrest\n"
                                                                      << QString(line);
        QTest::addRow("%d bytes without line feed, %s", length, pieces) << line << QString(line);
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
    const Package package = readEntries(velk3With({"product.info", info})).package;
    QCOMPARE(package.refusal, "Unsupported product: '" + key + "'");
    QCOMPARE(QString::fromStdString(package.productKey), key);
    QVERIFY(package.product == nullptr);
}

void TestPackage::aKeyWithoutEndIsReadUpToABound_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<QString>("key"); // refused; none: the product is velk3
    // 65535 bytes are 4369 pieces of 15; the piece after them is the last one that counts.
    const auto row = [](const char *name, const QByteArray &info, const QString &key) {
        QTest::newRow(name) << info << key;
    };
    const QByteArray nuls(65535, '\0');
    const QByteArray letters(65535, 'k');
    row("a million letters", QByteArray(1024 * 1024, 'k'), QString(65550, 'k'));
    row("letters up to the last piece", letters + "abcdefghijklmno", letters + "abcdefghijklmno");
    row("letters after it", letters + "abcdefghijklmnop", letters + "abcdefghijklmno");
    row("a key in the last piece", nuls + "velk3\n", {});
    row("a key after it", nuls + QByteArray(15, '\0') + "velk3\n", "");
    row("a key that begins at the end of it", nuls + QByteArray(13, '\0') + "velk3\n", "");
}

// A package of some kilobytes can unpack to gigabytes without a line feed, and NUL bytes among them
// do not make the key longer.
void TestPackage::aKeyWithoutEndIsReadUpToABound()
{
    QFETCH(QByteArray, info);
    QFETCH(QString, key);
    const QString expected = key.isNull() ? QString() : "Unsupported product: '" + key + "'";
    QVERIFY(refusalOf(velk3With({"product.info", info, true})) == expected);
}

void TestPackage::aPackageWithoutProductInfoIsALegacyOne()
{
    const Reading reading = readEntries({{"velk3.bin", "1234"},
                                         {"QuorlinDriverlessGrabber.img", "1234"},
                                         {"usb-sandbox.img", "CY"}});
    QCOMPARE(reading.package.refusal, QString());
    QCOMPARE(reading.package.productKey, std::string("legacy"));
    QCOMPARE(reading.log, QStringList{"Deal with product:  legacy"});
}

void TestPackage::anEncryptedProductInfoIsRefused()
{
    PackageEntry secret{"product.info", "velk3\n"};
    secret.encrypted = true;
    const Reading reading = readEntries(velk3With(secret));
    const QString reason = libzipText(ZIP_ER_NOPASSWD);
    QCOMPARE(reading.package.refusal, "Product info file found but can't be opened: " + reason);
    QVERIFY(reading.package.product == nullptr);
    QCOMPARE(reading.log, QStringList{"Product info file found but can't be opened:  " + reason});
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
    const Reading reading = readEntries(velk3With(damaged));
    const QString reason = libzipText(ZIP_ER_CRC);
    QCOMPARE(reading.package.refusal, "Can't read Product info file: " + reason);
    QVERIFY(reading.package.product == nullptr);
    QCOMPARE(reading.log, QStringList{"Can't read Product info file:  " + reason});
}

void TestPackage::completePackagesAreAccepted_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<bool>("withEdid");
    for (const ProductFacts *product : allPackages()) {
        const QByteArray key = keyOf(*product);
        QTest::newRow(key) << key << (product->edidName != nullptr);
        if (product->edidName) {
            QTest::newRow(key + " without EDID") << key << false;
        }
    }
}

void TestPackage::completePackagesAreAccepted()
{
    QFETCH(QByteArray, product);
    QFETCH(bool, withEdid);
    PackageContent images = smallContent(productOf(product));
    if (!withEdid) {
        images.edid.reset();
    }
    const Package package = readEntries(packageEntries(productOf(product), images)).package;
    QCOMPARE(package.refusal, QString());
    QCOMPARE(package.missing, QStringList());
    QCOMPARE(package.edidPresent, withEdid);
    QCOMPARE(package.product, &s_products.at(product.toStdString()));
}

void TestPackage::missingFilesAreNamedInOrder_data()
{
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QString>("held"); // f: bitstream, x: microcode, s: sandbox, e: EDID
    QTest::addColumn<QString>("missing");
    const QByteArray first = keyOf(velk3);
    QTest::newRow("no bitstream") << first << "xs"
                                  << "velk3.bin";
    QTest::newRow("no microcode") << first << "fs"
                                  << "velk3.img";
    QTest::newRow("no sandbox") << first << "fx"
                                << "velk3-sandbox.img";
    QTest::newRow("bitstream alone") << first << "f"
                                     << "velk3.img, velk3-sandbox.img";
    QTest::newRow("microcode alone") << first << "x"
                                     << "velk3.bin, velk3-sandbox.img";
    QTest::newRow("sandbox alone") << first << "s"
                                   << "velk3.bin, velk3.img";
    QTest::newRow("EDID, no bitstream") << first << "xse"
                                        << "velk3.bin";
    QTest::newRow("EDID and bitstream") << first << "fe"
                                        << "velk3.img, velk3-sandbox.img";
    QTest::newRow("EDID and microcode") << first << "xe"
                                        << "velk3.bin, velk3-sandbox.img";
    QTest::newRow("EDID and sandbox") << first << "se"
                                      << "velk3.bin, velk3.img";
    QTest::newRow("EDID, no sandbox") << first << "fxe"
                                      << "velk3-sandbox.img";
    for (const ProductFacts *product : allPackages()) {
        const QByteArray key = keyOf(*product);
        QTest::newRow(key + ", nothing")
            << key << ""
            << QStringList{product->fpgaName, product->fx3Name, product->sandboxName}.join(", ");
    }
}

void TestPackage::missingFilesAreNamedInOrder()
{
    QFETCH(QByteArray, product);
    QFETCH(QString, held);
    QFETCH(QString, missing);
    PackageContent images = smallContent(productOf(product));
    if (!held.contains('f')) {
        images.fpga.reset();
    }
    if (!held.contains('x')) {
        images.fx3.reset();
    }
    if (!held.contains('s')) {
        images.sandbox.reset();
    }
    if (!held.contains('e')) {
        images.edid.reset();
    }
    const Package package = readEntries(packageEntries(productOf(product), images)).package;
    QCOMPARE(package.refusal, "Invalid firmware package. File(s) not found: " + missing);
    QCOMPARE(package.missing.join(", "), missing);
    QCOMPARE(package.edidPresent, held.contains('e'));
}

void TestPackage::anEdidAloneIsAPackage_data()
{
    QTest::addColumn<QByteArray>("product");
    for (const ProductFacts *product : allPackages()) {
        if (product->edidName) {
            QTest::newRow(keyOf(*product)) << keyOf(*product);
        }
    }
}

void TestPackage::anEdidAloneIsAPackage()
{
    QFETCH(QByteArray, product);
    const PackageContent images{{}, {}, {}, smallContent(productOf(product)).edid};
    const Package package = readEntries(packageEntries(productOf(product), images)).package;
    QCOMPARE(package.refusal, QString());
    QVERIFY(package.edidPresent);
    QCOMPARE(package.missing.size(), 3);
}

void TestPackage::sorn3KnowsNoEdid()
{
    // Neither another product's EDID nor an entry without a name counts as one.
    const PackageEntry edid{"edid_velk3_uvc.edid", edidText(edidBlocks(1))};
    const Package alone = readEntries({{"product.info", "sorn3\n"}, edid}).package;
    QCOMPARE(alone.refusal, QString("Invalid firmware package. File(s) not found: "
                                    "sorn3.bin, sorn3.img, sorn3-sandbox.img"));
    QVERIFY(!alone.edidPresent);

    auto whole = packageEntries(sorn3, smallContent(sorn3));
    whole.push_back(edid);
    const Reading reading = readEntries(whole);
    QCOMPARE(reading.package.refusal, QString());
    QVERIFY(!reading.package.edidPresent);
    QVERIFY(reading.log.filter("optional file").isEmpty());
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
    auto package = packageEntries(velk3, smallContent(velk3));
    QCOMPARE(package[1].name, QByteArray("velk3.bin"));
    package[1].name = name;
    QCOMPARE(refusalOf(package), QString("Invalid firmware package. File(s) not found: velk3.bin"));
}

void TestPackage::versionTextIsIgnored()
{
    auto package = packageEntries(velk3, smallContent(velk3));
    PackageEntry version{"version.txt", "1.2.3"};
    version.statedCrc = 1; // nobody finds out
    package.push_back(version);
    QCOMPARE(refusalOf(package), QString());
}

void TestPackage::theLogNamesWhatIsMissingAndWhatIsOptional()
{
    PackageContent images = smallContent(velk3);
    images.fx3.reset();
    images.sandbox.reset();
    QCOMPARE(readEntries(packageEntries(velk3, images)).log,
             (QStringList{"Deal with product:  velk3", "required file not found:  velk3.img",
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
    const ProductId device{static_cast<quint16>(vendorId), static_cast<quint16>(productId)};
    QCOMPARE(package_fits(s_products.at(product.toStdString()), device, mode), fits);
}

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
