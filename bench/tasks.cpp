// Scans or an update by the program's own front objects, and what they cost: one line of JSON.
//
//   bench-tasks scan TIMES
//   bench-tasks update PACKAGE       the first device that the scan finds

#include "devicescanner.h"
#include "program.h"
#include "updatetask.h"
#include "usage.h"

#include <QVector>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

struct Scan
{
    QVector<DeviceDescription> found;
    double seconds = 0;
};

// One after another, by one scanner.
std::vector<Scan> scan(int times)
{
    std::vector<Scan> scans;
    DeviceScanner scanner;
    QObject::connect(&scanner, &DeviceScanner::newDevice,
                     [&scans](const DeviceDescription &device) { scans.back().found += device; });
    QObject::connect(&scanner, &DeviceScanner::complete, [] { QCoreApplication::quit(); });
    for (int i = 0; i < times; ++i) {
        scans.emplace_back();
        const double start = wallSeconds();
        emit scanner.scan();
        QCoreApplication::exec();
        scans.back().seconds = wallSeconds() - start;
    }
    return scans;
}

void printScans(const std::vector<Scan> &scans)
{
    int fewest = int(scans.front().found.size());
    std::printf("{\"walls\": [");
    for (const Scan &one : scans) {
        std::printf("%s%.6f", &one == &scans.front() ? "" : ", ", one.seconds);
        fewest = std::min(fewest, int(one.found.size()));
    }
    std::printf("], \"devices\": %d}\n", fewest);
}

bool update(const DeviceDescription &device, const QString &package, double &seconds,
            double &processor)
{
    bool failed = false;
    UpdateTask task;
    QObject::connect(&task, &UpdateTask::error, [&failed](const QString &text) {
        std::fprintf(stderr, "bench-tasks: %s\n", qPrintable(text));
        failed = true;
    });
    QObject::connect(&task, &UpdateTask::complete, [] { QCoreApplication::quit(); });
    const double start = wallSeconds();
    const double used = processorSeconds();
    emit task.start(device, package);
    QCoreApplication::exec();
    seconds = wallSeconds() - start;
    processor = processorSeconds() - used;
    return !failed;
}

int run(const QStringList &arguments)
{
    const QString what = arguments.value(1);
    const bool scansOnly = what == QLatin1String("scan");
    const int times = scansOnly ? arguments.value(2).toInt() : 1;
    if (arguments.size() != 3 || times < 1 || !(scansOnly || what == QLatin1String("update"))) {
        std::fprintf(stderr, "usage: bench-tasks scan TIMES | update PACKAGE\n");
        return 2;
    }
    const std::vector<Scan> scans = scan(times);
    if (scansOnly) {
        printScans(scans);
        return 0;
    }
    const QVector<DeviceDescription> &found = scans.front().found;
    if (found.isEmpty()) {
        std::fprintf(stderr, "bench-tasks: no device\n");
        return 1;
    }
    double wall = 0;
    double processor = 0;
    if (!update(found.first(), arguments.at(2), wall, processor)) {
        return 1;
    }
    std::printf("{\"wall\": %.6f, \"processor\": %.6f, \"peak_kib\": %ld}\n", wall, processor,
                peakKib());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    return runMeasurement(argc, argv, "bench-tasks", run);
}
