#pragma once

#include "devicedescription.h"
#include "productcatalogue.h"
#include "updategate.h"

#include <QObject>
#include <QThread>

// Runs firmware updates, one after another, on a thread of its own.
//
// Emit start() to update a device from a package file; every update ends with exactly one
// complete(), after the device has been given back. progress() carries percent of the whole update,
// error() a complete text for the user. Register the meta-type "DeviceDescription" before the first
// update. Ask for one update at a time. Destroying the task waits, without a limit, for the update
// that is under way, since a device must not be left half written; std::clog then says so, and how
// the update ended, for no signal is delivered any more. An update that has not begun is dropped.
class UpdateTask : public QObject
{
    Q_OBJECT

public:
    explicit UpdateTask(QObject *parent = nullptr, const ProductCatalogue &catalogue = s_products);
    ~UpdateTask() override;

    // Whether the system gave it a thread: without one nothing that is asked for ever happens.
    bool hasThread() const { return workerThread.isRunning(); }

signals:
    void progress(int value);
    void complete();
    void error(const QString &text);
    void start(const DeviceDescription &description, const QString &fwFileName);

private:
    class Worker;

    UpdateGate gate;
    QThread workerThread;
};
