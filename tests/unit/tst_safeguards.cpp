#include "edid.h"
#include "productcatalogue.h"
#include "updaterun.h"

#include <QtTest>

// What an update does where today's catalogue and today's EDID parser give it no cause: both are
// doubled here, and take the place of the real ones at the link.

// A product whose bitstream is written in a way that this program does not know.
const std::map<std::string, ProductInfo> s_products{
    {"sorn3",
     {"sorn3.bin",
      "sorn3.img",
      "sorn3-sandbox.img",
      "",
      2,
      {{0xE5C1, 0x3621}},
      {{0xE5C1, 0x362F}}}},
    {"velk3",
     {"velk3.bin",
      "velk3.img",
      "velk3-sandbox.img",
      "edid_velk3_uvc.edid",
      0,
      {{0xE5C1, 0x3601}},
      {{0xE5C1, 0x360F}}}},
};

// Finds every text good and nothing in it.
EdidResult parse_edid(std::istream &)
{
    return {};
}

class TestSafeguards : public QObject
{
    Q_OBJECT

private slots:
    void unknownBitstreamProtocolIsNotGuessed();
    void goodEdidWithoutABlockIsNotSent();
};

void TestSafeguards::unknownBitstreamProtocolIsNotGuessed()
{
    const Images images = smallImages("sorn3");
    UpdateRun run;
    const auto *device = run.bus.plug("a", 0xE5C1, 0x3621);
    // The microcode is written, then the update ends without having reached 100 percent.
    QCOMPARE(run.run(recordOf(device), packageEntries("sorn3", images)),
             progressLines({1, 2, 51}) + QStringList("complete"));
    QCOMPARE(run.bus.handleCalls(), opening("a") + transferLines("a", fx3Requests(*images.fx3)) +
                                        QStringList("pause 1") + givingBack("a"));
}

void TestSafeguards::goodEdidWithoutABlockIsNotSent()
{
    UpdateRun run;
    const auto *device = run.bus.plug("a", 0xE5C1, 0x3601);
    const QByteArray text = edidText(edidBlocks(1));
    QCOMPARE(run.run(recordOf(device), packageEntries("velk3", Images{{}, {}, {}, text})),
             progressLines({1, 2, 21}) + QStringList({"error EDID data is empty", "complete"}));
    QVERIFY(run.bus.transfers().empty());
}

QTEST_GUILESS_MAIN(TestSafeguards)

#include "tst_safeguards.moc"
