#include "updatetask.h"

#include "updateworker.h"

UpdateTask::UpdateTask(QObject *parent) : QObject(parent)
{
    auto *worker = new Worker;
    worker->moveToThread(&workerThread);
    connect(&workerThread, &QThread::finished, worker, &Worker::deleteLater);
    connect(this, &UpdateTask::start, worker, &Worker::update);
    connect(worker, &Worker::progress, this, &UpdateTask::progress);
    connect(worker, &Worker::complete, this, &UpdateTask::complete);
    connect(worker, &Worker::error, this, &UpdateTask::error);
    workerThread.start();
}

UpdateTask::~UpdateTask()
{
    workerThread.quit();
    workerThread.wait();
}
