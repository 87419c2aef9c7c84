#include "clicker.h"

#include "configdevicetask.h"
#include "devicescanner.h"
#include "simulation.h"
#include "updatetask.h"

#include <QApplication>
#include <QEvent>
#include <QEventLoop>
#include <QJsonArray>
#include <QTimer>

#include <chrono>
#include <thread>

namespace {

// Longer than the slowest operation: a repair whose every EDID request is given its ten seconds.
constexpr int s_operationMs = 90 * 1000;

// Longer than a busy machine lets the simulator wait for its turn.
constexpr int s_closeMs = 5000;

constexpr int s_inputStatus = 178;

QJsonArray toJson(const QStringList &texts)
{
    return QJsonArray::fromStringList(texts);
}

int filesOpenNow()
{
    const SimTranscript transcript = simulation::transcript();
    int count = 0;
    for (const QString &device : transcript.devicesOpened()) {
        count += transcript.count(device, "open") - transcript.count(device, "close");
    }
    return count;
}

// The simulator learns of a close a moment after it. This waits without handling events; a file
// that is open after it stays open.
int filesLeftOpen()
{
    int files = filesOpenNow();
    for (int i = 0; i < s_closeMs / 10 && files != 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        files = filesOpenNow();
    }
    return files;
}

} // namespace

Clicker::Clicker()
{
    listenToScanner();
    listenToUpdate();
    listenToConfig();
    qApp->installEventFilter(this);
}

int Clicker::run(QStringList words)
{
    while (!words.isEmpty()) {
        log.beginOperation();
        const QString operation = words.takeFirst();
        if (!runOperation(operation, words)) {
            log.write("failed", {{"word", operation}});
            return 3;
        }
        logWhatIsSeen();
    }
    return 0;
}

// The dialog has connected itself first, so that it has reacted when these lambdas are called.
void Clicker::listenToScanner()
{
    auto *scanner = user.dialog.findChild<DeviceScanner *>();
    connect(scanner, &DeviceScanner::newDevice, this, [this](const DeviceDescription &device) {
        log.write("newDevice", {{"serialNumber", device.serialNumber}});
    });
    connect(scanner, &DeviceScanner::error, this, [this](const QString &text) {
        log.write("scanError", {{"text", text}});
    });
    connect(scanner, &DeviceScanner::complete, this, [this] { log.write("scanComplete"); });
}

void Clicker::listenToUpdate()
{
    auto *task = user.dialog.findChild<UpdateTask *>();
    connect(task, &UpdateTask::progress, this, [this](int value) {
        log.write("progress", {{"value", value}});
    });
    connect(task, &UpdateTask::complete, this, [this] {
        updatesEnded += 1;
        log.write("complete");
    });
}

void Clicker::listenToConfig()
{
    auto *task = user.dialog.findChild<ConfigDeviceTask *>();
    connect(task, &ConfigDeviceBase::getRequestComplete, this,
            [this](uint8_t request, const ConfigDeviceDataPtr &data) {
                log.write("getRequestComplete", {{"request", request}, {"null", data.isNull()}});
            });
    connect(task, &ConfigDeviceBase::setRequestComplete, this, [this](uint8_t request) {
        log.write("setRequestComplete", {{"request", request}});
    });
    connect(task, &ConfigDeviceBase::error, this, [this](uint8_t request, const QString &text) {
        log.write("configError", {{"request", request}, {"text", text}});
    });
    // A poll has been answered when the dialog's own request object has told it so.
    for (ConfigDeviceBase *front : user.dialog.findChildren<ConfigDeviceBase *>()) {
        if (front != task) {
            connect(front, &ConfigDeviceBase::getRequestComplete, this,
                    [this](uint8_t request) { pollsAnswered += request == s_inputStatus ? 1 : 0; });
        }
    }
}

// A box is logged when it opens: other signals arrive while it is open.
bool Clicker::eventFilter(QObject *watched, QEvent *event)
{
    const auto *box = qobject_cast<QMessageBox *>(watched);
    if (box && event->type() == QEvent::Show) {
        log.write("box", {{"title", box->windowTitle()}, {"text", box->text()}});
    }
    return QObject::eventFilter(watched, event);
}

