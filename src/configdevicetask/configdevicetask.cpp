#include "configdevicetask.h"

#include "qtcompat.h"
#include "usbaccess.h"
#include "vendorrequests.h"

// Lives on the task's thread and makes all of its libusb calls there.
class ConfigDeviceTask::Worker : public QObject
{
    Q_OBJECT

public:
    ~Worker() override { usb::close_unclaimed_device(); }

signals:
    void getComplete(uint8_t request, ConfigDeviceDataPtr data, uint16_t size);
    void setComplete(uint8_t request);
    void error(uint8_t request, const QString &message);

public slots:
    void getConfigDeviceData(DeviceDescription device, uint8_t request, ConfigDeviceDataPtr data,
                             uint16_t size, uint16_t index, uint16_t value);
    void setConfigDeviceData(DeviceDescription device, uint8_t request, ConfigDeviceDataPtr data,
                             uint16_t size, uint16_t index, uint16_t value);

private:
    void emitErrorCompleteGet(uint8_t request, const QString &message);
};

void ConfigDeviceTask::Worker::getConfigDeviceData(DeviceDescription device, uint8_t request,
                                                   ConfigDeviceDataPtr data, uint16_t size,
                                                   uint16_t index, uint16_t value)
{
    usb::ClaimedDevice handle = usb::claim_device(device);
    if (!handle) {
        emitErrorCompleteGet(request,
                             tr("Cannot access USB. Administrative rights may be required."));
        return;
    }
    const int result = usb::read_vendor(handle.get(), request, value, index, data.data(), size);
    handle.reset();
    if (result < 0) {
        emitErrorCompleteGet(request, tr("Error retreiving config device data: req=%1, status: %2")
                                          .arg(request)
                                          .arg(usb::error_sentence(result)));
        return;
    }
    emit getComplete(request, data, size);
}

void ConfigDeviceTask::Worker::setConfigDeviceData(DeviceDescription device, uint8_t request,
                                                   ConfigDeviceDataPtr data, uint16_t size,
                                                   uint16_t index, uint16_t value)
{
    usb::ClaimedDevice handle = usb::claim_device(device);
    if (!handle) {
        // A read completion although this is a write: a null buffer is how a receiver tells that
        // nothing was done.
        emitErrorCompleteGet(request,
                             tr("Cannot access USB. Administrative rights may be required."));
        return;
    }
    const int result = usb::write_vendor(handle.get(), request, value, index, data.data(), size);
    if (result < 0) {
        emit error(request, tr("Error setting device flags: %1").arg(usb::error_sentence(result)));
    }
    handle.reset();
    emit setComplete(request);
}

void ConfigDeviceTask::Worker::emitErrorCompleteGet(uint8_t request, const QString &message)
{
    emit error(request, message);
    emit getComplete(request, ConfigDeviceDataPtr(), 0);
}

ConfigDeviceBase::ConfigDeviceBase(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<ConfigDeviceDataPtr>("ConfigDeviceDataPtr");
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    // Without these a request is never queued: moc knows the arguments by these names only.
    qtcompat::register_alias<unsigned char>("uint8_t");
    qtcompat::register_alias<unsigned short>("uint16_t");
}

bool ConfigDeviceBase::filterRequest(uint8_t) const
{
    return true;
}

void ConfigDeviceBase::getRequestCompleteUnfiltered(uint8_t request, ConfigDeviceDataPtr data,
                                                    uint16_t size)
{
    if (filterRequest(request)) {
        emit getRequestComplete(request, data, size);
    }
}

void ConfigDeviceBase::setRequestCompleteUnfiltered(uint8_t request)
{
    if (filterRequest(request)) {
        emit setRequestComplete(request);
    }
}

void ConfigDeviceBase::errorUnfiltered(uint8_t request, const QString &message)
{
    if (filterRequest(request)) {
        emit error(request, message);
    }
}

ConfigDeviceTask::ConfigDeviceTask(QObject *parent) : ConfigDeviceBase(parent), worker(new Worker)
{
    worker->moveToThread(&workerThread);
    connect(&workerThread, &QThread::finished, worker, &Worker::deleteLater);
    connectToWorker(this, worker);
    workerThread.start();
}

ConfigDeviceTask::~ConfigDeviceTask()
{
    workerThread.quit();
    workerThread.wait();
}

// Every front object gets every answer and lets through what its filter accepts.
void ConfigDeviceTask::connectToWorker(const ConfigDeviceBase *front, const Worker *worker)
{
    connect(front, &ConfigDeviceBase::setConfigDeviceData, worker, &Worker::setConfigDeviceData);
    connect(front, &ConfigDeviceBase::getConfigDeviceData, worker, &Worker::getConfigDeviceData);
    connect(worker, &Worker::setComplete, front, &ConfigDeviceBase::setRequestCompleteUnfiltered);
    connect(worker, &Worker::getComplete, front, &ConfigDeviceBase::getRequestCompleteUnfiltered);
    connect(worker, &Worker::error, front, &ConfigDeviceBase::errorUnfiltered);
}

ConfigDeviceAction::ConfigDeviceAction(const ConfigDeviceTask *task, QObject *parent)
    : ConfigDeviceBase(parent), worker(task ? task->worker : nullptr)
{
    std::error_code ec;
    init(ec);
    if (ec) {
        throw std::system_error(ec, "`task` argument can't be nullptr");
    }
}

ConfigDeviceAction::ConfigDeviceAction(const ConfigDeviceTask *task, std::error_code &ec,
                                       QObject *parent)
    : ConfigDeviceBase(parent), worker(task ? task->worker : nullptr)
{
    init(ec);
}

void ConfigDeviceAction::init(std::error_code &ec)
{
    if (!worker) {
        ec = std::make_error_code(std::errc::invalid_argument);
        return;
    }
    ec.clear();
    ConfigDeviceTask::connectToWorker(this, worker);
}

#include "configdevicetask.moc"
