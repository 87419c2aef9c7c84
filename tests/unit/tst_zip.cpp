#include "libziptexts.h"
#include "packagebuilder.h"
#include "unreadablefile.h"
#include "zipcalls.h"

#include "ziparchive.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>

// The archive wrappers, on archives of every kind that a user may pick.
class TestZip : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void aNewArchiveIsClosed();
    void aClosedArchiveAnswersWithoutLibzip();
    void openingKeepsThePath();
    void openingTwiceIsRefusedAndClearsTheErrors();
    void openingTwiceClearsTheSystemCodeToo();
    void aFailedOpenKeepsTheErrno();
    void aFileThatCannotBeOpenedIsReportedWithItsErrno();
#ifdef Q_OS_WIN
    void windowsCodesBecomeErrnos_data();
    void windowsCodesBecomeErrnos();
#endif
    void closingForgetsThePathAndHappensOnce();
    void anArchiveCanBeOpenedAgainAfterClosing();
    void theDestructorClosesWhatIsOpen();
    void archiveThatDoesNotCloseIsDiscarded();
    void entryIsClosedBeforeItsArchive();

    void whatIsNoArchiveDoesNotOpen_data();
    void whatIsNoArchiveDoesNotOpen();
    void anArchiveWithoutEntriesOpensAndCountsZero();
    void pathsThatAreNotAsciiOpen();

    void statGivesNameIndexSizeAndChecksum();
    void statByIndexAndByNameAgree();
    void anAbsentNameIsInvalidAndLeavesNoSuchFile_data();
    void anAbsentNameIsInvalidAndLeavesNoSuchFile();
    void anIndexPastTheEndIsInvalid();
    void validityNeedsOneOfFourBits_data();
    void validityNeedsOneOfFourBits();

    void entriesAreReadBack_data();
    void entriesAreReadBack();
    void readingInPiecesGivesTheSameBytes();
    void readingAtTheEndGivesZero();
    void anEncryptedEntryDoesNotOpen();
    void aDamagedEntryFailsToRead_data();
    void aDamagedEntryFailsToRead();
    void aTruncatedArchiveDoesNotOpen();
    void readOfAnEntryThatDidNotOpenIsAnInvalidArgument();
    void anOpenedEntryStartsWithoutErrors();
    void aMovedEntryIsClosedOnce();

    void statsListsAllEntriesInOrder();
    void statsIsEmptyWhenOneEntryCannotBeStated_data();
    void statsIsEmptyWhenOneEntryCannotBeStated();
    void statsIsEmptyWhenAnEntryHasNoValidField();
    void statsIsEmptyWhenTheCountFails();
    void statsOfAnEmptyArchiveIsEmpty();

private:
    QString path(const char *name) const
    {
        return directory.filePath(QString::fromUtf8(name));
    }
    std::string archiveWith(const std::vector<PackageEntry> &entries) const;

    QTemporaryDir directory;
};

static const QByteArray s_text = "The quick brown fox jumps over the lazy dog. ";

std::string TestZip::archiveWith(const std::vector<PackageEntry> &entries) const
{
    writeFile(path("archive.fw"), zipArchive(entries));
    return path("archive.fw").toStdString();
}

void TestZip::init()
{
    zipcalls::reset();
}

void TestZip::aNewArchiveIsClosed()
{
    const Zip zip;
    QVERIFY(!zip);
    QVERIFY(!zip.isOpened());
    QCOMPARE(zip.fileName(), std::string());
    QCOMPARE(zip.error(), 0);
    QCOMPARE(QString::fromStdString(zip.errorStr()), libzipText(ZIP_ER_OK));
}

void TestZip::aClosedArchiveAnswersWithoutLibzip()
{
    Zip zip(path("missing").toStdString());
    const int error = zip.error();
    QVERIFY(error != 0);
    zipcalls::reset();

    QCOMPARE(zip.count(), static_cast<decltype(zip.count())>(-1));
    QVERIFY(!zip.stat(0).isValid());
    QVERIFY(!zip.stat("a").isValid());
    QVERIFY(!zip.fopen(0).isValid());
    QVERIFY(!zip.fopen("a").isValid());
    QVERIFY(zip.stats().empty());
    QVERIFY(!zip.close());
    QCOMPARE(zipcalls::log(), QStringList());
    QCOMPARE(zip.error(), error);
}

