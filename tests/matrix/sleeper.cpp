// capso-sleeper PACKAGE NUMBER: the computer falls asleep while an update, a configuration request
// and a scan are under way at once, by the program's own front objects, each on another device: "g"
// is updated and at its transfer of that number (from 1), the flags of "b" are read, and the scan
// has come to "c". All three are silent; then all leave, and come back at other addresses with
// their power cycled. Then the devices are listed, "g" is brought back, and "b" is asked again.
//
// Prints what the front objects signal, as lines of JSON (see eventlog.h). Operations: 1 a scan, 2
// all at once, 3 a scan, 4 an update, 5 a request.

#include "configdevicetask.h"
#include "devicescanner.h"
#include "eventlog.h"
#include "records.h"
#include "simulation.h"
#include "updatetask.h"
#include "usbprogram.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <chrono>
#include <map>
#include <thread>

namespace {

constexpr int s_patienceMs = 90 * 1000;
// How long to listen on after everything has completed, for a signal that should not come.
constexpr int s_strayMs = 100;
// Of a scan that has come to the ping: three strings, before each of them its language, and it.
constexpr int s_probeTransfers = 7;

int transfersOf(const char *device)
{
    return simulation::state(device)["transfers"].toInt();
}

class Sleeper : public QObject
{
public:
    Sleeper();
    // Returns false when something does not end.
    bool run(const QString &package, int number);

private:
    bool scan();
    bool update(const QString &package);
    bool readFlags();
    bool allAtOnce(const QString &package, int number);
    template<typename Condition> bool await(const Condition &condition);
    // Whether so many have completed, and nothing more comes.
    bool awaitEnds(int count);

    EventLog log;
    std::map<QString, DeviceDescription> devices; // by serial number
    int ends = 0;
    DeviceScanner scanner;
    UpdateTask updateTask;
    ConfigDeviceTask configTask;
    ConfigDeviceActionBase<uint8_t, 226, 227, 0, 0> flags{&configTask, nullptr};
};

Sleeper::Sleeper()
{
    const auto end = [this](const char *event, const QJsonObject &fields = {}) {
        log.write(event, fields);
        ends += 1;
    };
    connect(&scanner, &DeviceScanner::newDevice, this, [this](const DeviceDescription &device) {
        log.write("newDevice", {{"serialNumber", device.serialNumber},
                                {"id", QString::number(device.productId, 16)}});
        devices[device.serialNumber] = device;
    });
    connect(&scanner, &DeviceScanner::error, this, [this](const QString &text) {
        log.write("scanError", {{"text", text}});
    });
    connect(&scanner, &DeviceScanner::complete, this, [end] { end("scanComplete"); });
    connect(&updateTask, &UpdateTask::progress, this, [this](int value) {
        log.write("progress", {{"value", value}});
    });
    connect(&updateTask, &UpdateTask::error, this, [this](const QString &text) {
        log.write("error", {{"text", text}});
    });
    connect(&updateTask, &UpdateTask::complete, this, [end] { end("complete"); });
    connect(&flags, &ConfigDeviceBase::error, this, [this](uint8_t, const QString &text) {
        log.write("flagsError", {{"text", text}});
    });
    connect(&flags, &ConfigDeviceBase::getRequestComplete, this,
            [end](uint8_t, const ConfigDeviceDataPtr &data) {
                end("flags", {{"value", data ? int(*data) : -1}});
            });
}

template<typename Condition> bool Sleeper::await(const Condition &condition)
{
    QElapsedTimer time;
    for (time.start(); !condition();) {
        if (time.elapsed() > s_patienceMs) {
            log.write("tooLate");
            return false;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool Sleeper::awaitEnds(int count)
{
    if (!await([this, count] { return ends >= count; })) {
        return false;
    }
    QElapsedTimer stray;
    stray.start();
    return await([&stray] { return stray.elapsed() > s_strayMs; });
}

bool Sleeper::scan()
{
    log.beginOperation();
    devices.clear();
    ends = 0;
    emit scanner.scan();
    return awaitEnds(1);
}

bool Sleeper::update(const QString &package)
{
    log.beginOperation();
    ends = 0;
    emit updateTask.start(devices["S1"], package);
    return awaitEnds(1);
}

bool Sleeper::readFlags()
{
    log.beginOperation();
    ends = 0;
    flags.requestConfigDeviceData<uint8_t>(devices["S2"], 226, 0, 0);
    return awaitEnds(1);
}

// The scan takes the device that was plugged in last first, and the update holds "g".
bool Sleeper::allAtOnce(const QString &package, int number)
{
    log.beginOperation();
    ends = 0;
    simulation::control(QString("fault g transfer nth %1 silence").arg(number));
    simulation::control("fault b GET_DEVICE_FLAGS silence");
    simulation::control("fault c FX3_STATUS silence");
    const int first = transfersOf("g");
    const int asked = transfersOf("b");
    emit updateTask.start(devices["S1"], package);
    if (!await([=] { return transfersOf("g") == first + number; })) {
        return false;
    }
    simulation::control("power-cycle c");
    const int probed = transfersOf("c");
    emit scanner.scan();
    flags.requestConfigDeviceData<uint8_t>(devices["S2"], 226, 0, 0);
    if (!await([=] {
            return transfersOf("b") == asked + 1 && transfersOf("c") == probed + s_probeTransfers;
        })) {
        return false;
    }
    log.write("asleep", {{"ends", ends}});
    for (const char *device : {"g", "b", "c"}) {
        simulation::control(QString("unplug ") + device);
    }
    const bool ended = awaitEnds(3);
    simulation::control("clear-faults");
    simulation::control("replug g address 77");
    simulation::control("replug b address 78");
    simulation::control("replug c address 79");
    return ended;
}

bool Sleeper::run(const QString &package, int number)
{
    return scan() && allAtOnce(package, number) && scan() && update(package) && readFlags();
}

} // namespace

int main(int argc, char **argv)
{
    return runUsbProgram<QCoreApplication>(argc, argv, [] {
        const QStringList words = QCoreApplication::arguments();
        Sleeper sleeper;
        return sleeper.run(words.value(1), words.value(2).toInt()) ? 0 : 3;
    });
}
