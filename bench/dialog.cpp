// The longest time for which the event loop did not come round while the dialog updated a device,
// with its window visible: one line of JSON.
//
//   bench-dialog PACKAGE

#include "qtcompat.h"
#include "updaterepair.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include <libusb.h>

#include <algorithm>
#include <cstdio>

namespace {

// Comes round with every turn of the event loop while it runs, and remembers the longest turn.
class StallMeter : public QObject
{
public:
    StallMeter()
    {
        timer.setInterval(1);
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, this, [this] {
            longest = std::max(longest, sinceLast.nsecsElapsed());
            sinceLast.restart();
        });
    }
    void start()
    {
        sinceLast.start();
        timer.start();
    }
    double longestMs() const { return double(longest) / 1e6; }

private:
    QTimer timer;
    QElapsedTimer sinceLast;
    qint64 longest = 0;
};

template<typename T> T *child(UpdateRepair &dialog, const char *name)
{
    return dialog.findChild<T *>(QLatin1String(name));
}

// Waits for the scan, updates the first device, and quits when the bar says how it ended.
class UpdateStarter : public QObject
{
public:
    UpdateStarter(UpdateRepair &window, const QString &package, StallMeter &meter) : dialog(window)
    {
        QObject::connect(&timer, &QTimer::timeout, this, [this, package, &meter] {
            if (!started) {
                begin(package, meter);
            } else if (dialog.isEnabled()) {
                QCoreApplication::exit(child<QProgressBar>(dialog, "updateProgress")->format() ==
                                               "Update Completed"
                                           ? 0
                                           : 1);
            }
        });
        timer.start(50);
    }

private:
    void begin(const QString &package, StallMeter &meter)
    {
        auto *list = child<QListWidget>(dialog, "devicesList");
        if (list->count() == 0) {
            return;
        }
        list->setCurrentRow(0);
        auto *button = child<QPushButton>(dialog, "updateButton");
        if (!button->isEnabled()) {
            return;
        }
        started = true;
        child<QLineEdit>(dialog, "firmwareLineEdit")->setText(package);
        meter.start();
        button->click();
    }

    UpdateRepair &dialog;
    QTimer timer;
    bool started = false;
};

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets); // as in the program
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");
    if (argc != 2 || libusb_init(nullptr) < 0) {
        std::fprintf(stderr, "usage: bench-dialog PACKAGE, with libusb\n");
        return 2;
    }
    int result = 0;
    {
        UpdateRepair dialog;
        dialog.show();
        StallMeter meter;
        const UpdateStarter starter(dialog, QString::fromLocal8Bit(argv[1]), meter);
        result = QApplication::exec();
        std::printf("{\"longest_ms\": %.3f}\n", meter.longestMs());
    }
    libusb_exit(nullptr);
    return result;
}
