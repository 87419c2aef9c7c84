#include "pause.h"

#include <QElapsedTimer>
#include <QtTest>

// The pauses are the device's time: they must not be shorter than they say.
class TestPause : public QObject
{
    Q_OBJECT

private slots:
    void aPauseLastsItsSeconds();
    void aLongPauseLastsItsSeconds();
    void noPauseReturnsAtOnce();
};

namespace {

qint64 measured(unsigned seconds)
{
    QElapsedTimer timer;
    timer.start();
    pause_seconds(seconds);
    return timer.nsecsElapsed();
}

} // namespace

void TestPause::aPauseLastsItsSeconds()
{
    QVERIFY(measured(1) >= 1000000000LL);
}

void TestPause::aLongPauseLastsItsSeconds()
{
    QVERIFY(measured(3) >= 3000000000LL);
}

void TestPause::noPauseReturnsAtOnce()
{
    QVERIFY(measured(0) < 1000000000LL);
}

QTEST_GUILESS_MAIN(TestPause)
#include "tst_pause.moc"
