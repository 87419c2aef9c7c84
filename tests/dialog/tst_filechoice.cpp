// What the dialog asks the toolkit's file dialog for, to the letter: the dialog itself tidies the
// filter up, so nothing of it shows the blank that stands in it. Hence the toolkit's function is
// replaced by this test's.

#include "dialogdriver.h"

#include <QFileDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QTabWidget>
#include <QTest>

static QStringList s_asked;
static QString s_answer;

QString QFileDialog::getOpenFileName(QWidget *parent, const QString &caption, const QString &dir,
                                     const QString &filter, QString *selectedFilter,
                                     Options options)
{
    s_asked += {parent ? parent->objectName() : QString(), caption, dir, filter};
    if (selectedFilter || options != Options()) {
        s_asked += QStringLiteral("more than the defaults");
    }
    return s_answer;
}

class TestFileChoice : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void filterIsAskedForToTheLetter();
};

void TestFileChoice::filterIsAskedForToTheLetter()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    driver.selectRow(0);
    s_answer = QStringLiteral("/tmp/x.fw");
    driver.click("firmwareSelectButton");
    QCOMPARE(s_asked, (QStringList{"UpdateRepair", "Select firmware update file", QString(),
                                   "Firmware files (*.fw);; All (*)"}));
    QCOMPARE(driver.find<QLineEdit>("firmwareLineEdit")->text(), s_answer);
}

QTEST_MAIN(TestFileChoice)
#include "tst_filechoice.moc"
