#include "capturedoutput.h"
#include "everyfailure.h"
#include "heldtransfer.h"
#include "recordof.h"
#include "scriptedlibusb.h"

#include "configdevicetask.h"
#include "qtcompat.h"
#include "records.h"

#include <QPointer>
#include <QSemaphore>
#include <QSignalSpy>
#include <QtTest>

#include <iostream>

using FlagsAction = ConfigDeviceActionBase<uint8_t, 226, 227, 0, 0>;
using StatusAction = ConfigDeviceActionBase<InputStatusInfo, 178, 0, 0, 0>;
using ModeAction = ConfigDeviceActionBase<UserMode, 179, 179, 0, 0>;

// Configuration requests: from a signal on this thread to one transfer on the worker's and back.
class TestConfigDeviceTask : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void aReadOpensSendsAndCloses();
    void aWriteOpensSendsAndCloses();
    void argumentsAreLengthThenIndexThenValue_data();
    void argumentsAreLengthThenIndexThenValue();
    void typedRequestsCarryTheRecordsSize();
    void aTypedRequestsBufferStartsWithZeros();
    void theCallersBufferIsFilledInPlace();
    void aShortReadReportsWhatWasAsked_data();
    void aShortReadReportsWhatWasAsked();
    void aShortWriteIsASuccess();

    void aReadOfADeviceThatIsGoneReportsErrorThenNull();
    void aWriteToADeviceThatIsGoneReportsErrorThenNullRead();
    void aFailedReadReportsErrorThenNull_data();
    void aFailedReadReportsErrorThenNull();
    void aFailedWriteReportsErrorThenCompletion_data();
    void aFailedWriteReportsErrorThenCompletion();
    void aMessageWithoutLibusbTextIsStillAMessage();
    void theDeviceIsGivenBackBeforeTheAnswer_data();
    void theDeviceIsGivenBackBeforeTheAnswer();

    void everyActionSeesOnlyItsOwnAnswers_data();
    void everyActionSeesOnlyItsOwnAnswers();
    void errorsAreFilteredLikeAnswers();
    void filtersAcceptExactlyTheirCodes();
    void requestsOfAnActionReachTheWorker();

    void anActionWithoutTaskThrows();
    void anActionWithoutTaskSetsTheCode();
    void anActionWithTaskLeavesTheCodeClear();

    void requestsAreHandledInTheirOrder();
    void requestsForDifferentDevicesMayFollowEachOther();
    void destroyingTheTaskWaitsForTheRequest();
    void theWorkerGoesWithItsTask();
    void anyFailingCallGivesTheDeviceBack();
    void refusedClaimsLeaveOneFileOpenAtMost();

private:
    std::unique_ptr<CapturedStream> standardLog;
    std::unique_ptr<CapturedStream> standardError;
};

namespace {

const char *s_noAccess = "Cannot access USB. Administrative rights may be required.";

// What one front object is told, in order.
class SignalLog : public QObject
{
public:
    explicit SignalLog(ConfigDeviceBase &front)
    {
        connect(&front, &ConfigDeviceBase::getRequestComplete, this,
                [this](uint8_t request, const ConfigDeviceDataPtr &data, uint16_t size) {
                    const auto *bytes = reinterpret_cast<const char *>(data.data());
                    const QString shown =
                        data ? QString(QByteArray(bytes, size).toHex()) : QStringLiteral("null");
                    lines.append(QStringLiteral("got %1 %2 %3").arg(request).arg(size).arg(shown));
                });
        connect(&front, &ConfigDeviceBase::setRequestComplete, this,
                [this](uint8_t request) { lines.append(QStringLiteral("set %1").arg(request)); });
        connect(&front, &ConfigDeviceBase::error, this,
                [this](uint8_t request, const QString &message) {
                    lines.append(QStringLiteral("error %1 %2").arg(request).arg(message));
                });
    }

    // Waits until something ends a request.
    bool waitForCompletions(int count)
    {
        return QTest::qWaitFor(
            [&] { return lines.filter("got ").size() + lines.filter("set ").size() >= count; },
            20000);
    }

