#include "filters.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

// The udev rules that give a person at the screen, and the group plugdev, access to the devices;
// and what else lists the ids. A product that the program knows and the rules do not would be
// missing from the list of everyone who is not root; one that the metadata does not know, a
// software centre would not offer the program for.
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
    void metadataNamesTheSameDevices();
    void installationGivesPluggedDevicesToTheirOwners();
    void installationGoesOnWithoutUdev_data();
    void installationGoesOnWithoutUdev();

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

// Every id of the program's table, in order.
QStringList recognisedIds()
{
    QStringList ids;
    for (const Filter &filter : s_filters) {
        ids.append(udevId(filter.id));
    }
    ids.sort();
    return ids;
}

// The script that runs when the package with the rules is installed, with another udevadm.
class Installation
{
public:
    // What the udevadm does with "control" and with "trigger"; it notes its arguments in any case.
    // Without a text there is none.
    explicit Installation(const QByteArray &udevadm)
    {
        QFile script(QStringLiteral(POSTINST_FILE));
        QVERIFY(script.open(QIODevice::ReadOnly));
        QByteArray text = script.readAll();
        QCOMPARE(text.count("rules=/lib/udev/rules.d/70-capso-config.rules\n"), 1);
        text.replace("/lib/udev/rules.d/70-capso-config.rules", RULES_FILE);
        text.replace("#DEBHELPER#", "");
        write(QStringLiteral("postinst"), text);
        QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("bin")));
        for (const QString &tool : {QStringLiteral("sed"), QStringLiteral("sh")}) {
            QVERIFY(QFile::link(QStandardPaths::findExecutable(tool),
                                folder.filePath(QStringLiteral("bin/") + tool)));
        }
        if (!udevadm.isNull()) {
            write(QStringLiteral("bin/udevadm"),
                  "#!/bin/sh\necho \"$@\" >>" + folder.filePath(QStringLiteral("calls")).toUtf8() +
                      "\n" + udevadm + "\n");
        }
    }

    // The exit code.
    int run(const QString &action) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("PATH"), folder.filePath(QStringLiteral("bin")));
        process.setProcessEnvironment(environment);
        process.start(folder.filePath(QStringLiteral("postinst")), {action, QString()});
        return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit
                   ? process.exitCode()
                   : -1;
    }

    // The arguments of each call of udevadm.
    QStringList calls() const
    {
        QFile file(folder.filePath(QStringLiteral("calls")));
        if (!file.open(QIODevice::ReadOnly)) {
            return {};
        }
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private:
    void write(const QString &name, const QByteArray &text)
    {
        QFile file(folder.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(text), qint64(text.size()));
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }

    QTemporaryDir folder;
};

} // namespace

void UdevRulesTest::initTestCase()
{
    QFile file(QStringLiteral(RULES_FILE));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));

    // udev's sysfs attributes are lower case: an upper-case digit here would never match.
    const QRegularExpression access(
        QStringLiteral("^ATTR\\{idVendor\\}==\"([0-9a-f]{4})\", "
                       "ATTR\\{idProduct\\}==\"([0-9a-f]{4})\", GROUP=\"plugdev\", MODE=\"0660\", "
                       "TAG\\+=\"uaccess\"$"));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (line.trimmed().isEmpty() || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        rules.append(line);
        const QRegularExpressionMatch match = access.match(line);
        if (match.hasMatch()) {
            ++idsWithAccess[match.captured(1) + QLatin1Char(':') + match.captured(2)];
        } else {
            QVERIFY2(
                !line.contains(QLatin1String("uaccess")) && !line.contains(QLatin1String("TAG")),
                qPrintable(QStringLiteral("a rule that udev would not match as meant: ") + line));
        }
    }
    QVERIFY(!idsWithAccess.isEmpty());
}

void UdevRulesTest::everyRecognisedProductHasItsRule_data()
{
    QTest::addColumn<QString>("id");
    for (const Filter &filter : s_filters) {
        QTest::newRow(qPrintable(udevId(filter.id))) << udevId(filter.id);
    }
}

void UdevRulesTest::everyRecognisedProductHasItsRule()
{
    QFETCH(QString, id);
    QCOMPARE(idsWithAccess.value(id), 1);
}

void UdevRulesTest::noOtherDeviceIsOpenedUp()
{
    QCOMPARE(QStringList(idsWithAccess.keys()), recognisedIds());
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
        if (!match.hasMatch()) {
            continue;
        }
        ++jumps;
        // udev jumps forward only.
        const qsizetype label =
            rules.indexOf(QStringLiteral("LABEL=\"%1\"").arg(match.captured(1)), line);
        QVERIFY2(label > line, qPrintable(rules.at(line)));
    }
    QVERIFY(jumps > 0);
}

void UdevRulesTest::metadataNamesTheSameDevices()
{
    QFile file(QStringLiteral(METADATA_FILE));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.errorString()));
    QXmlStreamReader xml(&file);
    // As the kernel writes them, with upper-case digits; what follows "d" is the device's own
    // version.
    const QRegularExpression modalias(QStringLiteral("^usb:v([0-9A-F]{4})p([0-9A-F]{4})d\\*$"));
    QStringList ids;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement ||
            xml.name() != QLatin1String("modalias")) {
            continue;
        }
        const QString text = xml.readElementText();
        const QRegularExpressionMatch match = modalias.match(text);
        QVERIFY2(match.hasMatch(), qPrintable(text));
        ids.append((match.captured(1) + QLatin1Char(':') + match.captured(2)).toLower());
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    ids.sort();
    QCOMPARE(ids, recognisedIds());
}

void UdevRulesTest::installationGivesPluggedDevicesToTheirOwners()
{
    const Installation installation("exit 0");
    QCOMPARE(installation.run(QStringLiteral("configure")), 0);
    QStringList calls = installation.calls();
    QVERIFY(!calls.isEmpty());
    QCOMPARE(calls.takeFirst(), QStringLiteral("control --reload"));
    QStringList expected;
    for (const QString &id : recognisedIds()) {
        expected.append(QStringLiteral("trigger --action=change --subsystem-match=usb "
                                       "--attr-match=idVendor=%1 --attr-match=idProduct=%2")
                            .arg(id.left(4), id.mid(5)));
    }
    calls.sort();
    QCOMPARE(calls, expected);

    // Only then are there new rules.
    const Installation failed("exit 0");
    QCOMPARE(failed.run(QStringLiteral("abort-upgrade")), 0);
    QCOMPARE(failed.calls(), QStringList());
}

void UdevRulesTest::installationGoesOnWithoutUdev_data()
{
    QTest::addColumn<QByteArray>("udevadm");
    QTest::addColumn<int>("calls");
    QTest::newRow("none") << QByteArray() << 0;
    QTest::newRow("not running") << QByteArray("exit 1") << 1;
    QTest::newRow("nothing to trigger")
        << QByteArray("[ \"$1\" = control ]") << 1 + int(recognisedIds().size());
}

void UdevRulesTest::installationGoesOnWithoutUdev()
{
    QFETCH(QByteArray, udevadm);
    QFETCH(int, calls);
    const Installation installation(udevadm);
    QCOMPARE(installation.run(QStringLiteral("configure")), 0);
    QCOMPARE(int(installation.calls().size()), calls);
}

QTEST_APPLESS_MAIN(UdevRulesTest)
#include "tst_udevrules.moc"