void TestZip::openingKeepsThePath()
{
    const std::string file = archiveWith({{"a", s_text}});
    Zip zip(file);
    QVERIFY(zip.isOpened());
    QVERIFY(bool(zip));
    QCOMPARE(zip.fileName(), file);
    QCOMPARE(zip.error(), 0);
    QCOMPARE(zipcalls::log(), QStringList{"zip_open flags 0"});
}

void TestZip::openingTwiceIsRefusedAndClearsTheErrors()
{
    const std::string file = archiveWith({{"a", s_text}});
    zipcalls::leaveErrno(ENOTTY);
    Zip zip(file);
    zip.errorStr();
    QCOMPARE(zipcalls::log().last(), QStringLiteral("zip_error_to_str 0 %1").arg(ENOTTY));
    QVERIFY(!zip.stat("absent"));
    QCOMPARE(zip.error(), ZIP_ER_NOENT);

    QVERIFY(!zip.open(path("other").toStdString()));
    QCOMPARE(zip.error(), 0);
    QCOMPARE(QString::fromStdString(zip.errorStr()), libzipText(ZIP_ER_OK));
    QCOMPARE(zipcalls::log().last(), QStringLiteral("zip_error_to_str 0 0"));
    QCOMPARE(zip.fileName(), file);
    QVERIFY(zip.stat("a").isValid());
    QCOMPARE(zipcalls::log().filter("zip_open").size(), 1);
}

void TestZip::openingTwiceClearsTheSystemCodeToo()
{
    zipcalls::leaveErrno(ENOTTY);
    Zip zip(archiveWith({{"a", s_text}}));
    QVERIFY(!zip.open("x"));
    zip.errorStr();
    QCOMPARE(zipcalls::log().last(), QStringLiteral("zip_error_to_str 0 0"));
}

void TestZip::aFailedOpenKeepsTheErrno()
{
    zipcalls::leaveErrno(ENOTTY);
    const Zip zip(path("missing").toStdString());
    zip.errorStr();
#ifdef Q_OS_WIN
    const int kept = ENOENT; // there libzip's error has the code, and not errno
#else
    const int kept = ENOTTY;
#endif
    QCOMPARE(zipcalls::log().last(),
             QStringLiteral("zip_error_to_str %1 %2").arg(ZIP_ER_NOENT).arg(kept));
}

// On Windows: another program holds it open.
void TestZip::aFileThatCannotBeOpenedIsReportedWithItsErrno()
{
    const UnreadableFile file(path("locked.fw"));
#ifdef Q_OS_WIN
    const LibzipRefusal refusal{ZIP_ER_OPEN, EACCES};
    const QString text = "Can't open file: Permission denied";
#else
    const LibzipRefusal refusal = libzipRefusal(path("locked.fw"));
    const QString text = libzipText(refusal.code, ELOOP);
#endif
    QVERIFY(refusal.code != 0);
    const Zip zip(path("locked.fw").toStdString());
    QCOMPARE(zip.error(), refusal.code);
    QCOMPARE(QString::fromStdString(zip.errorStr()), text);
    QCOMPARE(zipcalls::log().last(),
             QStringLiteral("zip_error_to_str %1 %2").arg(refusal.code).arg(refusal.systemCode));
}

#ifdef Q_OS_WIN
// libzip 1.7 has no errno for them, and gives 10000 more than Windows' own number.
void TestZip::windowsCodesBecomeErrnos_data()
{
    QTest::addColumn<int>("windowsCode");
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("systemCode");
    QTest::addColumn<QString>("text");

    const QString absent = "No such file";
    const QString denied = "Can't open file: Permission denied";
    QTest::newRow("path not found") << 3 << ZIP_ER_NOENT << ENOENT << absent;
    QTest::newRow("not ready") << 21 << ZIP_ER_OPEN << ENODEV << "Can't open file: No such device";
    QTest::newRow("sharing violation") << 32 << ZIP_ER_OPEN << EACCES << denied;
    QTest::newRow("lock violation") << 33 << ZIP_ER_OPEN << EACCES << denied;
    QTest::newRow("network path not found") << 53 << ZIP_ER_NOENT << ENOENT << absent;
    QTest::newRow("network name not found") << 67 << ZIP_ER_NOENT << ENOENT << absent;
    QTest::newRow("invalid name") << 123 << ZIP_ER_NOENT << ENOENT << absent;
}

