#include "productcatalogue.h"
#include "products.h"

#include <QtTest>

// The catalogue against what the tests know of the products.
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

bool isRunning(const Identity &identity)
{
    return identity.mode == 0;
}

bool isSandbox(const Identity &identity)
{
    return (identity.productId & 0xF) == 0xF;
}

// The ids of the product's devices that are so, as written() has them. A legacy package is for the
// first product.
QStringList idsOf(const ProductFacts &facts, bool (*matches)(const Identity &))
{
    const ProductFacts *const product = facts.key ? &facts : &velk3;
    std::set<ProductId> ids;
    for (const Identity &identity : allIdentities()) {
        if (identity.product == product && matches(identity)) {
            ids.insert({identity.vendorId, identity.productId});
        }
    }
    return written(ids);
}

} // namespace

void TestProductCatalogue::everyRowIsAsPublished_data()
{
    QTest::addColumn<QByteArray>("key");
    for (const ProductFacts *product : allPackages()) {
        QTest::newRow(keyOf(*product)) << keyOf(*product);
    }
}

void TestProductCatalogue::everyRowIsAsPublished()
{
    QFETCH(QByteArray, key);
    const ProductFacts &facts = productOf(key);
    const auto row = s_products.find(key.toStdString());
    QVERIFY(row != s_products.end());
    const ProductInfo &info = row->second;
    QCOMPARE(info.fpgaName.c_str(), facts.fpgaName);
    QCOMPARE(info.fx3Name.c_str(), facts.fx3Name);
    QCOMPARE(info.sandboxName.c_str(), facts.sandboxName);
    QCOMPARE(info.edidName.c_str(), facts.edidName ? facts.edidName : "");
    QCOMPARE(info.fpgaVersion, facts.fpgaVersion == FpgaVersion::Framed ? 0U : 1U);
    QCOMPARE(written(info.compatibleIds), idsOf(facts, isRunning));
    QCOMPARE(written(info.sandboxIds), idsOf(facts, isSandbox));
}

void TestProductCatalogue::thereAreNoOtherRows()
{
    QStringList keys;
    for (const auto &row : s_products) {
        keys.append(QString::fromStdString(row.first));
    }
    QStringList expected;
    for (const ProductFacts *product : allPackages()) {
        expected.append(keyOf(*product));
    }
    expected.sort(); // as a map is
    QCOMPARE(keys, expected);
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
