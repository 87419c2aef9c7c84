#pragma once

#include "configdevicetask.h"
#include "devicescanner.h"
#include "eventlog.h"
#include "records.h"
#include "updatetask.h"

#include <QEventLoop>
#include <QStringList>
#include <QVector>

// Runs operations on the front objects, as the dialog would, one after another, and logs every
// signal that comes back. The front objects are those of the program, typed actions included.
class Driver : public QObject
{
    Q_OBJECT

public:
    Driver();

    // Runs the operations that the words name. Returns 0, or 3 when a word or a device is unknown.
    int run(QStringList words);

private:
    using FlagsAction = ConfigDeviceActionBase<uint8_t, 226, 227, 0, 0>;
    using StatusAction = ConfigDeviceActionBase<InputStatusInfo, 178, 0, 0, 0>;
    using ModeAction = ConfigDeviceActionBase<UserMode, 179, 179, 0, 0>;

    void listenToScanner();
    void listenToUpdate();
    void listenToConfig(ConfigDeviceBase *front, const QString &name);

    void scan();
    bool runOperation(const QString &operation, QStringList &words);
    void runOnDevice(const QString &operation, const DeviceDescription &device,
                     const QStringList &arguments);
    void readRecord(const QString &operation, const DeviceDescription &device,
                    const QStringList &arguments);
    void writeRecord(const QString &operation, const DeviceDescription &device,
                     const QStringList &arguments);
    const DeviceDescription *find(const QString &target) const;
    void send(ConfigDeviceBase &front, const DeviceDescription &device, uint8_t request,
              const QByteArray &bytes, uint16_t index);
    void awaitCompletion();

    EventLog log;
    QEventLoop loop;
    QVector<DeviceDescription> devices; // of the last scan
    ConfigDeviceBase *asking = nullptr; // the front object whose answer ends the operation

    DeviceScanner scanner;
    UpdateTask updateTask;
    ConfigDeviceTask configTask;
    FlagsAction flagsAction;
    StatusAction statusAction;
    ModeAction modeAction;
};