void TestZip::windowsCodesBecomeErrnos()
{
    QFETCH(int, windowsCode);
    QFETCH(int, error);
    QFETCH(int, systemCode);
    QFETCH(QString, text);
    zipcalls::failOpen(ZIP_ER_OPEN, 10000 + windowsCode);
    const Zip zip(archiveWith({{"a", s_text}}));
    QCOMPARE(zip.error(), error);
    QCOMPARE(QString::fromStdString(zip.errorStr()), text);
    QCOMPARE(zipcalls::log().last(),
             QStringLiteral("zip_error_to_str %1 %2").arg(error).arg(systemCode));
}
#endif

void TestZip::closingForgetsThePathAndHappensOnce()
{
    Zip zip(archiveWith({{"a", s_text}}));
    QVERIFY(zip.close());
    QVERIFY(!zip.isOpened());
    QCOMPARE(zip.fileName(), std::string());
    QVERIFY(!zip.close());
    QCOMPARE(zipcalls::log(), (QStringList{"zip_open flags 0", "zip_close"}));
}

void TestZip::anArchiveCanBeOpenedAgainAfterClosing()
{
    const std::string file = archiveWith({{"a", s_text}});
    Zip zip;
    QVERIFY(!zip.open(path("missing").toStdString()));
    QCOMPARE(zip.error(), ZIP_ER_NOENT);
    QCOMPARE(zip.fileName(), std::string());
    QVERIFY(zip.open(file));
    QCOMPARE(zip.error(), 0);
    QVERIFY(zip.close());
    QVERIFY(zip.open(file));
    QCOMPARE(zip.fileName(), file);
    QVERIFY(zip.stat("a").isValid());
}

void TestZip::theDestructorClosesWhatIsOpen()
{
    {
        const Zip zip(archiveWith({{"a", s_text}}));
    }
    QCOMPARE(zipcalls::log().filter("zip_close").size(), 1);
    zipcalls::reset();
    {
        const Zip zip(path("missing").toStdString());
    }
    QVERIFY(zipcalls::log().filter("zip_close").isEmpty());
}

void TestZip::archiveThatDoesNotCloseIsDiscarded()
{
    Zip zip(archiveWith({{"a", s_text}}));
    zipcalls::failClose();
    QVERIFY(zip.close());
    QVERIFY(!zip.isOpened());
    QCOMPARE(zipcalls::log(), (QStringList{"zip_open flags 0", "zip_close", "zip_discard"}));
}

void TestZip::entryIsClosedBeforeItsArchive()
{
    {
        Zip zip(archiveWith({{"a", s_text}}));
        const ZipFile entry = zip.fopen("a");
        QVERIFY(entry.isValid());
    }
    QCOMPARE(zipcalls::log(),
             (QStringList{"zip_open flags 0", "zip_fopen a", "zip_fclose", "zip_close"}));
}

void TestZip::whatIsNoArchiveDoesNotOpen_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("error");

    writeFile(path("empty"), {});
    writeFile(path("words"), s_text.repeated(20));
    QDir(directory.path()).mkdir("folder");

    QTest::newRow("missing file") << path("missing") << ZIP_ER_NOENT;
    QTest::newRow("file of 0 bytes") << path("empty") << ZIP_ER_NOZIP;
    QTest::newRow("text file") << path("words") << ZIP_ER_NOZIP;
    QTest::newRow("empty path") << QString() << ZIP_ER_NOENT;
    QTest::newRow("directory") << path("folder") << libzipRefusal(path("folder")).code;
}

void TestZip::whatIsNoArchiveDoesNotOpen()
{
    QFETCH(QString, file);
    QFETCH(int, error);

    QVERIFY(error != 0);
    const Zip zip(file.toStdString());
    QVERIFY(!zip);
    QCOMPARE(zip.fileName(), std::string());
    QCOMPARE(zip.error(), error);
    const bool absent = error == ZIP_ER_NOENT; // of which a Windows libzip knows one code of three
    QCOMPARE(QString::fromStdString(zip.errorStr()),
             absent ? libzipText(ZIP_ER_NOENT) : libzipTextOfOpening(file));
}

void TestZip::anArchiveWithoutEntriesOpensAndCountsZero()
{
    Zip zip(archiveWith({}));
    QVERIFY(zip.isOpened());
    QCOMPARE(zip.count(), static_cast<decltype(zip.count())>(0));
    QVERIFY(!zip.stat(0));
    QVERIFY(!zip.fopen(0));
}

void TestZip::pathsThatAreNotAsciiOpen()
{
    const QString file = path("прошивка – größer 固件.fw");
    writeFile(file, zipArchive({{"a", s_text}}));
    Zip zip(file.toUtf8().toStdString());
    QVERIFY(zip.isOpened());
    QVERIFY(zip.stat("a"));
}

