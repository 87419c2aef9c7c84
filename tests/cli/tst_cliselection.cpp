#include "package.h"
#include "productcatalogue.h"
#include "selection.h"
#include "targetarguments.h"
#include "updatesteps.h"

#include <QTest>

namespace {

struct Case
{
    const char *title;
    const char *product;
    quint32 mode;
    ProductId id;
    bool fits;
};

// What a script may write to although nobody named the device. A repair id tells the group of
// sixteen ids that the product belongs to; the bare controller's tells nothing.
constexpr Case s_cases[] = {
    {"running velk3", "velk3", Normal, {0xE5C1, 0x3601}, true},
    {"running velk3 of the other vendor", "velk3", Normal, {0x5555, 0x3601}, true},
    {"running velk3, oldest package", "legacy", Normal, {0xE5C1, 0x3601}, true},
    {"running sorn3", "sorn3", Normal, {0xE5C1, 0x3621}, true},
    {"running velk3_4k", "velk3_4k", Normal, {0xE5C1, 0x3631}, true},
    {"running velk3_4k, its other id", "velk3_4k", Normal, {0xE5C1, 0x3641}, true},
    {"running sorn3 for velk3", "velk3", Normal, {0xE5C1, 0x3621}, false},
    {"running velk3 for sorn3", "sorn3", Normal, {0xE5C1, 0x3601}, false},
    {"running velk3_4k for velk3", "velk3", Normal, {0xE5C1, 0x3631}, false},
    {"running, same group and no id of it", "velk3", Normal, {0xE5C1, 0x3602}, false},
    {"soft velk3", "velk3", SoftRepair, {0xE5C1, 0x3600}, true},
    {"soft velk3 under its F id", "velk3", SoftRepair, {0xE5C1, 0x360F}, true},
    {"soft velk3, oldest package", "legacy", SoftRepair, {0xE5C1, 0x360F}, true},
    {"soft sorn3", "sorn3", SoftRepair, {0xE5C1, 0x3620}, true},
    {"soft velk3_4k", "velk3_4k", SoftRepair, {0xE5C1, 0x3630}, true},
    {"soft velk3_4k, its other group", "velk3_4k", SoftRepair, {0xE5C1, 0x364F}, true},
    {"soft sorn3 for velk3", "velk3", SoftRepair, {0xE5C1, 0x3620}, false},
    {"soft velk3_4k for velk3", "velk3", SoftRepair, {0xE5C1, 0x3630}, false},
    {"soft velk3 for sorn3", "sorn3", SoftRepair, {0xE5C1, 0x3600}, false},
    {"soft of the other vendor for sorn3", "sorn3", SoftRepair, {0x5555, 0x3620}, false},
    {"soft of a vendor that has no such product", "velk3", SoftRepair, {0x1234, 0x3600}, false},
    {"hard", "velk3", HardRepair, {0x04B4, 0x00F3}, false},
};

DeviceDescription described(const Case &row)
{
    DeviceDescription device;
    device.vendorId = row.id.vendorId;
    device.productId = row.id.productId;
    device.mode = row.mode;
    return device;
}

} // namespace

class TestCliSelection : public QObject
{
    Q_OBJECT

private slots:
    void whatIsTakenUnasked_data();
    void whatIsTakenUnasked();
    void idsAloneTellTheSame_data();
    void idsAloneTellTheSame();
    void noNameIsNobodys();
    void stepsOfAnUpdate_data();
    void stepsOfAnUpdate();
    void statusOfSeveral();
    void aDenialThatOnlyTheScanKnows();
};

void TestCliSelection::whatIsTakenUnasked_data()
{
    QTest::addColumn<int>("row");
    int number = 0;
    for (const Case &row : s_cases) {
        QTest::newRow(row.title) << number++;
    }
}

void TestCliSelection::whatIsTakenUnasked()
{
    QFETCH(int, row);
    const Case &expected = s_cases[row];
    QCOMPARE(fitsUnasked(s_products.at(expected.product), described(expected)), expected.fits);
}

void TestCliSelection::idsAloneTellTheSame_data()
{
    whatIsTakenUnasked_data();
}

