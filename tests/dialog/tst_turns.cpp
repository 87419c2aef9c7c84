// Whose turn it is, as tables of events: what happens on the left, what is sent because of it and
// whether the controls are free then on the right.

#include "turns.h"

#include <QStringList>
#include <QTest>

#include <map>
#include <vector>

namespace {

// "ask scan", "ask update", "ask settings", "ask poll"; "end ..." of the same; "choose" and
// "clear".
struct Step
{
    const char *event;
    const char *sent; // in their order
    bool idle;
};

const std::map<QString, Turns::Work> s_works = {
    {"scan", Turns::Work::Scan},
    {"update", Turns::Work::Update},
    {"settings", Turns::Work::Configuration},
    {"poll", Turns::Work::Poll},
};

// Plays events and keeps the last ticket of each kind of work.
class Player
{
public:
    // What the event has sent.
    QString play(const QString &event)
    {
        sent.clear();
        const QStringList words = event.split(u' ');
        if (words.first() == QLatin1String("choose")) {
            turns.rowChosen();
        } else if (words.first() == QLatin1String("clear")) {
            turns.listCleared();
        } else if (words.first() == QLatin1String("ask")) {
            const QString work = words.at(1);
            ask(work, [this, work] { sent += work; });
        } else {
            turns.ended(s_works.at(words.at(1)));
        }
        return sent.join(u' ');
    }

    bool isWanted(const char *work) const { return tickets.at(QLatin1String(work)).isWanted(); }

    Turns turns;

private:
    void ask(const QString &work, const Turns::Send &send)
    {
        switch (s_works.at(work)) {
        case Turns::Work::Scan:
            turns.askScan(send);
            break;
        case Turns::Work::Update:
            turns.askUpdate(send);
            break;
        case Turns::Work::Configuration:
            tickets[work] = turns.askConfiguration(send);
            break;
        case Turns::Work::Poll:
            tickets[work] = turns.askPoll(send);
            break;
        }
    }

    QStringList sent;
    std::map<QString, Turns::Ticket> tickets;
};

} // namespace

Q_DECLARE_METATYPE(std::vector<Step>)

class TestTurns : public QObject
{
    Q_OBJECT

private slots:
    void events_data();
    void events();
    void answerIsWanted_data();
    void answerIsWanted();
    void answerThatNobodyAskedForIsTaken();
    void ticketOfANewRequestIsFresh();
    void scanIsOvertakenWhileAnotherIsToCome();
    void pollMayComeWhenNothingRuns_data();
    void pollMayComeWhenNothingRuns();
    void loadIsRememberedOnce();
};

void TestTurns::events_data()
{
    QTest::addColumn<std::vector<Step>>("steps");
    const auto row = [](const char *name, const std::vector<Step> &steps) {
        QTest::newRow(name) << steps;
    };
    row("nothing runs", {});
    row("a scan alone", {{"ask scan", "scan", false}, {"end scan", "", true}});
    row("an update alone", {{"ask update", "update", false}, {"end update", "", true}});
    row("a request alone", {{"ask settings", "settings", false}, {"end settings", "", true}});
    row("a poll alone leaves the controls free",
        {{"ask poll", "poll", true}, {"end poll", "", true}});
    row("a scan waits for a poll", {{"ask poll", "poll", true},
                                    {"ask scan", "", false},
                                    {"end poll", "scan", false},
                                    {"end scan", "", true}});
    row("an update waits for a poll", {{"ask poll", "poll", true},
                                       {"ask update", "", false},
                                       {"end poll", "update", false},
                                       {"end update", "", true}});
    row("a request waits for a poll", {{"ask poll", "poll", true},
                                       {"ask settings", "", false},
                                       {"end poll", "settings", false},
                                       {"end settings", "", true}});
    row("a scan waits for a request", {{"ask settings", "settings", false},
                                       {"ask scan", "", false},
                                       {"end settings", "scan", false},
                                       {"end scan", "", true}});
    row("a scan after a request that waits for a poll", {{"ask poll", "poll", true},
                                                         {"ask settings", "", false},
                                                         {"ask scan", "", false},
                                                         {"end poll", "settings", false},
                                                         {"end settings", "scan", false},
                                                         {"end scan", "", true}});
    row("a request before a scan that was asked for earlier", {{"ask poll", "poll", true},
                                                               {"ask scan", "", false},
                                                               {"ask settings", "", false},
                                                               {"end poll", "settings", false},
                                                               {"end settings", "scan", false},
                                                               {"end scan", "", true}});
    row("two scans", {{"ask scan", "scan", false},
                      {"ask scan", "scan", false},
                      {"end scan", "", false},
                      {"end scan", "", true}});
    row("two scans that waited are both sent", {{"ask settings", "settings", false},
                                                {"ask scan", "", false},
                                                {"ask scan", "", false},
                                                {"end settings", "scan scan", false},
                                                {"end scan", "", false},
                                                {"end scan", "", true}});
    row("a scan's end during a request frees nothing", {{"ask scan", "scan", false},
                                                        {"ask settings", "settings", false},
                                                        {"end scan", "", false},
                                                        {"end settings", "", true}});
    row("a scan's end during an update frees nothing", {{"ask scan", "scan", false},
                                                        {"ask update", "update", false},
                                                        {"end scan", "", false},
                                                        {"end update", "", true}});
    row("a request's end during a scan frees nothing", {{"ask scan", "scan", false},
                                                        {"ask settings", "settings", false},
                                                        {"end settings", "", false},
                                                        {"end scan", "", true}});
    row("the scan after an update", {{"ask update", "update", false},
                                     {"end update", "", true},
                                     {"ask scan", "scan", false},
                                     {"end scan", "", true}});
    row("an end that was not begun is not counted against the next", {{"end scan", "", true},
                                                                      {"end update", "", true},
                                                                      {"end settings", "", true},
                                                                      {"end poll", "", true},
                                                                      {"ask scan", "scan", false},
                                                                      {"end scan", "", true}});
    row("what was sent is not sent again", {{"ask poll", "poll", true},
                                            {"ask settings", "", false},
                                            {"end poll", "settings", false},
                                            {"end poll", "", false},
                                            {"end settings", "", true},
                                            {"end settings", "", true}});
    row("choosing and clearing send nothing", {{"choose", "", true},
                                               {"clear", "", true},
                                               {"ask scan", "scan", false},
                                               {"choose", "", false},
                                               {"clear", "", false},
                                               {"end scan", "", true}});
}