void TestZip::statGivesNameIndexSizeAndChecksum()
{
    Zip zip(archiveWith({{"other", "x"}, {"123.txt", "123456789"}}));
    const ZipStat stat = zip.stat("123.txt");
    QVERIFY(stat.isValid());
    QVERIFY(bool(stat));
    QVERIFY(stat.isNameValid());
    QCOMPARE(stat.name(), std::string("123.txt"));
    QVERIFY(stat.isIndexValid());
    QCOMPARE(stat.index(), static_cast<decltype(stat.index())>(1));
    QVERIFY(stat.isSizeValid());
    QCOMPARE(stat.size(), static_cast<decltype(stat.size())>(9));
    QVERIFY(stat.isCrcValid());
    QCOMPARE(stat.crc(),
             0xCBF43926U); // CRC-32 of these nine digits: the check value of the polynomial
}

void TestZip::statByIndexAndByNameAgree()
{
    Zip zip(archiveWith({{"a", "1"}, {"b", "22"}, {"folder/b", "333"}}));
    QCOMPARE(zip.stat(1).name(), std::string("b"));
    QCOMPARE(zip.stat("b").index(), zip.stat(1).index());
    QCOMPARE(zip.stat("folder/b").size(), static_cast<decltype(zip.stat(1).size())>(3));
}

void TestZip::anAbsentNameIsInvalidAndLeavesNoSuchFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty name") << QString();
    QTest::newRow("absent") << "absent";
    QTest::newRow("other case") << "VELK3.BIN";
    QTest::newRow("file of a folder without its folder") << "inside.bin";
    QTest::newRow("blank after the name") << "velk3.bin ";
}

void TestZip::anAbsentNameIsInvalidAndLeavesNoSuchFile()
{
    QFETCH(QString, name);
    Zip zip(archiveWith({{"velk3.bin", s_text}, {"folder/inside.bin", s_text}}));

    const ZipStat stat = zip.stat(name.toStdString());
    QVERIFY(!stat.isValid());
    QVERIFY(!stat);
    QVERIFY(!stat.isNameValid() && !stat.isIndexValid() && !stat.isSizeValid() &&
            !stat.isCrcValid());
    QCOMPARE(stat.name(), std::string());
    QCOMPARE(stat.size(), static_cast<decltype(stat.size())>(0));
    QCOMPARE(zip.error(), ZIP_ER_NOENT);
    QCOMPARE(QString::fromStdString(zip.errorStr()), libzipText(ZIP_ER_NOENT));

    QVERIFY(!zip.fopen(name.toStdString()));
    QCOMPARE(zip.error(), ZIP_ER_NOENT);
}

void TestZip::anIndexPastTheEndIsInvalid()
{
    Zip zip(archiveWith({{"a", s_text}}));
    QVERIFY(!zip.stat(1));
    QCOMPARE(zip.error(), ZIP_ER_INVAL);
    QVERIFY(!zip.open("x")); // clears the codes
    QCOMPARE(zip.error(), 0);
    QVERIFY(!zip.fopen(1));
    QCOMPARE(zip.error(), ZIP_ER_INVAL);
}

void TestZip::validityNeedsOneOfFourBits_data()
{
    QTest::addColumn<quint64>("valid");
    QTest::addColumn<bool>("expected");
    QTest::newRow("nothing") << quint64(0) << false;
    QTest::newRow("name") << quint64(0x01) << true;
    QTest::newRow("index") << quint64(0x02) << true;
    QTest::newRow("size") << quint64(0x04) << true;
    QTest::newRow("CRC") << quint64(0x20) << true;
    QTest::newRow("all others") << ~quint64(0x27) << false;
}

void TestZip::validityNeedsOneOfFourBits()
{
    QFETCH(quint64, valid);
    QFETCH(bool, expected);
    Zip zip(archiveWith({{"a", s_text}}));
    zipcalls::changeStat([valid](zip_stat_t &stat) { stat.valid = valid; });

    const ZipStat stat = zip.stat(0);
    QCOMPARE(stat.isValid(), expected);
    QCOMPARE(bool(stat), expected);
    QCOMPARE(stat.isNameValid(), (valid & 0x01) != 0);
    QCOMPARE(stat.isIndexValid(), (valid & 0x02) != 0);
    QCOMPARE(stat.isSizeValid(), (valid & 0x04) != 0);
    QCOMPARE(stat.isCrcValid(), (valid & 0x20) != 0);
}

