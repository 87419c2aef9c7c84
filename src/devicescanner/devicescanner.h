#pragma once

#include "devicedescription.h"
#include "filters.h"

#include <QObject>
#include <QThread>

// Finds the recognised capture devices on the USB buses, on a thread of its own.
//
// Emit scan() to start a scan; scans run one after another in the order in which they were asked
// for. Each ends with exactly one complete(), which follows its newDevice() and error() signals.
// Register the meta-type "DeviceDescription" before the first scan. Destroying the scanner waits
// for the scan that is under way; one that has not begun may run as well or be dropped, without a
// complete().
class DeviceScanner : public QObject
{
    Q_OBJECT

public:
    explicit DeviceScanner(QObject *parent = nullptr, const Filters &filters = s_filters);
    ~DeviceScanner() override;

    // Whether the system gave it a thread: without one nothing that is asked for ever happens.
    bool hasThread() const { return workerThread.isRunning(); }

signals:
    void newDevice(const DeviceDescription &description);
    void error(const QString &text);
    void complete();
    void scan();

private:
    class Worker;

    QThread workerThread;
};