bool Clicker::runOperation(const QString &operation, QStringList &words)
{
    const auto next = [&words] { return words.isEmpty() ? QString() : words.takeFirst(); };
    if (operation == "scan") {
        return rescan();
    }
    if (operation == "update") {
        const QString serial = next();
        return update(serial, next());
    }
    if (operation == "select") {
        return select(next());
    }
    if (operation == "tab") {
        return openTab(next().toInt());
    }
    if (operation == "poll") {
        return awaitPoll();
    }
    if (operation == "await") {
        const QString device = next();
        return awaitMode(device, next());
    }
    if (operation == "apply-flags") {
        return applyFlags(next());
    }
    if (operation == "apply-modes") {
        return applyModes({next(), next(), next()});
    }
    if (operation == "control") {
        log.write("control", {{"answer", simulation::control(next())}});
        return true;
    }
    return false;
}

bool Clicker::rescan()
{
    user.click("rescanDevicesButton");
    return waitFor([this] { return user.scansEnded == user.scansAsked; });
}

// Ends when the list is there again, which the dialog reads anew after every update.
bool Clicker::update(const QString &serial, const QString &package)
{
    const int before = updatesEnded;
    user.select(serial);
    user.find<QLineEdit>("firmwareLineEdit")->setText(package);
    log.write("selected", {{"unlocked", user.isUnlocked()}});
    user.click("updateButton");
    return waitFor([this, before] {
        return updatesEnded > before && user.dialog.isEnabled() &&
               user.scansEnded == user.scansAsked;
    });
}

bool Clicker::select(const QString &serial)
{
    user.select(serial);
    return waitFor([this] { return user.isUnlocked(); });
}

bool Clicker::openTab(int tab)
{
    user.clickTab(tab);
    return user.tabs()->currentIndex() == tab && waitFor([this] { return user.isUnlocked(); });
}

bool Clicker::awaitPoll()
{
    const int before = pollsAnswered;
    return waitFor([this, before] { return pollsAnswered > before; });
}

// Without handling events, as between operations.
bool Clicker::awaitMode(const QString &device, const QString &mode)
{
    for (int i = 0; i < s_operationMs / 10; ++i) {
        const QJsonObject state = simulation::state(device);
        if (state["plugged"].toBool() && state["mode"].toString() == mode) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// The boxes to check, in the words of flagboxes.h; the others are not checked then.
bool Clicker::applyFlags(const QString &boxes)
{
    user.setCheckBoxes(boxes);
    user.click("updateSettingsButton");
    return !user.isUnlocked() && waitFor([this] { return user.isUnlocked(); });
}

// "1280x720 on" for each of the three modes.
bool Clicker::applyModes(const QStringList &modes)
{
    for (int i = 0; i < modes.size(); ++i) {
        const QStringList size = modes[i].section(' ', 0, 0).split('x');
        user.setUserMode(i, size[0].toInt(), size[1].toInt(), modes[i].endsWith(" on"));
    }
    user.click("updateUserModesButton");
    return !user.isUnlocked() && waitFor([this] { return user.isUnlocked(); });
}

// Sleeps in the event loop; forty of these programs may run at a time.
bool Clicker::waitFor(const std::function<bool()> &condition)
{
    bool late = false;
    QTimer alarm;
    alarm.setSingleShot(true);
    connect(&alarm, &QTimer::timeout, &alarm, [&late] { late = true; });
    alarm.start(s_operationMs);
    QEventLoop loop;
    while (!late && !condition()) {
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
    return !late;
}

void Clicker::logWhatIsSeen()
{
    const QStringList boxes = user.boxTexts();
    log.write("seen", {
                          {"rows", toJson(user.rows())},
                          {"boxes", toJson(boxes.mid(boxesLogged))},
                          {"enabled", user.dialog.isEnabled()},
                          {"unlocked", user.isUnlocked()},
                          {"bar", user.barText()},
                          {"warning", user.warning()},
                          {"signal", user.statusLine()},
                          {"flags", user.checkBoxes()},
                          {"modes", user.userModes()},
                          {"page", user.pageTexts()},
                          {"modesPage", user.find<QWidget>("tabUserMode")->isEnabled()},
                          {"filesLeftOpen", filesLeftOpen()},
                      });
    boxesLogged = boxes.size();
}
