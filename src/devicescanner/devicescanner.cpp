#include "devicescanner.h"

#include "usbaccess.h"

#include <QDebug>

#include <libusb.h>

#include <algorithm>

// Lives on the scanner's thread and makes all of its libusb calls there.
class DeviceScanner::Worker : public QObject
{
    Q_OBJECT

public:
    explicit Worker(const Filters &recognised) : filters(recognised) {}

signals:
    void newDevice(const DeviceDescription &description);
    void error(const QString &text);
    void scanComplete();

public slots:
    void scanDevices();

private:
    // What one walk over the device list came to.
    struct Pass
    {
        bool secondPass = false;
        int matched = 0;
        int failed = 0;
        bool driverInstalled = false;
        int lastStatus = 0; // of the last device looked at: its descriptor read, or Denied
    };

    static constexpr int s_denied = -1;
    // An installation that succeeds each time for a device that never opens would go on for ever,
    // and whoever quits the program waits for the scan.
    static constexpr int s_mostPasses = 10;

    bool runPass(Pass &pass);
    bool checkDevice(libusb_device *device, Pass &pass);
    void probeDevice(const Filter &filter, libusb_device *device, Pass &pass);

    const Filters &filters;
};

void DeviceScanner::Worker::scanDevices()
{
    qDebug() << "Scan devices";
    bool secondPass = false;
    bool again = true;
    for (int passes = 0; again && passes < s_mostPasses; ++passes) {
        Pass pass;
        pass.secondPass = secondPass;
        if (!runPass(pass)) {
            break;
        }
        const bool allFailed = pass.matched > 0 && pass.failed == pass.matched;
        again = pass.driverInstalled || (!secondPass && allFailed);
        secondPass = !pass.driverInstalled;
    }
    emit scanComplete();
}

// Returns false when the scan ends here, whatever the pass has found.
bool DeviceScanner::Worker::runPass(Pass &pass)
{
    const usb::DeviceList list;
    if (list.count() < 0) {
        qDebug() << "Can't get UBS device list" << libusb_error_name(int(list.count()));
        return false;
    }
    if (list.count() == 0) {
        return false;
    }
    for (long i = 0; i < list.count(); ++i) {
        if (!checkDevice(list.at(i), pass)) {
            return false;
        }
    }
    // Only a denial of the last device ends the scan: after an earlier one, a device that was given
    // a driver still gets its pass.
    return pass.lastStatus != s_denied;
}

// Returns false when the device cannot even be described, which ends the scan.
bool DeviceScanner::Worker::checkDevice(libusb_device *device, Pass &pass)
{
    libusb_device_descriptor descriptor{};
    pass.lastStatus = libusb_get_device_descriptor(device, &descriptor);
    if (pass.lastStatus < 0) {
        return false;
    }
    qDebug() << "check device" << Qt::hex << descriptor.idVendor << "/" << descriptor.idProduct;

    const ProductId id{descriptor.idVendor, descriptor.idProduct};
    const auto filter = std::find_if(filters.begin(), filters.end(),
                                     [&id](const Filter &entry) { return entry.id == id; });
    if (filter == filters.end()) {
        return true;
    }
    pass.matched += 1;
    if (filter->probe) {
        probeDevice(*filter, device, pass);
    }
    return true;
}

void DeviceScanner::Worker::probeDevice(const Filter &filter, libusb_device *device, Pass &pass)
{
    DeviceDescription description;
    description.secondPass = pass.secondPass;
    switch (filter.probe(device, description)) {
    case ProbeResult::Found:
        emit newDevice(description);
        break;
    case ProbeResult::DriverInstalled:
        pass.driverInstalled = true;
        break;
    case ProbeResult::AccessDenied:
        emit error(
            tr("Access Denied: Administrative privilegies are required to access the device"));
        pass.lastStatus = s_denied;
        break;
    case ProbeResult::Failed:
        pass.failed += 1;
        break;
    }
}

DeviceScanner::DeviceScanner(QObject *parent, const Filters &filters) : QObject(parent)
{
    auto *worker = new Worker(filters);
    worker->moveToThread(&workerThread);
    connect(&workerThread, &QThread::finished, worker, &Worker::deleteLater);
    connect(worker, &Worker::scanComplete, this, &DeviceScanner::complete);
    connect(worker, &Worker::newDevice, this, &DeviceScanner::newDevice);
    connect(worker, &Worker::error, this, &DeviceScanner::error);
    connect(this, &DeviceScanner::scan, worker, &Worker::scanDevices);
    workerThread.start();
}

DeviceScanner::~DeviceScanner()
{
    workerThread.quit();
    workerThread.wait();
}

#include "devicescanner.moc"
