#include "usbview.h"

#include <QtTest>

// A system that does not show its USB devices.
class TestNoUsbView : public QObject
{
    Q_OBJECT

private slots:
    void thereIsNoView();
};

void TestNoUsbView::thereIsNoView()
{
    QVERIFY(!usbview::recognisedDevices().has_value());
}

QTEST_GUILESS_MAIN(TestNoUsbView)

#include "tst_nousbview.moc"
