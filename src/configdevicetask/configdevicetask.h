#pragma once

#include "devicedescription.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QThread>

#include <cstdint>
#include <memory>
#include <system_error>

// The payload of a configuration request: a buffer of the request's length.
typedef QSharedPointer<uint8_t> ConfigDeviceDataPtr;
Q_DECLARE_METATYPE(ConfigDeviceDataPtr)

// A buffer of `size` zero bytes.
inline ConfigDeviceDataPtr makeConfigDeviceData(std::size_t size)
{
    return ConfigDeviceDataPtr(new uint8_t[size](), std::default_delete<uint8_t[]>());
}

// What everybody who sends configuration requests has in common: the two request signals, and the
// answers to those requests that it cares for.
//
// Emitting getConfigDeviceData() or setConfigDeviceData() queues one request for the worker, which
// opens the device, sends one vendor request and closes it again. `size` is the length of the data
// in bytes (wLength), `index` is sent as wIndex, `value` as wValue. The answers:
//
// - a read that succeeded: getRequestComplete(request, data, size), with the size that was asked
// for
// - a read that failed: error(), then getRequestComplete(request, null, 0)
// - a write that succeeded: setRequestComplete(request)
// - a write to a device that cannot be opened: error(), then getRequestComplete(request, null, 0)
// - a write whose transfer failed: error(), then setRequestComplete(request)
//
// All signals and slots run on the owner's (user interface) thread.
class ConfigDeviceBase : public QObject
{
    Q_OBJECT

public:
    explicit ConfigDeviceBase(QObject *parent = nullptr);

    // Asks for one record of the device.
    template<typename Record>
    void requestConfigDeviceData(const DeviceDescription &description, uint8_t request,
                                 uint16_t index, uint16_t value)
    {
        emit getConfigDeviceData(description, request, makeConfigDeviceData(sizeof(Record)),
                                 sizeof(Record), index, value);
    }

    // Whether answers to this request are passed on.
    virtual bool filterRequest(uint8_t request) const;

signals:
    void getConfigDeviceData(const DeviceDescription &description, uint8_t request,
                             ConfigDeviceDataPtr data, uint16_t size, uint16_t index,
                             uint16_t value) const;
    void setConfigDeviceData(const DeviceDescription &description, uint8_t request,
                             ConfigDeviceDataPtr data, uint16_t size, uint16_t index,
                             uint16_t value) const;
    void getRequestComplete(uint8_t request, ConfigDeviceDataPtr data, uint16_t size);
    void setRequestComplete(uint8_t request);
    void error(uint8_t request, const QString &message);

public slots:
    void getRequestCompleteUnfiltered(uint8_t request, ConfigDeviceDataPtr data, uint16_t size);
    void setRequestCompleteUnfiltered(uint8_t request);
    void errorUnfiltered(uint8_t request, const QString &message);
};

// Owns the worker and its thread, and sees every answer. Requests are handled one at a time in the
// order in which they were emitted, whoever emitted them. Destroying the task waits for the request
// under way.
class ConfigDeviceTask : public ConfigDeviceBase
{
    Q_OBJECT

public:
    explicit ConfigDeviceTask(QObject *parent = nullptr);
    ~ConfigDeviceTask() override;

    // Whether the system gave it a thread: without one nothing that is asked for ever happens.
    bool hasThread() const { return workerThread.isRunning(); }

private:
    friend class ConfigDeviceAction;
    class Worker;

    static void connectToWorker(const ConfigDeviceBase *front, const Worker *worker);

    QThread workerThread;
    Worker *worker;
};

// Sends requests through the worker of a task. Once the task is gone its requests go nowhere.
class ConfigDeviceAction : public ConfigDeviceBase
{
    Q_OBJECT

public:
    // Without a task: throws std::system_error with std::errc::invalid_argument.
    ConfigDeviceAction(const ConfigDeviceTask *task, QObject *parent);
    // Without a task: sets `ec` to std::errc::invalid_argument and is connected to nothing.
    ConfigDeviceAction(const ConfigDeviceTask *task, std::error_code &ec, QObject *parent);

private:
    void init(std::error_code &ec);

    ConfigDeviceTask::Worker *worker;
};

// The action for one kind of record: only answers to its two request codes are passed on. `Record`,
// `value` and `index` say in the type what the action is for; each request names its own.
template<typename Record, uint8_t getRequest, uint8_t setRequest, uint16_t value, uint16_t index>
class ConfigDeviceActionBase : public ConfigDeviceAction
{
public:
    using ConfigDeviceAction::ConfigDeviceAction;

    bool filterRequest(uint8_t request) const override
    {
        return request == getRequest || request == setRequest;
    }
};
