#include "capturedoutput.h"
#include "packagebuilder.h"

#include "edid.h"
#include "updatetexts.h"

#include <QtTest>

#include <iostream>
#include <sstream>

// The EDID text format and what the parser says about bad texts.
class TestEdid : public QObject
{
    Q_OBJECT

private slots:
    void goodTextsGiveTheirBytes_data();
    void goodTextsGiveTheirBytes();
    void aLineIsReadNumberByNumber();
    void badTextsAreDiagnosed_data();
    void badTextsAreDiagnosed();
    void aWrongChecksumNamesItsBlock_data();
    void aWrongChecksumNamesItsBlock();
    void aSumBelowTheLastByteStillNamesBlockAndByte();
    void theFirstFaultEndsTheParsing();
    void aGoodEdidWithoutABlockIsRefused();
};

namespace {

const QByteArray s_header = "one\ntwo\nthree\n";

// A data line of sixteen numbers.
QByteArray line(const char *numbers, const char *label = "0x00 ")
{
    return QByteArray(label) + "|" + numbers + "\n";
}

QByteArray zeros()
{
    return line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
}

EdidResult parse(const QByteArray &text)
{
    std::istringstream in(text.toStdString());
    return parse_edid(in);
}

QByteArray bytesOf(const EdidResult &result)
{
    return QByteArray(reinterpret_cast<const char *>(result.bytes.data()),
                      static_cast<int>(result.bytes.size()));
}

// Eight lines of a block that sums to 0, but for the first line, which is given.
QByteArray blockStarting(const QByteArray &first)
{
    return s_header + first + zeros().repeated(7);
}

} // namespace

void TestEdid::goodTextsGiveTheirBytes_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("bytes");

    const QByteArray one = edidBlocks(1);
    const QByteArray two = edidBlocks(2);
    QTest::newRow("one block") << edidText(one) << one;
    QTest::newRow("two blocks") << edidText(two) << two;
    QTest::newRow("eight blocks") << edidText(edidBlocks(8)) << edidBlocks(8);
    QTest::newRow("last line without its end") << edidText(one).chopped(1) << one;
    QTest::newRow("carriage returns") << edidText(one).replace('\n', "\r\n") << one;
    QTest::newRow("upper case") << edidText(one).toUpper().replace("0X", "0x") << one;
    QTest::newRow("heading with bars and numbers")
        << "| 1 2 3\n|\n00 |\n" + zeros().repeated(8) << QByteArray(128, '\0');
    QTest::newRow("empty heading") << "\n\n\n" + zeros().repeated(8) << QByteArray(128, '\0');

    const QByteArray last15 = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
    QByteArray expected(128, '\0');
    expected[0] = '\x34';
    expected[1] = '\xCC';
    QTest::newRow("only the low 8 bits count")
        << blockStarting(line(" 1234 fCC 0 0 0 0 0 0 0 0 0 0 0 0 0 0")) << expected;
    expected[0] = '\xFF';
    expected[1] = '\x01';
    QTest::newRow("no label") << blockStarting(line("ff 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0", ""))
                              << expected;
    QTest::newRow("tabs and many blanks")
        << blockStarting(line("\tff\t\t1  " + last15.mid(2) + "  \t ", "")) << expected;
    QTest::newRow("label of any words")
        << blockStarting(line("ff 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0", "12 34 offset zero! "))
        << expected;
    QTest::newRow("numbers end at what is none")
        << blockStarting(line("ff 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 | checksum", "")) << expected;
    QTest::newRow("numbers may begin with 0x, as extraction in base 16 takes it")
        << blockStarting(line("0xff 0x1 0 0 0 0 0 0 0 0 0 0 0 0 0 0", "")) << expected;
}

void TestEdid::goodTextsGiveTheirBytes()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, bytes);
    const CapturedStream errors(std::cerr);
    const EdidResult result = parse(text);
    QCOMPARE(QString::fromStdString(errors.text()), QString());
    QCOMPARE(int(result.status), 0);
    QCOMPARE(bytesOf(result), bytes);
}

void TestEdid::aLineIsReadNumberByNumber()
{
    const EdidResult result =
        parse(blockStarting(line(" 00 ff ff ff ff ff ff 00 0a 1b 2c 3d 4e 5f 60 6b", "0x10 ")));
    // 6 * 0xff + 0a + 1b + 2c + 3d + 4e + 5f + 60 = 0x795, and 0x95 + 0x6b = 0x100.
    QCOMPARE(int(result.status), 0);
    QCOMPARE(bytesOf(result).left(16).toHex(), QByteArray("00ffffffffffff000a1b2c3d4e5f606b"));
}

