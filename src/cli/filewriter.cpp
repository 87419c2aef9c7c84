#include "filewriter.h"

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

// Waits until the file takes more. One that others have made non-blocking is as slow as its reader.
void waitForRoom(int file)
{
    pollfd room{file, POLLOUT, 0};
    poll(&room, 1, -1);
}

// Writes all of it; returns 0, or the errno of the write that failed.
int writeAll(int file, const QByteArray &bytes)
{
    const char *at = bytes.constData();
    auto left = std::size_t(bytes.size());
    while (left > 0) {
        const ssize_t written = write(file, at, left);
        if (written < 0 && errno == EAGAIN) {
            waitForRoom(file);
            continue;
        }
        if (written < 0) {
            return errno;
        }
        at += written;
        left -= std::size_t(written);
    }
    return 0;
}

// A thread that no signal interrupts, and in which a reader that has gone is no more than an error.
template<typename Work> void startUninterrupted(const Work &work)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread(work).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

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
            waiting.pop_front();
            waitingBytes -= bytes.size();
            changed.notify_all();
        }
    }

    const int file;
    std::mutex mutex; // for all of what follows
    std::condition_variable changed;
    std::deque<QByteArray> waiting;
    qint64 waitingBytes = 0;
    int dropped = 0; // since the last addition
    int error = 0;   // an errno
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

void FileWriter::add(const QByteArray &bytes)
{
    const std::lock_guard<std::mutex> lock(shared->mutex);
    shared->add(bytes);
    if (!shared->running) {
        shared->running = true;
        startUninterrupted([kept = shared] { kept->writeUntilEnd(); });
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