void TestZip::entriesAreReadBack_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("deflated");
    for (const int size : {0, 1, 4, 4095, 4096, 4097, 10000}) {
        for (const bool deflated : {false, true}) {
            QTest::addRow("%d bytes, %s", size, deflated ? "deflated" : "stored")
                << size << deflated;
        }
    }
}

void TestZip::entriesAreReadBack()
{
    QFETCH(int, size);
    QFETCH(bool, deflated);
    const QByteArray data = patternBytes(size);
    Zip zip(archiveWith({{"a", data, deflated}}));

    ZipFile entry = zip.fopen("a");
    QVERIFY(entry.isValid());
    QByteArray read(size + 10, '\0');
    QCOMPARE(entry.read(read.data(), static_cast<quint64>(read.size())), size);
    QCOMPARE(read.left(size), data);
    QCOMPARE(entry.error(), 0);
}

void TestZip::readingInPiecesGivesTheSameBytes()
{
    const QByteArray data = patternBytes(1000);
    Zip zip(archiveWith({{"a", "x"}, {"b", data, true}}));
    ZipFile entry = zip.fopen(1);
    QByteArray read;
    char piece[7];
    for (int count = entry.read(piece, sizeof piece); count > 0;
         count = entry.read(piece, sizeof piece)) {
        read.append(piece, count);
    }
    QCOMPARE(read, data);
}

void TestZip::readingAtTheEndGivesZero()
{
    Zip zip(archiveWith({{"a", "12"}}));
    ZipFile entry = zip.fopen("a");
    char piece[8];
    QCOMPARE(entry.read(piece, sizeof piece), 2);
    QCOMPARE(entry.read(piece, sizeof piece), 0);
    QCOMPARE(entry.read(piece, sizeof piece), 0);
    QCOMPARE(entry.error(), 0);
}

void TestZip::anEncryptedEntryDoesNotOpen()
{
    PackageEntry secret{"a", s_text};
    secret.encrypted = true;
    Zip zip(archiveWith({secret}));
    QVERIFY(zip.stat("a").isValid());

    const ZipFile entry = zip.fopen("a");
    QVERIFY(!entry.isValid());
    QVERIFY(!entry);
    QCOMPARE(entry.error(), 0); // the archive holds the reason, the entry starts clean
    QCOMPARE(zip.error(), ZIP_ER_NOPASSWD);
    QCOMPARE(QString::fromStdString(zip.errorStr()), libzipText(ZIP_ER_NOPASSWD));
}

void TestZip::aDamagedEntryFailsToRead_data()
{
    QTest::addColumn<bool>("deflated");
    QTest::addColumn<int>("damage");
    QTest::addColumn<bool>("wrongChecksum");
    QTest::newRow("stored, a byte changed") << false << 1 << false;
    QTest::newRow("stored, checksum of something else") << false << 0 << true;
    QTest::newRow("deflated, stream destroyed") << true << 10 << false;
    QTest::newRow("deflated, checksum of something else") << true << 0 << true;
}

void TestZip::aDamagedEntryFailsToRead()
{
    QFETCH(bool, deflated);
    QFETCH(int, damage);
    QFETCH(bool, wrongChecksum);
    // Repetitive, so that it really is compressed.
    QByteArray data = patternBytes(20).repeated(50);
    data[500] = 0x11;
    PackageEntry entry{"a", data, deflated};
    entry.damagedBytes = damage;
    if (wrongChecksum) {
        entry.statedCrc = 0x12345678;
    }
    Zip zip(archiveWith({entry}));

    ZipFile file = zip.fopen("a");
    QVERIFY(file.isValid());
    char piece[100];
    int result = 1;
    int pieces = 0;
    while (result > 0 && pieces++ < 100) {
        result = file.read(piece, sizeof piece);
    }
    QCOMPARE(result, -1);
    QVERIFY(file.error() != 0);
    QVERIFY(QString::fromStdString(file.errorStr()) != libzipText(ZIP_ER_OK));
    QCOMPARE(zip.error(), 0); // reading is the entry's business
    if (wrongChecksum) {
        QCOMPARE(file.error(), ZIP_ER_CRC);
        QCOMPARE(QString::fromStdString(file.errorStr()), libzipText(ZIP_ER_CRC));
    }
}

