#pragma once

#include "devicedescription.h"

#include <QObject>
#include <QThread>

// Runs firmware updates, one after another, on a thread of its own.
//
// Emit start() to update a device from a package file; every update ends with exactly one
// complete(), after the device has been given back. progress() carries percent of the whole update,
// error() a complete text for the user. Register the meta-type "DeviceDescription" before the first
// update. Destroying the task waits, without a limit, for the update that is under way: a device
// must not be left half written. Ask for one update at a time: one that has not begun then may run
// or be dropped.
class UpdateTask : public QObject
{
    Q_OBJECT

public:
    explicit UpdateTask(QObject *parent = nullptr);
    ~UpdateTask() override;

signals:
    void progress(int value);
    void complete();
    void error(const QString &text);
    void start(const DeviceDescription &description, const QString &fwFileName);

private:
    class Worker;

    QThread workerThread;
};
