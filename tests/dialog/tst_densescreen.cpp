#include "dialogdriver.h"
#include "qtcompat.h"
#include "updaterepair.h"

#include <QLabel>
#include <QListWidget>
#include <QPixmap>
#include <QTabWidget>
#include <QTest>

// The dialog on a screen with twice the normal density, for which this test's environment stands.
class TestDenseScreen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void bannerIsTheDensePicture();
};

void TestDenseScreen::initTestCase()
{
    prepareWithoutUsb();
    qtcompat::use_high_dpi_pixmaps();
    QCOMPARE(qApp->devicePixelRatio(), 2.0);
}

void TestDenseScreen::bannerIsTheDensePicture()
{
    const UpdateRepair dialog;
    const QPixmap banner = dialog.findChild<QLabel *>("QuorlinBanner")->pixmap(Qt::ReturnByValue);

    const QImage dense(QStringLiteral(":/images/banner@2x.png"));
    QCOMPARE(banner.devicePixelRatio(), 2.0);
    QCOMPARE(banner.size(), dense.size());
    QImage shown = banner.toImage();
    shown.setDevicePixelRatio(dense.devicePixelRatio());
    QCOMPARE(shown, dense.convertToFormat(shown.format()));
}

QTEST_MAIN(TestDenseScreen)

#include "tst_densescreen.moc"
