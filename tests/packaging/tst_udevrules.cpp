#include "filters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QTest>

// The udev rules that give a person at the screen access to the devices. A product that the program
// knows and the rules do not would be missing from the list of everyone who is not root.
class UdevRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyRecognisedProductHasItsRule_data();
    void everyRecognisedProductHasItsRule();
    void noOtherDeviceIsOpenedUp();
    void rulesAreReadBeforeTheSeatRules();
    void everyJumpHasItsLabel();

private:
    // The rules, without comments and blank lines.
    QStringList rules;
    // "vvvv:pppp" as udev compares it, and how many rules name it
    QMap<QString, int> idsWithAccess;
};

namespace {

QString udevId(const ProductId &id)
{
    return QStringLiteral("%1:%2")
        .arg(id.vendorId, 4, 16, QLatin1Char('0'))
        .arg(id.productId, 4, 16, QLatin1Char('0'));
}

} // namespace

void UdevRulesTest::initTestCase()
{
    QFile file(QStringLiteral(RULES_FILE));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));

    // udev's sysfs attributes are lower case: an upper-case digit here would never match.
    const QRegularExpression access(
        QStringLiteral("^ATTR\\{idVendor\\}==\"([0-9a-f]{4})\", "
                       "ATTR\\{idProduct\\}==\"([0-9a-f]{4})\", TAG\\+=\"uaccess\"$"));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (line.trimmed().isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        rules.append(line);
        const QRegularExpressionMatch match = access.match(line);
        if (match.hasMatch())
            ++idsWithAccess[match.captured(1) + QLatin1Char(':') + match.captured(2)];
        else
            QVERIFY2(
                !line.contains(QLatin1String("uaccess")) && !line.contains(QLatin1String("TAG")),
                qPrintable(QStringLiteral("a rule that udev would not match as meant: ") + line));
    }
    QVERIFY(!idsWithAccess.isEmpty());
}

void UdevRulesTest::everyRecognisedProductHasItsRule_data()
{
    QTest::addColumn<QString>("id");
    for (const Filter &filter : s_filters)
        QTest::newRow(qPrintable(udevId(filter.id))) << udevId(filter.id);
}

void UdevRulesTest::everyRecognisedProductHasItsRule()
{
    QFETCH(QString, id);
    QCOMPARE(idsWithAccess.value(id), 1);
}

void UdevRulesTest::noOtherDeviceIsOpenedUp()
{
    QStringList recognised;
    for (const Filter &filter : s_filters)
        recognised.append(udevId(filter.id));
    recognised.sort();
    QCOMPARE(QStringList(idsWithAccess.keys()), recognised);
}

void UdevRulesTest::rulesAreReadBeforeTheSeatRules()
{
    // systemd's 73-seat-late.rules turns the tag into access; a tag that is set later has no
    // effect.
    bool isNumber = false;
    const int number = QFileInfo(QStringLiteral(RULES_FILE))
                           .fileName()
                           .section(QLatin1Char('-'), 0, 0)
                           .toInt(&isNumber);
    QVERIFY(isNumber);
    QVERIFY(number < 73);
}

void UdevRulesTest::everyJumpHasItsLabel()
{
    const QRegularExpression jump(QStringLiteral("GOTO=\"([^\"]+)\""));
    int jumps = 0;
    for (int line = 0; line < rules.size(); ++line) {
        const QRegularExpressionMatch match = jump.match(rules.at(line));
        if (!match.hasMatch())
            continue;
        ++jumps;
        // udev jumps forward only.
        const int label =
            rules.indexOf(QStringLiteral("LABEL=\"%1\"").arg(match.captured(1)), line);
        QVERIFY2(label > line, qPrintable(rules.at(line)));
    }
    QVERIFY(jumps > 0);
}

QTEST_APPLESS_MAIN(UdevRulesTest)
#include "tst_udevrules.moc"
