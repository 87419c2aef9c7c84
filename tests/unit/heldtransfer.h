#pragma once

#include "scriptedlibusb.h"

#include <QSemaphore>
#include <QThread>

#include <memory>

// A transfer that is not answered before somebody has begun to wait for its end. For one transfer.
class HeldTransfer
{
public:
    explicit HeldTransfer(ScriptedUsb &bus)
    {
        bus.onTransfer([this](const ScriptedTransfer &) -> std::optional<int> {
            reached.release();
            goOn.acquire();
            return {};
        });
    }

    bool waitUntilReached() { return reached.tryAcquire(1, 60000); }

    // Runs what waits for the transfer's end, and lets it end meanwhile.
    template<typename Wait> void endDuring(const Wait &wait)
    {
        const std::unique_ptr<QThread> releaser(QThread::create([this] {
            QThread::msleep(50);
            goOn.release();
        }));
        releaser->start();
        wait();
        releaser->wait();
    }

private:
    QSemaphore reached;
    QSemaphore goOn;
};
