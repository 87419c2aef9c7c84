#include "capturedoutput.h"
#include "scriptedlibusb.h"
#include "updaterepair.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QListWidget>
#include <QTest>
#include <QTimer>

#include <cstdlib>
#include <iostream>
#include <stdexcept>

int capsoMain(int argc, char **argv);

// A timer can only be set once there is an application object, so the first event that it sends to
// anybody is where a test gets hold of the running program.
static std::function<void()> s_whenRunning;

// Whether the screen's density was to be followed when the application object was made.
static bool s_scalesFromTheStart = false;

namespace {

void startWhenRunning()
{
    s_scalesFromTheStart = QCoreApplication::testAttribute(Qt::AA_EnableHighDpiScaling);
    if (auto start = std::exchange(s_whenRunning, nullptr)) {
        QTimer::singleShot(0, qApp, start);
    }
}

} // namespace
Q_COREAPP_STARTUP_FUNCTION(startWhenRunning)

namespace {

// Called on the scanner's thread; ends the program's event loop as soon as the scan has begun.
void quitWhenScanning(const QString &call)
{
    if (call == QLatin1String("get_device_list")) {
        QMetaObject::invokeMethod(qApp, "quit", Qt::QueuedConnection);
    }
}

} // namespace

class TestMain : public QObject
{
    Q_OBJECT

private slots:
    void libusbIsInitialisedFirstAndGivenBackLast();
    void dialogIsGoneBeforeTheApplicationObject();
    void resultIsThatOfTheEventLoop();
    void withoutLibusbTheDialogStartsAndItsScanFindsNothing();
    void exceptionInTheEventLoopStillCleansUp_data();
    void exceptionInTheEventLoopStillCleansUp();
    void windowDoesWithoutOpenGl();
    void screenDensityIsFollowed();

private:
    int run(std::function<void()> whenRunning);
    static UpdateRepair *dialog();
};

int TestMain::run(std::function<void()> whenRunning)
{
    s_whenRunning = std::move(whenRunning);
    char name[] = "capso-config";
    char *arguments[] = {name, nullptr};
    return capsoMain(1, arguments);
}

UpdateRepair *TestMain::dialog()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *found = qobject_cast<UpdateRepair *>(widget)) {
            return found;
        }
    }
    return nullptr;
}

void TestMain::libusbIsInitialisedFirstAndGivenBackLast()
{
    ScriptedUsb usb;
    usb.plug("grabber", 0xE5C1, 0x3601);
    usb.onCall(quitWhenScanning);
    run([] {});

    const QStringList calls = usb.calls();
    QCOMPARE(calls.value(0), QStringLiteral("init"));
    QCOMPARE(calls.value(1), QStringLiteral("set_debug 2"));
    QVERIFY2(calls.contains(QStringLiteral("get_device_list")), "the first scan is under way");
    QCOMPARE(calls.last(), QStringLiteral("exit"));
    QCOMPARE(calls.filter(QStringLiteral("exit")).size(), 1);
}

void TestMain::dialogIsGoneBeforeTheApplicationObject()
{
    ScriptedUsb usb;
    QStringList order;
    usb.onCall([&order](const QString &call) {
        if (call == QLatin1String("exit")) {
            order += qApp ? QStringLiteral("exit, application alive") : QStringLiteral("exit");
        }
    });
    run([&order] {
        QObject::connect(dialog(), &QObject::destroyed, [&order] {
            order += qApp ? QStringLiteral("dialog") : QStringLiteral("dialog without application");
        });
        QObject::connect(qApp, &QObject::destroyed,
                         [&order] { order += QStringLiteral("application"); });
        QCoreApplication::quit();
    });

    QCOMPARE(order, QStringList({"dialog", "application", "exit"}));
}

void TestMain::resultIsThatOfTheEventLoop()
{
    ScriptedUsb usb;
    QCOMPARE(run([] { QCoreApplication::exit(7); }), 7);
}

void TestMain::withoutLibusbTheDialogStartsAndItsScanFindsNothing()
{
    ScriptedUsb usb;
    usb.plug("grabber", 0xE5C1, 0x3601); // to be seen only by a scan that should not happen
    usb.failCall(0, LIBUSB_ERROR_OTHER);
    bool shown = false;
    bool unlocked = false;
    QElapsedTimer waited;
    waited.start();
    int rows = -1;
    run([&] {
        shown = dialog() && dialog()->isVisible();
        // Without a bus a scan is over at once; the tabs open for a row only when none is running.
        auto *timer = new QTimer(dialog());
        QObject::connect(timer, &QTimer::timeout, [&] {
            auto *list = dialog()->findChild<QListWidget *>(QStringLiteral("devicesList"));
            if (rows < 0) {
                rows = list->count();
                list->addItem(QStringLiteral("row"));
                list->setCurrentRow(0);
            }
            unlocked = dialog()->findChild<QWidget *>(QStringLiteral("tabWidget"))->isEnabled();
            if (unlocked || waited.elapsed() > 30000) {
                QCoreApplication::quit();
            }
        });
        timer->start(20);
    });

    QVERIFY(shown);
    QVERIFY(unlocked);
    QCOMPARE(rows, 0);
    QCOMPARE(usb.calls(), QStringList({"init"}));
}

void TestMain::exceptionInTheEventLoopStillCleansUp_data()
{
    QTest::addColumn<bool>("known");
    QTest::addColumn<QString>("said");
    QTest::newRow("std::exception") << true << "capso-config: lost a cable\n";
    QTest::newRow("anything else") << false << "capso-config: unknown exception\n";
}

void TestMain::exceptionInTheEventLoopStillCleansUp()
{
    QFETCH(bool, known);
    QFETCH(QString, said);

    ScriptedUsb usb;
    CapturedStream errors(std::cerr);
    QStringList order;
    usb.onCall([&order](const QString &call) {
        if (call == QLatin1String("exit")) {
            order += QStringLiteral("exit");
        }
    });
    const int result = run([&order, known] {
        QObject::connect(dialog(), &QObject::destroyed,
                         [&order] { order += QStringLiteral("dialog"); });
        QObject::connect(qApp, &QObject::destroyed,
                         [&order] { order += QStringLiteral("application"); });
        if (known) {
            throw std::runtime_error("lost a cable");
        }
        throw 17;
    });

    QCOMPARE(result, EXIT_FAILURE);
    QCOMPARE(order, QStringList({"dialog", "application", "exit"}));
    QVERIFY2(QString::fromStdString(errors.text()).endsWith(said), errors.text().c_str());
}

void TestMain::windowDoesWithoutOpenGl()
{
    ScriptedUsb usb;
    bool asked = false;
    run([&asked] {
        asked = QCoreApplication::testAttribute(Qt::AA_ForceRasterWidgets);
        QCoreApplication::quit();
    });

    QVERIFY(asked);
}

// The attributes belong to the process, so what an earlier run has left is cleared. Qt 6 has none:
// it always scales.
void TestMain::screenDensityIsFollowed()
{
    ScriptedUsb usb;
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, false);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps, false);
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::Unset);
#endif
    auto policy = Qt::HighDpiScaleFactorRoundingPolicy::Unset;
    run([&policy] {
        policy = QGuiApplication::highDpiScaleFactorRoundingPolicy();
        QCoreApplication::quit();
    });

    QCOMPARE(policy, Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QVERIFY(s_scalesFromTheStart);
    QVERIFY(QCoreApplication::testAttribute(Qt::AA_UseHighDpiPixmaps));
#endif
}

// The program makes its own application object.
QTEST_APPLESS_MAIN(TestMain)

#include "tst_main.moc"
