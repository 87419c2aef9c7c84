#pragma once

#include <QStringList>
#include <QTemporaryFile>

#include <cstdio>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>

// What the program says on its log streams, collected while an object of these classes lives and
// given back to the terminal's streams afterwards. One object of each class at a time; any thread
// may write.

// Lines of qDebug(), without the line end. Messages of other kinds keep going where they went.
class CapturedDebug
{
public:
    CapturedDebug();
    ~CapturedDebug();
    CapturedDebug(const CapturedDebug &) = delete;
    CapturedDebug &operator=(const CapturedDebug &) = delete;

    QStringList lines() const;
    void clear();
};

// std::clog or std::cerr.
class CapturedStream
{
public:
    explicit CapturedStream(std::ostream &captured);
    ~CapturedStream();
    CapturedStream(const CapturedStream &) = delete;
    CapturedStream &operator=(const CapturedStream &) = delete;

    std::string text() const;
    // The text up to the last flush; less than text() when something waits to be flushed.
    std::string flushedText() const;
    void clear();

private:
    class Buffer;
    std::ostream &stream;
    std::unique_ptr<Buffer> buffer;
    std::streambuf *previous;
};

// Standard output of the whole process, printf's included (the file descriptor is redirected).
class CapturedStdout
{
public:
    CapturedStdout();
    ~CapturedStdout();
    CapturedStdout(const CapturedStdout &) = delete;
    CapturedStdout &operator=(const CapturedStdout &) = delete;

    // What has left the process's buffers so far. The capture goes on.
    std::string flushedText() const;
    // Ends the capture and returns what was written.
    std::string finish();

private:
    QTemporaryFile written;
    std::FILE *file; // the same, open for writing; null when the capture has ended
    int savedDescriptor;
};
