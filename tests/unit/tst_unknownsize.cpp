#include "installerdouble.h"
#include "updaterun.h"
#include "zipcalls.h"

#include <QtTest>

// Archives that do not say how long their entries are: an image is written all the same, and since
// nobody knows its share, no progress is told until its end.
class TestUnknownSize : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void updateIsCompleteWithoutTheProgressOfItsImages();
    void sandboxIsLoadedWithoutProgress();
};

void TestUnknownSize::init()
{
    installer::reset();
    zipcalls::reset();
    zipcalls::changeStat([](zip_stat_t &stat) { stat.valid &= ~zip_uint64_t(ZIP_STAT_SIZE); });
}

void TestUnknownSize::updateIsCompleteWithoutTheProgressOfItsImages()
{
    PackageContent images = smallContent(velk3_4k);
    images.fx3 = patternBytes(8192);
    images.fpga = patternBytes(5000);
    images.edid.reset();
    UpdateRun run;
    const auto *device = run.bus.plug("a", velk3_4k.runningId);
    QCOMPARE(run.run(recordOf(device), packageEntries(velk3_4k, images)),
             progressLines({1, 2, 100}) + QStringList("complete"));
    QCOMPARE(run.bus.handleCalls(),
             opening("a") + transferLines("a", microcodeRequests(*images.fx3)) +
                 QStringList("pause 1") +
                 transferLines("a", bitstreamRequests(velk3_4k, *images.fpga)) + givingBack("a"));
}

void TestUnknownSize::sandboxIsLoadedWithoutProgress()
{
    PackageContent images = smallContent(sorn3);
    // Ones are what the scripted memory reads back as. The device then stays away.
    images.sandbox = bootImage({{0x40003000, QByteArray(8, '\1')}}, 0x40003000);
    UpdateRun run;
    const auto *device = run.bus.plug("loader", sorn3.softId);
    QCOMPARE(run.run(recordOf(device, 1), packageEntries(sorn3, images)),
             progressLines({1, 2}) +
                 QStringList({"error Error: Failed to install driver", "complete"}));
    QCOMPARE(run.bus.transfers().size(), std::size_t(3)); // written, read back, started
}

QTEST_GUILESS_MAIN(TestUnknownSize)

#include "tst_unknownsize.moc"