    QStringList lines;
};

ConfigDeviceDataPtr buffer(const QByteArray &bytes)
{
    ConfigDeviceDataPtr data(new uint8_t[static_cast<std::size_t>(bytes.size())],
                             std::default_delete<uint8_t[]>());
    std::copy(bytes.begin(), bytes.end(), data.data());
    return data;
}

} // namespace

void TestConfigDeviceTask::initTestCase()
{
    // As the program does at its start; the rest is the module's own affair.
    qtcompat::register_alias<uchar>("uint8_t");
}

void TestConfigDeviceTask::init()
{
    standardLog = std::make_unique<CapturedStream>(std::clog);
    standardError = std::make_unique<CapturedStream>(std::cerr);
}

void TestConfigDeviceTask::cleanup()
{
    standardLog.reset();
    standardError.reset();
}

void TestConfigDeviceTask::aReadOpensSendsAndCloses()
{
    ScriptedUsb bus;
    bus.answerData(226, {QByteArray(1, '\x17')});
    const auto *device = bus.plug("a", 0xE5C1, 0x3601);
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.getConfigDeviceData(recordOf(device), 226, buffer(QByteArray(1, '\0')), 1, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines, QStringList{"got 226 1 17"});
    QCOMPARE(bus.handleCalls(),
             (QStringList{"open a", "kernel_driver_active a 0", "claim_interface a 0",
                          "control_transfer a < e2 v0 i0 1 t1000", "attach_kernel_driver a 0",
                          "release_interface a 0", "close a"}));
}

void TestConfigDeviceTask::aWriteOpensSendsAndCloses()
{
    ScriptedUsb bus;
    const auto *device = bus.plug("a", 0xE5C1, 0x3601);
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.setConfigDeviceData(recordOf(device), 227, buffer(QByteArray(1, '\x17')), 1, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines, QStringList{"set 227"});
    QCOMPARE(bus.handleCalls(),
             (QStringList{"open a", "kernel_driver_active a 0", "claim_interface a 0",
                          "control_transfer a > e3 v0 i0 1 17 t1000", "attach_kernel_driver a 0",
                          "release_interface a 0", "close a"}));
}

void TestConfigDeviceTask::argumentsAreLengthThenIndexThenValue_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("wire"); // wValue, wIndex, wLength
    QTest::newRow("user mode 0") << 5 << 0 << 0 << "v0 i0 5";
    QTest::newRow("user mode 2") << 5 << 2 << 0 << "v0 i2 5";
    QTest::newRow("all different") << 7 << 0x1234 << 0xABCD << "vabcd i1234 7";
}

void TestConfigDeviceTask::argumentsAreLengthThenIndexThenValue()
{
    QFETCH(int, size);
    QFETCH(int, index);
    QFETCH(int, value);
    QFETCH(QString, wire);
    ScriptedUsb bus;
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    const QByteArray bytes(size, 'x');
    const auto length = static_cast<uint16_t>(size);
    const auto wIndex = static_cast<uint16_t>(index);
    const auto wValue = static_cast<uint16_t>(value);
    emit task.getConfigDeviceData(record, 179, buffer(bytes), length, wIndex, wValue);
    emit task.setConfigDeviceData(record, 179, buffer(bytes), length, wIndex, wValue);
    QVERIFY(log.waitForCompletions(2));
    QCOMPARE(
        bus.describedTransfers(),
        (QStringList{"< b3 " + wire + " t1000", "> b3 " + wire + ' ' + bytes.toHex() + " t1000"}));
}

void TestConfigDeviceTask::typedRequestsCarryTheRecordsSize()
{
    ScriptedUsb bus;
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<InputStatusInfo>(record, 178, 0, 0);
    task.requestConfigDeviceData<UserMode>(record, 179, 2, 0);
    task.requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
    QVERIFY(log.waitForCompletions(3));
    QCOMPARE(bus.describedTransfers(),
             (QStringList{"< b2 v0 i0 29 t1000", "< b3 v0 i2 5 t1000", "< e2 v0 i0 1 t1000"}));
}

void TestConfigDeviceTask::aTypedRequestsBufferStartsWithZeros()
{
    ScriptedUsb bus;
    bus.onTransfer([](const ScriptedTransfer &) -> std::optional<int> { return 0; });
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<InputStatusInfo>(record, 178, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines, QStringList{"got 178 29 " + QString(58, '0')});
}

