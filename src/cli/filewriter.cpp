#include "filewriter.h"

#include "standardstreams.h"

#include <condition_variable>
#include <deque>
#include <mutex>

struct FileWriter::Shared
{
    explicit Shared(int writtenFile) : file(writtenFile) {}

    // The caller holds the mutex.
    void add(const QByteArray &bytes)
    {
        if (dropped > 0) {
            const QByteArray count = QByteArray::number(dropped);
            dropped = 0;
            add("capso-cli: " + count + " messages were left out, since nobody read them\n");
        }
        waiting.push_back(bytes);
        waitingBytes += bytes.size();
        changed.notify_all();
    }
    bool isDone() const { return waiting.empty(); }

    // The thread. What it writes stays in the queue until it is written.
    void writeUntilEnd()
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (!ended || !waiting.empty()) {
            if (waiting.empty()) {
                changed.wait(lock);
                continue;
            }
            const QByteArray bytes = waiting.front();
            if (error == 0) {
                lock.unlock();
                const int failure = writeAll(file, bytes);
                lock.lock();
                error = failure;
            }
            removeFirst();
        }
    }
    // In its place, where there is none. The caller holds the mutex, so that what others add waits
    // for its turn.
    void writeNow()
    {
        while (!waiting.empty()) {
            if (error == 0) {
                error = writeAll(file, waiting.front());
            }
            removeFirst();
        }
    }
    void removeFirst()
    {
        waitingBytes -= waiting.front().size();
        waiting.pop_front();
        changed.notify_all();
    }

    const int file;
    std::mutex mutex; // for all of what follows
    std::condition_variable changed;
    std::deque<QByteArray> waiting;
    qint64 waitingBytes = 0;
    int dropped = 0; // since the last addition
    int error = 0;   // the system's code
    bool running = false;
    bool ended = false;
};

FileWriter::FileWriter(int file) : shared(std::make_shared<Shared>(file))
{
}

FileWriter::~FileWriter()
{
    const std::lock_guard<std::mutex> lock(shared->mutex);
    shared->ended = true;
    shared->changed.notify_all();
}

bool FileWriter::start()
{
    const std::lock_guard<std::mutex> lock(shared->mutex);
    return startLocked();
}

// The caller holds the mutex.
bool FileWriter::startLocked()
{
    if (!shared->running) {
        shared->running = startUninterrupted([kept = shared] { kept->writeUntilEnd(); });
    }
    return shared->running;
}

void FileWriter::add(const QByteArray &bytes)
{
    const std::lock_guard<std::mutex> lock(shared->mutex);
    shared->add(bytes);
    if (!startLocked()) {
        shared->writeNow();
    }
}

void FileWriter::addIfRoom(const QByteArray &bytes)
{
    {
        const std::lock_guard<std::mutex> lock(shared->mutex);
        if (shared->waitingBytes > Room) {
            ++shared->dropped;
            return;
        }
    }
    add(bytes);
}

void FileWriter::wait() const
{
    std::unique_lock<std::mutex> lock(shared->mutex);
    shared->changed.wait(lock, [this] { return shared->isDone(); });
}

bool FileWriter::waitFor(std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> lock(shared->mutex);
    return shared->changed.wait_for(lock, most, [this] { return shared->isDone(); });
}

void FileWriter::waitIfLive(std::chrono::milliseconds most)
{
    live = waitFor(live ? most : std::chrono::milliseconds(0));
}

int FileWriter::error() const
{
    const std::lock_guard<std::mutex> lock(shared->mutex);
    return shared->error;
}
