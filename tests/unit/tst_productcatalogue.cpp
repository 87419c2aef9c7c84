#include "productcatalogue.h"

#include <QtTest>

// The catalogue against the table written out by hand.
class TestProductCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void everyRowIsAsPublished_data();
    void everyRowIsAsPublished();
    void thereAreNoOtherRows();
    void theNamesOfTheOldestPackages();
};

namespace {

QStringList written(const std::set<ProductId> &ids)
{
    QStringList lines;
    for (const ProductId &id : ids) {
        lines.append(QString::asprintf("%04X:%04X", id.vendorId, id.productId));
    }
    return lines;
}

} // namespace

void TestProductCatalogue::everyRowIsAsPublished_data()
{
    QTest::addColumn<QString>("fpga");
    QTest::addColumn<QString>("fx3");
    QTest::addColumn<QString>("sandbox");
    QTest::addColumn<QString>("edid");
    QTest::addColumn<quint32>("fpgaVersion");
    QTest::addColumn<QStringList>("compatible");
    QTest::addColumn<QStringList>("sandboxIds");
    QTest::newRow("legacy") << "velk3.bin"
                            << "QuorlinDriverlessGrabber.img"
                            << "usb-sandbox.img"
                            << "edid_velk3_uvc.edid" << 0U << QStringList{"5555:3601", "E5C1:3601"}
                            << QStringList{"E5C1:360F"};
    QTest::newRow("velk3") << "velk3.bin"
                           << "velk3.img"
                           << "velk3-sandbox.img"
                           << "edid_velk3_uvc.edid" << 0U << QStringList{"5555:3601", "E5C1:3601"}
                           << QStringList{"E5C1:360F"};
    QTest::newRow("sorn3") << "sorn3.bin"
                           << "sorn3.img"
                           << "sorn3-sandbox.img"
                           << "" << 0U << QStringList{"E5C1:3621"} << QStringList{"E5C1:362F"};
    QTest::newRow("velk3_4k") << "velk3_4k.bin"
                              << "velk3_4k.img"
                              << "velk3_4k-sandbox.img"
                              << "edid_velk3_4k_uvc.edid" << 1U
                              << QStringList{"E5C1:3631", "E5C1:3641"}
                              << QStringList{"E5C1:363F", "E5C1:364F"};
}

void TestProductCatalogue::everyRowIsAsPublished()
{
    QFETCH(QString, fpga);
    QFETCH(QString, fx3);
    QFETCH(QString, sandbox);
    QFETCH(QString, edid);
    QFETCH(quint32, fpgaVersion);
    QFETCH(QStringList, compatible);
    QFETCH(QStringList, sandboxIds);
    const auto row = s_products.find(QTest::currentDataTag());
    QVERIFY(row != s_products.end());
    const ProductInfo &info = row->second;
    QCOMPARE(QString::fromStdString(info.fpgaName), fpga);
    QCOMPARE(QString::fromStdString(info.fx3Name), fx3);
    QCOMPARE(QString::fromStdString(info.sandboxName), sandbox);
    QCOMPARE(QString::fromStdString(info.edidName), edid);
    QCOMPARE(info.fpgaVersion, fpgaVersion);
    QCOMPARE(written(info.compatibleIds), compatible);
    QCOMPARE(written(info.sandboxIds), sandboxIds);
}

void TestProductCatalogue::thereAreNoOtherRows()
{
    QStringList keys;
    for (const auto &row : s_products) {
        keys.append(QString::fromStdString(row.first));
    }
    QCOMPARE(keys, (QStringList{"legacy", "sorn3", "velk3", "velk3_4k"}));
}

void TestProductCatalogue::theNamesOfTheOldestPackages()
{
    QCOMPARE(QString(PRODUCT_NAME_FILE), QStringLiteral("product.info"));
    QCOMPARE(QString(legacy::FPGA_NAME), QStringLiteral("velk3.bin"));
    QCOMPARE(QString(legacy::FX3_NAME), QStringLiteral("QuorlinDriverlessGrabber.img"));
    QCOMPARE(QString(legacy::SANDBOX_NAME), QStringLiteral("usb-sandbox.img"));
    QCOMPARE(QString(legacy::EDID_NAME), QStringLiteral("edid_velk3_uvc.edid"));
    QCOMPARE(QString(legacy::VERSION_NAME), QStringLiteral("version.txt"));
}

QTEST_GUILESS_MAIN(TestProductCatalogue)
#include "tst_productcatalogue.moc"
