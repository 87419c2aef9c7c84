// Many scans, polls and updates in one process, and what it holds after each so many of them: one
// line of JSON for each sample.
//
//   bench-long SCANS POLLS UPDATES PACKAGE       of the first device that the scan finds

#include "configdevicetask.h"
#include "devicescanner.h"
#include "program.h"
#include "qtcompat.h"
#include "records.h"
#include "updatetask.h"
#include "usage.h"
#include "vendorrequests.h"

#include <QDir>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

constexpr int s_samples = 50; // of each kind of work

// What the process holds now.
struct Holdings
{
    std::size_t heapBytes = mallinfo2().uordblks + mallinfo2().hblkhd;
    long residentKib = statusKib("VmRSS:");
    int files = entriesIn("/proc/self/fd");
    int threads = entriesIn("/proc/self/task");

    static int entriesIn(const char *directory)
    {
        return int(QDir(directory)
                       .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
                       .size());
    }
};

// Runs `once` so many times, which must lead to QCoreApplication::quit().
void repeat(const char *kind, int times, const std::function<void()> &once)
{
    const int step = std::max(1, times / s_samples);
    for (int done = 0; done < times; done += step) {
        const double start = wallSeconds();
        const double used = processorSeconds();
        for (int i = 0; i < step; ++i) {
            once();
            QCoreApplication::exec();
        }
        const Holdings now;
        std::printf("{\"kind\": \"%s\", \"done\": %d, \"heap\": %zu, \"resident_kib\": %ld, "
                    "\"files\": %d, \"threads\": %d, \"wall\": %.6f, \"processor\": %.6f}\n",
                    kind, done + step, now.heapBytes, now.residentKib, now.files, now.threads,
                    (wallSeconds() - start) / step, (processorSeconds() - used) / step);
        std::fflush(stdout);
    }
}

class Work
{
public:
    Work()
    {
        QObject::connect(&scanner, &DeviceScanner::newDevice,
                         [this](const DeviceDescription &found) {
                             device = found;
                             ++devices;
                         });
        QObject::connect(&scanner, &DeviceScanner::complete, [this] { end(devices == 1); });
        QObject::connect(
            &status, &ConfigDeviceBase::getRequestComplete,
            [this](uint8_t, const ConfigDeviceDataPtr &data) { end(data != nullptr); });
        QObject::connect(&update, &UpdateTask::error, [this] { failed = true; });
        QObject::connect(&update, &UpdateTask::complete, [this] { end(!failed); });
    }

    void scan()
    {
        devices = 0;
        emit scanner.scan();
    }
    void poll() { status.requestConfigDeviceData<InputStatusInfo>(device, INPUT_STATUS, 0, 0); }
    void writePackage(const QString &package) { emit update.start(device, package); }

private:
    static void end(bool good)
    {
        if (!good) {
            qFatal("an operation has failed");
        }
        QCoreApplication::quit();
    }

    DeviceScanner scanner;
    ConfigDeviceTask configuration;
    ConfigDeviceActionBase<InputStatusInfo, 178, 0, 0, 0> status{&configuration, nullptr};
    UpdateTask update;
    DeviceDescription device;
    int devices = 0;
    bool failed = false;
};

int run(const QStringList &arguments)
{
    const int scans = arguments.value(1).toInt();
    const int polls = arguments.value(2).toInt();
    const int updates = arguments.value(3).toInt();
    if (arguments.size() != 5 || scans < 1 || polls < 1 || updates < 1) {
        std::fprintf(stderr, "usage: bench-long SCANS POLLS UPDATES PACKAGE\n");
        return 2;
    }
    Work work;
    repeat("scan", scans, [&work] { work.scan(); });
    repeat("poll", polls, [&work] { work.poll(); });
    repeat("update", updates, [&work, &arguments] { work.writePackage(arguments.at(4)); });
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    qtcompat::register_alias<unsigned char>("uint8_t");
    return runMeasurement(argc, argv, "bench-long", run);
}