void TestEdid::badTextsAreDiagnosed_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("diagnostic");

    const auto count = [](int lines) {
        return QStringLiteral("Unexpected lines count: %1, should be dividable by 8\n").arg(lines);
    };
    const auto underflow = [](int number) {
        return QStringLiteral("Error: line underflow, line: %1\n").arg(number);
    };
    const auto overflow = [](int number) {
        return QStringLiteral("Error: line overflow, line %1\n").arg(number);
    };
    const auto noBar = [](int number) {
        return QStringLiteral("Error: vertical delimiter (|) not found, line: %1\n").arg(number);
    };
    const QByteArray good = zeros();
    QTest::newRow("nothing") << QByteArray() << count(0);
    QTest::newRow("two lines") << QByteArray("a\nb\n") << count(0);
    QTest::newRow("only the heading") << s_header << count(0);
    for (const int lines : {1, 7, 9, 15, 17}) {
        QTest::addRow("%d lines", lines) << s_header + good.repeated(lines) << count(lines);
    }

    const QByteArray fifteen = line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    const QByteArray seventeen = line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    QTest::newRow("15 numbers in line 1") << s_header + fifteen + good.repeated(7) << underflow(1);
    QTest::newRow("15 numbers in line 8") << s_header + good.repeated(7) + fifteen << underflow(8);
    QTest::newRow("17 numbers in line 3")
        << s_header + good.repeated(2) + seventeen + good.repeated(5) << overflow(3);
    QTest::newRow("17 numbers in line 10")
        << s_header + good.repeated(9) + seventeen << overflow(10);
    QTest::newRow("nothing after the bar") << s_header + "0x00 |\n" << underflow(1);
    QTest::newRow("word among the numbers")
        << s_header + line(" 0 0 0 0 zero 0 0 0 0 0 0 0 0 0 0 0") << underflow(1);
    QTest::newRow("numbers run into a word")
        << s_header + line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0x") << underflow(1);
    QTest::newRow("no bar") << s_header + "0x00 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n" << noBar(1);
    QTest::newRow("no bar in line 2") << s_header + good + "no bar\n" << noBar(2);
    QTest::newRow("empty line at the end") << s_header + good.repeated(8) + "\n" << noBar(9);
    QTest::newRow("blank line in the middle")
        << s_header + good.repeated(4) + "  \n" + good.repeated(4) << noBar(5);
}

void TestEdid::badTextsAreDiagnosed()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, diagnostic);
    const CapturedStream errors(std::cerr);
    const EdidResult result = parse(text);
    QCOMPARE(QString::fromStdString(errors.text()), diagnostic);
    QCOMPARE(int(result.status), 1);
    QVERIFY(result.bytes.empty());
}

void TestEdid::aWrongChecksumNamesItsBlock_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("diagnostic");
    const QByteArray good = zeros();
    const QByteArray head = line(" 50 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    const QByteArray tail = line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 30");
    // 0x50 + 0x30 = 0x80; less the last byte that is 0x50.
    QTest::newRow("block 0") << s_header + head + good.repeated(6) + tail
                             << "Checksum of the block 0 mismatch, expected: 0x50, readed: 0x30\n";
    QTest::newRow("block 1") << s_header + good.repeated(8) + head + good.repeated(6) + tail
                             << "Checksum of the block 1 mismatch, expected: 0x50, readed: 0x30\n";
    QTest::newRow("both: the first") << s_header + (head + good.repeated(6) + tail).repeated(2)
                                     << "Checksum of the block 0 mismatch, expected: 0x50, "
                                        "readed: 0x30\n";
    QTest::newRow("block 10 in decimal")
        << s_header + good.repeated(80) + head + good.repeated(6) + tail
        << "Checksum of the block 10 mismatch, expected: 0x50, readed: 0x30\n";
    QTest::newRow("last byte 0") << s_header + head + good.repeated(7)
                                 << "Checksum of the block 0 mismatch, expected: 0x50, readed: "
                                    "0x0\n";
    QTest::newRow("hexadecimal digits")
        << s_header + line(" ab 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0") + good.repeated(6) +
               line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 2f")
        << "Checksum of the block 0 mismatch, expected: 0xab, readed: 0x2f\n";
}

void TestEdid::aWrongChecksumNamesItsBlock()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, diagnostic);
    const CapturedStream errors(std::cerr);
    const EdidResult result = parse(text);
    QCOMPARE(QString::fromStdString(errors.text()), diagnostic);
    QCOMPARE(int(result.status), 2);
    QVERIFY(result.bytes.empty());
}

void TestEdid::aSumBelowTheLastByteStillNamesBlockAndByte()
{
    // Sum 0x05, last byte 0x30: what was expected would be negative, and how that reads is open.
    const QByteArray text = s_header + line(" d5 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0") +
                            zeros().repeated(6) + line(" 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 30");
    const CapturedStream errors(std::cerr);
    const EdidResult result = parse(text);
    const QString said = QString::fromStdString(errors.text());
    QVERIFY(said.startsWith("Checksum of the block 0 mismatch, expected: 0x"));
    QVERIFY(said.endsWith(", readed: 0x30\n"));
    QCOMPARE(said.count('\n'), 1);
    QCOMPARE(int(result.status), 2);
}

void TestEdid::theFirstFaultEndsTheParsing()
{
    const CapturedStream errors(std::cerr);
    parse(s_header + "no bar\nno bar\n" + line(" 1"));
    QCOMPARE(QString::fromStdString(errors.text()).count('\n'), 1);
}

// No text gives one today.
void TestEdid::aGoodEdidWithoutABlockIsRefused()
{
    const EdidResult nothing;
    QCOMPARE(nothing.status, int(EdidGood));
    QCOMPARE(UpdateTexts::edidFailure(nothing), QString("EDID data is empty"));
}

QTEST_GUILESS_MAIN(TestEdid)
#include "tst_edid.moc"
