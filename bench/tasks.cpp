// A scan or an update by the program's own front objects, and what it cost: one line of JSON.
//
//   bench-tasks scan
//   bench-tasks update PACKAGE       the first device that the scan finds

#include "devicescanner.h"
#include "updatetask.h"
#include "usage.h"

#include <QCoreApplication>
#include <QVector>

#include <libusb.h>

#include <cstdio>
#include <cstring>

namespace {

QVector<DeviceDescription> scan(double &seconds)
{
    QVector<DeviceDescription> found;
    DeviceScanner scanner;
    QObject::connect(&scanner, &DeviceScanner::newDevice,
                     [&found](const DeviceDescription &device) { found += device; });
    QObject::connect(&scanner, &DeviceScanner::complete, [] { QCoreApplication::quit(); });
    const double start = wallSeconds();
    emit scanner.scan();
    QCoreApplication::exec();
    seconds = wallSeconds() - start;
    return found;
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
    double scanned = 0;
    const QVector<DeviceDescription> found = scan(scanned);
    if (arguments.value(1) == QLatin1String("scan")) {
        std::printf("{\"devices\": %d, \"wall\": %.6f}\n", found.size(), scanned);
        return 0;
    }
    if (arguments.value(1) != QLatin1String("update") || arguments.size() != 3 || found.isEmpty()) {
        std::fprintf(stderr, "usage: bench-tasks scan | update PACKAGE, with a device\n");
        return 2;
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
    QCoreApplication application(argc, argv);
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    if (libusb_init(nullptr) < 0) {
        std::fprintf(stderr, "bench-tasks: no libusb\n");
        return 1;
    }
    const int result = run(QCoreApplication::arguments());
    libusb_exit(nullptr);
    return result;
}
