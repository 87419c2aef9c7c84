#include "updategate.h"

#include <QtTest>

// Whether an update is under way when its task is destroyed, and what it then leaves to be said.
class TestUpdateGate : public QObject
{
    Q_OBJECT

private slots:
    void anUpdateThatHasNotBegunIsNotStarted();
    void noUpdateFollowsTheOneThatIsUnderWay();
    void updatesFollowEachOtherUntilTheGateIsClosed();
    void theErrorsOfTheUpdateUnderWayAreKept();
    void theErrorsOfAnEarlierUpdateAreForgotten();
    void anUpdateThatHasEndedLeavesNothingToBeSaid();
};

void TestUpdateGate::anUpdateThatHasNotBegunIsNotStarted()
{
    UpdateGate gate;
    QVERIFY(!gate.close());
    QVERIFY(!gate.enter());
    QCOMPARE(gate.errors(), QStringList());
}

void TestUpdateGate::noUpdateFollowsTheOneThatIsUnderWay()
{
    UpdateGate gate;
    QVERIFY(gate.enter());
    QVERIFY(gate.close());
    gate.leave();
    QVERIFY(!gate.enter());
    QCOMPARE(gate.errors(), QStringList());
}

void TestUpdateGate::updatesFollowEachOtherUntilTheGateIsClosed()
{
    UpdateGate gate;
    QVERIFY(gate.enter());
    gate.leave();
    QVERIFY(gate.enter());
    gate.leave();
    QVERIFY(!gate.close());
    QVERIFY(!gate.enter());
}

void TestUpdateGate::theErrorsOfTheUpdateUnderWayAreKept()
{
    UpdateGate gate;
    QVERIFY(gate.enter());
    gate.noteError("before");
    QVERIFY(gate.close());
    gate.noteError("after");
    gate.leave();
    QVERIFY(!gate.enter()); // one that waited changes nothing
    QCOMPARE(gate.errors(), (QStringList{"before", "after"}));
}

void TestUpdateGate::theErrorsOfAnEarlierUpdateAreForgotten()
{
    UpdateGate gate;
    QVERIFY(gate.enter());
    gate.noteError("earlier");
    gate.leave();
    QVERIFY(gate.enter());
    QVERIFY(gate.close());
    gate.leave();
    QCOMPARE(gate.errors(), QStringList());
}

void TestUpdateGate::anUpdateThatHasEndedLeavesNothingToBeSaid()
{
    UpdateGate gate;
    QVERIFY(gate.enter());
    gate.noteError("earlier");
    gate.leave();
    QVERIFY(!gate.close());
    QCOMPARE(gate.errors(), QStringList());
}

QTEST_APPLESS_MAIN(TestUpdateGate)
#include "tst_updategate.moc"