void TestZip::aTruncatedArchiveDoesNotOpen()
{
    const QByteArray whole = zipArchive({{"a", s_text}, {"b", s_text, true}});
    for (int size = 0; size < whole.size(); ++size) {
        writeFile(path("cut.fw"), whole.left(size));
        const Zip zip(path("cut.fw").toStdString());
        QVERIFY2(!zip, qPrintable(QString::number(size)));
        QVERIFY(zip.error() != 0);
    }
    writeFile(path("cut.fw"), whole);
    QVERIFY(Zip(path("cut.fw").toStdString()).isOpened());
}

void TestZip::readOfAnEntryThatDidNotOpenIsAnInvalidArgument()
{
    Zip zip(archiveWith({{"a", s_text}}));
    ZipFile entry = zip.fopen("absent");
    QCOMPARE(entry.error(), 0);
    char byte = 'x';
    QCOMPARE(entry.read(&byte, 1), -1);
    QCOMPARE(byte, 'x');
    QCOMPARE(entry.error(), 18);
    QVERIFY(zipcalls::log().filter("zip_fread").isEmpty());
    // The code is one of libzip's own, so the system code that goes with it does not show.
    QCOMPARE(QString::fromStdString(entry.errorStr()), libzipText(ZIP_ER_INVAL));
    QCOMPARE(zipcalls::log().last(), QStringLiteral("zip_error_to_str 18 2"));
}

void TestZip::anOpenedEntryStartsWithoutErrors()
{
    Zip zip(archiveWith({{"a", s_text}}));
    QVERIFY(!zip.stat("absent"));
    ZipFile entry = zip.fopen("a");
    QVERIFY(bool(entry));
    QCOMPARE(entry.error(), 0);
    QCOMPARE(QString::fromStdString(entry.errorStr()), libzipText(ZIP_ER_OK));
}

void TestZip::aMovedEntryIsClosedOnce()
{
    Zip zip(archiveWith({{"a", "12"}}));
    {
        ZipFile first = zip.fopen("a");
        ZipFile second = std::move(first);
        char piece[2];
        QCOMPARE(second.read(piece, 2), 2);
    }
    QCOMPARE(zipcalls::log().filter("zip_fclose").size(), 1);
}

void TestZip::statsListsAllEntriesInOrder()
{
    Zip zip(archiveWith({{"c", "1"}, {"a", "22"}, {"b", "333", true}}));
    const std::vector<ZipStat> stats = zip.stats();
    QCOMPARE(stats.size(), std::size_t(3));
    QStringList lines;
    for (const ZipStat &stat : stats) {
        lines.append(QStringLiteral("%1 %2 %3")
                         .arg(QString::fromStdString(stat.name()))
                         .arg(stat.index())
                         .arg(stat.size()));
    }
    QCOMPARE(lines, (QStringList{"c 0 1", "a 1 2", "b 2 3"}));
}

void TestZip::statsIsEmptyWhenOneEntryCannotBeStated_data()
{
    QTest::addColumn<int>("failing");
    QTest::newRow("first") << 0;
    QTest::newRow("middle") << 1;
    QTest::newRow("last") << 2;
}

void TestZip::statsIsEmptyWhenOneEntryCannotBeStated()
{
    QFETCH(int, failing);
    Zip zip(archiveWith({{"c", "1"}, {"a", "22"}, {"b", "333"}}));
    zipcalls::failStat(static_cast<quint64>(failing));
    QVERIFY(zip.stats().empty());
    QCOMPARE(zip.error(), ZIP_ER_INVAL);
    zipcalls::reset();
    QCOMPARE(zip.stats().size(), std::size_t(3));
}

void TestZip::statsIsEmptyWhenAnEntryHasNoValidField()
{
    Zip zip(archiveWith({{"c", "1"}, {"a", "22"}, {"b", "333"}}));
    zipcalls::changeStat([](zip_stat_t &stat) {
        if (stat.index == 1) {
            stat.valid = ~zip_uint64_t(0x27);
        }
    });
    QVERIFY(zip.stats().empty());
}

void TestZip::statsIsEmptyWhenTheCountFails()
{
    Zip zip(archiveWith({{"a", "1"}}));
    zipcalls::failCount();
    QVERIFY(zip.stats().empty());
    QVERIFY(zipcalls::log().filter("zip_stat_index").isEmpty());
}

void TestZip::statsOfAnEmptyArchiveIsEmpty()
{
    Zip zip(archiveWith({}));
    QVERIFY(zip.stats().empty());
}

QTEST_GUILESS_MAIN(TestZip)
#include "tst_zip.moc"