void TestTurns::events()
{
    QFETCH(std::vector<Step>, steps);
    Player player;
    QVERIFY(player.turns.isIdle());
    for (const Step &step : steps) {
        const QString sent = player.play(QLatin1String(step.event));
        QVERIFY2(sent == QLatin1String(step.sent) && player.turns.isIdle() == step.idle,
                 qPrintable(QStringLiteral("after \"%1\": \"%2\" is sent, and nothing runs: %3")
                                .arg(QLatin1String(step.event), sent)
                                .arg(player.turns.isIdle())));
    }
}

void TestTurns::answerIsWanted_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::addColumn<bool>("settings");
    QTest::addColumn<bool>("poll");
    QTest::newRow("another row") << QByteArray("choose") << false << true;
    QTest::newRow("no list") << QByteArray("clear") << false << false;
    QTest::newRow("a scan") << QByteArray("ask scan") << true << true;
}

void TestTurns::answerIsWanted()
{
    QFETCH(QByteArray, event);
    QFETCH(bool, settings);
    QFETCH(bool, poll);
    for (const bool waits : {false, true}) { // the request for the poll, or neither for the other
        Player player;
        player.play(waits ? "ask poll" : "ask settings");
        player.play(waits ? "ask settings" : "ask poll");
        QVERIFY(player.isWanted("settings") && player.isWanted("poll"));
        player.play(QLatin1String(event));
        QCOMPARE(player.isWanted("settings"), settings);
        QCOMPARE(player.isWanted("poll"), poll);
        // To choose the first row again does not make it the right answer again.
        player.play("choose");
        QVERIFY(!player.isWanted("settings"));
    }
}

void TestTurns::answerThatNobodyAskedForIsTaken()
{
    Player player;
    player.play("choose");
    player.play("clear");
    QVERIFY(Turns::Ticket().isWanted());
}

void TestTurns::ticketOfANewRequestIsFresh()
{
    Player player;
    for (const char *work : {"settings", "poll"}) {
        player.play("ask " + QString(work));
        player.play("clear");
        QVERIFY(!player.isWanted(work));
        player.play("end " + QString(work));
        player.play("ask " + QString(work));
        QVERIFY(player.isWanted(work));
        player.play("end " + QString(work));
    }
}

void TestTurns::scanIsOvertakenWhileAnotherIsToCome()
{
    Player player;
    QVERIFY(!player.turns.isScanOvertaken() && !player.turns.isScanning());
    player.play("ask scan");
    QVERIFY(!player.turns.isScanOvertaken() && player.turns.isScanning());
    player.play("ask scan");
    QVERIFY(player.turns.isScanOvertaken() && player.turns.isScanning());
    player.play("end scan");
    QVERIFY(!player.turns.isScanOvertaken() && player.turns.isScanning());
    player.play("end scan");
    QVERIFY(!player.turns.isScanOvertaken() && !player.turns.isScanning());
}

void TestTurns::pollMayComeWhenNothingRuns_data()
{
    QTest::addColumn<QString>("work");
    for (const auto &work : s_works) {
        QTest::newRow(qPrintable(work.first)) << work.first;
    }
}

void TestTurns::pollMayComeWhenNothingRuns()
{
    QFETCH(QString, work);
    Player player;
    QVERIFY(player.turns.mayPoll());
    player.play("ask " + work);
    QVERIFY(!player.turns.mayPoll());
    player.play("end " + work);
    QVERIFY(player.turns.mayPoll());
}

void TestTurns::loadIsRememberedOnce()
{
    Turns turns;
    QVERIFY(!turns.takeRememberedLoad());
    turns.rememberLoad();
    turns.rememberLoad();
    QVERIFY(turns.takeRememberedLoad());
    QVERIFY(!turns.takeRememberedLoad());
}

QTEST_GUILESS_MAIN(TestTurns)
#include "tst_turns.moc"