void TestConfigDeviceTask::theCallersBufferIsFilledInPlace()
{
    ScriptedUsb bus;
    bus.answerData(179, {QByteArray::fromHex("0005d00201")});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    const ConfigDeviceDataPtr data = buffer(QByteArray(5, '\0'));
    emit task.getConfigDeviceData(record, 179, data, 5, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(QByteArray(reinterpret_cast<const char *>(data.data()), 5).toHex(),
             QByteArray("0005d00201"));
}

void TestConfigDeviceTask::aShortReadReportsWhatWasAsked_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("data");
    QTest::newRow("nothing") << QByteArray("") << "0000000000";
    QTest::newRow("one byte") << QByteArray("a") << "6100000000";
    QTest::newRow("all but one") << QByteArray("abcd") << "6162636400";
}

void TestConfigDeviceTask::aShortReadReportsWhatWasAsked()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, data);
    ScriptedUsb bus;
    bus.answerData(179, {reply});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<UserMode>(record, 179, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines, QStringList{"got 179 5 " + data});
}

void TestConfigDeviceTask::aShortWriteIsASuccess()
{
    ScriptedUsb bus;
    bus.answer(179, {0});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.setConfigDeviceData(record, 179, buffer("abcde"), 5, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines, QStringList{"set 179"});
}

void TestConfigDeviceTask::aReadOfADeviceThatIsGoneReportsErrorThenNull()
{
    ScriptedUsb bus;
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.getConfigDeviceData(DeviceDescription{}, 226, buffer("x"), 1, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines,
             (QStringList{QStringLiteral("error 226 %1").arg(s_noAccess), "got 226 0 null"}));
}

void TestConfigDeviceTask::aWriteToADeviceThatIsGoneReportsErrorThenNullRead()
{
    ScriptedUsb bus;
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.setConfigDeviceData(DeviceDescription{}, 227, buffer("x"), 1, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(log.lines,
             (QStringList{QStringLiteral("error 227 %1").arg(s_noAccess), "got 227 0 null"}));
}

namespace {

void addCodes()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("io") << -1 << "Input/Output Error";
    QTest::newRow("no device") << -4 << "No such device (it may have been disconnected)";
    QTest::newRow("timeout") << -7 << "Operation timed out";
    QTest::newRow("pipe") << -9 << "Pipe error";
    QTest::newRow("other") << -99 << "Other error";
}

} // namespace

void TestConfigDeviceTask::aFailedReadReportsErrorThenNull_data()
{
    addCodes();
}