// A device that cannot be opened shows nothing but its ids.
void TestCliSelection::idsAloneTellTheSame()
{
    QFETCH(int, row);
    const Case &expected = s_cases[row];
    QCOMPARE(mayFitUnasked(s_products.at(expected.product), expected.id), expected.fits);
}

// A device without a serial number is not the one that was left unnamed.
void TestCliSelection::noNameIsNobodys()
{
    Devices devices;
    devices.all.push_back({described(s_cases[0]), true});
    QCOMPARE(selectNamed(devices, {QString()}).status, ExitStatus::NoDevice);
    QCOMPARE(TargetArguments({QString()}, true).select(devices).status, ExitStatus::NoDevice);
    QCOMPARE(TargetArguments({}, true).select(devices).status, ExitStatus::Done);
}

void TestCliSelection::stepsOfAnUpdate_data()
{
    QTest::addColumn<QString>("product");
    QTest::addColumn<bool>("images");
    QTest::addColumn<bool>("edid");
    QTest::addColumn<quint32>("mode");
    QTest::addColumn<QStringList>("steps"); // at percent 1, 2, and where each image begins and ends

    const auto add = [](const char *title, bool images, bool edid, quint32 mode,
                        const QStringList &steps) {
        QTest::newRow(title) << QStringLiteral("velk3") << images << edid << mode << steps;
    };
    add("with EDID", true, true, Normal,
        {"1 checking", "2 microcode", "33 microcode", "34 bitstream", "65 bitstream", "66 EDID",
         "98 EDID", "100 done"});
    add("without", true, false, Normal,
        {"1 checking", "2 microcode", "50 microcode", "51 bitstream", "99 bitstream", "100 done"});
    add("EDID only", false, true, Normal, {"1 checking", "2 EDID", "99 EDID", "100 done"});
    add("repair", true, true, SoftRepair,
        {"1 checking", "2 sandbox", "14 sandbox", "15 microcode", "42 microcode", "43 bitstream",
         "70 bitstream", "71 EDID", "99 EDID", "100 done"});
    add("repair without EDID", true, false, HardRepair,
        {"2 sandbox", "15 microcode", "56 microcode", "57 bitstream", "99 bitstream", "100 done"});
}

void TestCliSelection::stepsOfAnUpdate()
{
    QFETCH(QString, product);
    QFETCH(bool, images);
    QFETCH(bool, edid);
    QFETCH(quint32, mode);
    QFETCH(QStringList, steps);

    Package package;
    package.product = &s_products.at(product.toStdString());
    package.edidPresent = edid;
    if (!images) {
        package.missing = QStringList{"velk3.bin", "velk3.img", "velk3-sandbox.img"};
    }
    const UpdateSteps named(package, mode);
    for (const QString &step : steps) {
        const int percent = step.section(' ', 0, 0).toInt();
        QCOMPARE(QStringLiteral("%1 %2").arg(QString::number(percent), named.at(percent)), step);
    }
}

void TestCliSelection::statusOfSeveral()
{
    using S = ExitStatus;
    QCOMPARE(combined({}), S::Done);
    QCOMPARE(combined({S::Done, S::Done}), S::Done);
    QCOMPARE(combined({S::NoAccess}), S::NoAccess);
    QCOMPARE(combined({S::NoAccess, S::NoAccess}), S::NoAccess);
    QCOMPARE(combined({S::Done, S::Failed}), S::SomeFailed);
    QCOMPARE(combined({S::NoAccess, S::Done}), S::SomeFailed);
    QCOMPARE(combined({S::NoAccess, S::Failed}), S::Failed);
}

// Where the system shows nothing, a named device may be the one that the scan was denied.
void TestCliSelection::aDenialThatOnlyTheScanKnows()
{
    Devices devices;
    devices.scanErrors = {QStringLiteral("Access Denied")};
    for (const char *name : {"SIM00001", "1-1"}) {
        const Selection selection = selectNamed(devices, {name});
        QCOMPARE(selection.status, ExitStatus::NoAccess);
        QCOMPARE(selection.error, QStringLiteral("Access Denied"));
    }
    devices.scanErrors.clear();
    QCOMPARE(selectNamed(devices, {"SIM00001"}).status, ExitStatus::NoDevice);
}

QTEST_GUILESS_MAIN(TestCliSelection)
#include "tst_cliselection.moc"
