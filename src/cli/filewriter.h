#pragma once

#include <QByteArray>

#include <chrono>
#include <memory>

// Writes to a file on a thread of its own, so that a reader who takes nothing (a pager, a terminal
// that was stopped with Ctrl+S) stops nobody else. What is added is written in the order in which
// it was added. The thread begins with the first addition, or with start(); where the system gives
// none, whoever adds writes.
class FileWriter
{
public:
    explicit FileWriter(int file);
    // What is not written by then is lost where nobody takes it.
    ~FileWriter();
    FileWriter(const FileWriter &) = delete;
    FileWriter &operator=(const FileWriter &) = delete;

    // How much may wait before addIfRoom() drops, in bytes.
    static constexpr qint64 Room = qint64{1024} * 1024;

    // Whether there is a thread now.
    bool start();

    // Any thread; at once where there is a thread. Once a write has failed, nothing more is
    // written.
    void add(const QByteArray &bytes);
    // The same for what may be missing: as long as too much waits already, it is dropped. The next
    // addition is then preceded by a line that says how many were.
    void addIfRoom(const QByteArray &bytes);

    // Until all is written or has failed.
    void wait() const;
    // The same for at most so long; whether it is.
    bool waitFor(std::chrono::milliseconds most) const;
    // The same, and not at all as long as an earlier one was in vain: the thread that calls has
    // better things to do than to wait for this reader again and again. One thread.
    void waitIfLive(std::chrono::milliseconds most);

    // The system's code of the write that failed; 0: none has.
    int error() const;

private:
    struct Shared; // with the thread, which may outlive this object

    bool startLocked();

    const std::shared_ptr<Shared> shared;
    bool live = true;
};