void TestConfigDeviceTask::aFailedReadReportsErrorThenNull()
{
    QFETCH(int, code);
    QFETCH(QString, sentence);
    ScriptedUsb bus;
    bus.answer(178, {code});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<InputStatusInfo>(record, 178, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QCOMPARE(
        log.lines,
        (QStringList{"error 178 Error retreiving config device data: req=178, status: " + sentence,
                     "got 178 0 null"}));
    QCOMPARE(bus.handleCalls().last(), QStringLiteral("close a"));
}

void TestConfigDeviceTask::aFailedWriteReportsErrorThenCompletion_data()
{
    addCodes();
}

void TestConfigDeviceTask::aFailedWriteReportsErrorThenCompletion()
{
    QFETCH(int, code);
    QFETCH(QString, sentence);
    ScriptedUsb bus;
    bus.answer(179, {code});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    emit task.setConfigDeviceData(record, 179, buffer("abcde"), 5, 1, 0);
    QVERIFY(log.waitForCompletions(1));
    // The same words for every kind of write.
    QCOMPARE(log.lines,
             (QStringList{"error 179 Error setting device flags: " + sentence, "set 179"}));
    QCOMPARE(bus.handleCalls().last(), QStringLiteral("close a"));
}

void TestConfigDeviceTask::aMessageWithoutLibusbTextIsStillAMessage()
{
    ScriptedUsb bus;
    bus.giveNullTexts();
    bus.answer(226, {-1});
    bus.answer(227, {-1});
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
    emit task.setConfigDeviceData(record, 227, buffer("x"), 1, 0, 0);
    QVERIFY(log.waitForCompletions(2));
    QCOMPARE(log.lines,
             (QStringList{"error 226 Error retreiving config device data: req=226, status: ",
                          "got 226 0 null", "error 227 Error setting device flags: ", "set 227"}));
}

void TestConfigDeviceTask::theDeviceIsGivenBackBeforeTheAnswer_data()
{
    QTest::addColumn<bool>("write");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("before"); // lines while the device is still open
    QTest::newRow("read") << false << 1 << QStringList();
    QTest::newRow("failed read") << false << -9 << QStringList();
    QTest::newRow("write") << true << 1 << QStringList();
    QTest::newRow("failed write") << true << -9
                                  << QStringList{
                                         "error 226 Error setting device flags: Pipe error"};
}

void TestConfigDeviceTask::theDeviceIsGivenBackBeforeTheAnswer()
{
    QFETCH(bool, write);
    QFETCH(int, result);
    QFETCH(QStringList, before);
    ScriptedUsb bus;
    bus.answer(226, {result});
    QSemaphore closing;
    QSemaphore goOn;
    bus.onCall([&](const QString &call) {
        if (call == "close a") {
            closing.release();
            goOn.acquire();
        }
    });
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    SignalLog log(task);
    if (write) {
        emit task.setConfigDeviceData(record, 226, buffer("x"), 1, 0, 0);
    } else {
        emit task.getConfigDeviceData(record, 226, buffer("x"), 1, 0, 0);
    }
    const bool reached = closing.tryAcquire(1, 60000);
    QCoreApplication::processEvents(); // whatever was said so far arrives
    const QStringList lines = log.lines;
    goOn.release();
    QVERIFY(reached);
    QCOMPARE(lines, before);
    QVERIFY(log.waitForCompletions(1));
}

void TestConfigDeviceTask::everyActionSeesOnlyItsOwnAnswers_data()
{
    QTest::addColumn<int>("request");
    QTest::addColumn<bool>("flags");
    QTest::addColumn<bool>("status");
    QTest::addColumn<bool>("mode");
    QTest::newRow("0") << 0 << false << true << false;
    QTest::newRow("178") << 178 << false << true << false;
    QTest::newRow("179") << 179 << false << false << true;
    QTest::newRow("180") << 180 << false << false << false;
    QTest::newRow("226") << 226 << true << false << false;
    QTest::newRow("227") << 227 << true << false << false;
    QTest::newRow("255") << 255 << false << false << false;
}

void TestConfigDeviceTask::everyActionSeesOnlyItsOwnAnswers()
{
    QFETCH(int, request);
    QFETCH(bool, flags);
    QFETCH(bool, status);
    QFETCH(bool, mode);
    ScriptedUsb bus;
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    FlagsAction flagsAction(&task, this);
    StatusAction statusAction(&task, this);
    ModeAction modeAction(&task, this);
    SignalLog taskLog(task);
    SignalLog flagsLog(flagsAction);
    SignalLog statusLog(statusAction);
    SignalLog modeLog(modeAction);
    const auto code = static_cast<uint8_t>(request);
    emit task.getConfigDeviceData(record, code, buffer("x"), 1, 0, 0);
    emit task.setConfigDeviceData(record, code, buffer("x"), 1, 0, 0);
    // One more request, which no action listens to: once it is answered, all that went before has
    // come.
    emit task.setConfigDeviceData(record, 1, buffer("x"), 1, 0, 0);
    QVERIFY(taskLog.waitForCompletions(3));
    const QStringList both{QStringLiteral("got %1 1 01").arg(request),
                           QStringLiteral("set %1").arg(request)};
    QCOMPARE(taskLog.lines, both + QStringList("set 1"));
    QCOMPARE(flagsLog.lines, flags ? both : QStringList());
    QCOMPARE(statusLog.lines, status ? both : QStringList());
    QCOMPARE(modeLog.lines, mode ? both : QStringList());
}

void TestConfigDeviceTask::errorsAreFilteredLikeAnswers()
{
    ScriptedUsb bus;
    ConfigDeviceTask task;
    FlagsAction flags(&task, this);
    ModeAction modes(&task, this);
    SignalLog taskLog(task);
    SignalLog flagsLog(flags);
    SignalLog modesLog(modes);
    emit modes.getConfigDeviceData(DeviceDescription{}, 179, buffer("abcde"), 5, 0, 0);
    QVERIFY(modesLog.waitForCompletions(1));
    QVERIFY(taskLog.waitForCompletions(1));
    QCOMPARE(modesLog.lines,
             (QStringList{QStringLiteral("error 179 %1").arg(s_noAccess), "got 179 0 null"}));
    QCOMPARE(taskLog.lines, modesLog.lines);
    QCOMPARE(flagsLog.lines, QStringList());
}

void TestConfigDeviceTask::filtersAcceptExactlyTheirCodes()
{
    ScriptedUsb bus;
    ConfigDeviceTask task;
    const FlagsAction flags(&task, nullptr);
    const StatusAction status(&task, nullptr);
    const ModeAction modes(&task, nullptr);
    for (int request = 0; request < 256; ++request) {
        const auto code = static_cast<uint8_t>(request);
        QVERIFY(task.filterRequest(code));
        QCOMPARE(flags.filterRequest(code), request == 226 || request == 227);
        QCOMPARE(status.filterRequest(code), request == 178 || request == 0);
        QCOMPARE(modes.filterRequest(code), request == 179);
    }
}

void TestConfigDeviceTask::requestsOfAnActionReachTheWorker()
{
    ScriptedUsb bus;
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    FlagsAction flags(&task, this);
    SignalLog log(flags);
    flags.requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
    emit flags.setConfigDeviceData(record, 227, buffer("\x17"), 1, 0, 0);
    QVERIFY(log.waitForCompletions(2));
    QCOMPARE(bus.describedTransfers(),
             (QStringList{"< e2 v0 i0 1 t1000", "> e3 v0 i0 1 17 t1000"}));
}

void TestConfigDeviceTask::anActionWithoutTaskThrows()
{
    bool thrown = false;
    try {
        const ConfigDeviceAction action(nullptr, this);
    } catch (const std::system_error &error) {
        thrown = true;
        QVERIFY(error.code() == std::errc::invalid_argument);
        QCOMPARE(error.code().value(), 22);
        QVERIFY(error.code().category() == std::generic_category());
        QVERIFY2(QString(error.what()).startsWith("`task` argument can't be nullptr"),
                 error.what());
    }
    QVERIFY(thrown);
    QVERIFY_EXCEPTION_THROWN(FlagsAction(nullptr, this), std::system_error);
}

void TestConfigDeviceTask::anActionWithoutTaskSetsTheCode()
{
    std::error_code code;
    ConfigDeviceAction action(nullptr, code, this);
    QVERIFY(code == std::errc::invalid_argument);
    QCOMPARE(code.value(), 22);
    QVERIFY(code.category() == std::generic_category());
    // Connected to nothing: the request goes nowhere, and libusb (there is none here) is not
    // called.
    emit action.getConfigDeviceData(DeviceDescription{}, 226, buffer("x"), 1, 0, 0);
}

void TestConfigDeviceTask::anActionWithTaskLeavesTheCodeClear()
{
    ScriptedUsb bus;
    ConfigDeviceTask task;
    std::error_code code;
    const ConfigDeviceAction action(&task, code, this);
    QVERIFY(!code);
}

void TestConfigDeviceTask::requestsAreHandledInTheirOrder()
{
    ScriptedUsb bus;
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    ConfigDeviceTask task;
    FlagsAction flags(&task, this);
    ModeAction modes(&task, this);
    SignalLog log(task);
    modes.requestConfigDeviceData<UserMode>(record, 179, 0, 0);
    flags.requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
    modes.requestConfigDeviceData<UserMode>(record, 179, 1, 0);
    emit flags.setConfigDeviceData(record, 227, buffer("x"), 1, 0, 0);
    QVERIFY(log.waitForCompletions(4));
    QCOMPARE(bus.describedTransfers(),
             (QStringList{"< b3 v0 i0 5 t1000", "< e2 v0 i0 1 t1000", "< b3 v0 i1 5 t1000",
                          "> e3 v0 i0 1 78 t1000"}));
    QCOMPARE(bus.opens(), 4);
}

void TestConfigDeviceTask::requestsForDifferentDevicesMayFollowEachOther()
{
    ScriptedUsb bus;
    const auto *first = bus.plug("a", 0xE5C1, 0x3601);
    auto *second = bus.plug("b", 0xE5C1, 0x3601);
    second->port = 2;
    ConfigDeviceTask task;
    SignalLog log(task);
    task.requestConfigDeviceData<uint8_t>(recordOf(second), 226, 0, 0);
    task.requestConfigDeviceData<uint8_t>(recordOf(first), 226, 0, 0);
    QVERIFY(log.waitForCompletions(2));
    QCOMPARE(bus.callsOf("open"), (QStringList{"open b", "open a"}));
    QCOMPARE(bus.callsOf("close"), (QStringList{"close b", "close a"}));
}

void TestConfigDeviceTask::destroyingTheTaskWaitsForTheRequest()
{
    ScriptedUsb bus;
    HeldTransfer request(bus);
    const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
    auto task = std::make_unique<ConfigDeviceTask>();
    task->requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
    QVERIFY(request.waitUntilReached());
    request.endDuring([&] { task.reset(); });
    QCOMPARE(bus.handleCalls().last(), QStringLiteral("close a"));
}

void TestConfigDeviceTask::theWorkerGoesWithItsTask()
{
    // A front object learns who answers it when its filter is asked.
    class Front : public ConfigDeviceAction
    {
    public:
        using ConfigDeviceAction::ConfigDeviceAction;
        bool filterRequest(uint8_t) const override
        {
            worker = sender();
            return true;
        }
        mutable QPointer<QObject> worker;
    };
    ScriptedUsb bus;
    auto task = std::make_unique<ConfigDeviceTask>();
    Front front(task.get(), nullptr);
    SignalLog log(front);
    front.requestConfigDeviceData<uint8_t>(recordOf(bus.plug("a", 0xE5C1, 0x3601)), 226, 0, 0);
    QVERIFY(log.waitForCompletions(1));
    QVERIFY(front.worker);
    QVERIFY(front.worker->thread() != thread());
    task.reset();
    QVERIFY(!front.worker);
}

void TestConfigDeviceTask::anyFailingCallGivesTheDeviceBack()
{
    for (const bool write : {false, true}) {
        const auto attempt = [write](int failing) {
            ScriptedUsb bus;
            bus.failCall(failing, LIBUSB_ERROR_NO_DEVICE);
            const DeviceDescription record = recordOf(bus.plug("a", 0xE5C1, 0x3601));
            ConfigDeviceTask task;
            SignalLog log(task);
            if (write) {
                emit task.setConfigDeviceData(record, 227, buffer("x"), 1, 0, 0);
            } else {
                task.requestConfigDeviceData<uint8_t>(record, 226, 0, 0);
            }
            [&] { QVERIFY(log.waitForCompletions(1)); }();
            return bus.fallibleCalls();
        };
        failEachCallOnce(attempt, 7);
    }
}

// A poll every two seconds while another program holds the interface must not use up all the files
// that a process may have.
void TestConfigDeviceTask::refusedClaimsLeaveOneFileOpenAtMost()
{
    ScriptedUsb bus;
    libusb_device *device = bus.plug("a", 0xE5C1, 0x3601);
    device->claimResult = LIBUSB_ERROR_BUSY;
    const DeviceDescription record = recordOf(device);
    auto task = std::make_unique<ConfigDeviceTask>();
    SignalLog log(*task);
    for (int poll = 0; poll < 10; ++poll) {
        task->requestConfigDeviceData<InputStatusInfo>(record, 178, 0, 0);
    }
    QVERIFY(log.waitForCompletions(10));
    QCOMPARE(bus.opens(), 10);
    QCOMPARE(bus.openHandles(), 1);
    // However long it takes, it has been closed when the task is gone: libusb may end then.
    bus.onCall([](const QString &call) {
        if (call == QLatin1String("close a")) {
            QTest::qSleep(200);
        }
    });
    task.reset();
    QCOMPARE(bus.openHandles(), 0);
}

QTEST_GUILESS_MAIN(TestConfigDeviceTask)
#include "tst_configdevicetask.moc"
