#include "capturedoutput.h"

#include <QFile>
#include <QtGlobal>

#include <unistd.h>

#include <cstdio>
#include <ostream>

namespace {

std::mutex s_debugMutex;
QStringList s_debugLines;
QtMessageHandler s_previousHandler = nullptr;

void collectDebug(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type != QtDebugMsg) {
        s_previousHandler(type, context, text);
        return;
    }
    const std::lock_guard<std::mutex> lock(s_debugMutex);
    s_debugLines.append(text);
}

} // namespace

CapturedDebug::CapturedDebug()
{
    clear();
    s_previousHandler = qInstallMessageHandler(collectDebug);
}

CapturedDebug::~CapturedDebug()
{
    qInstallMessageHandler(s_previousHandler);
}

QStringList CapturedDebug::lines() const
{
    const std::lock_guard<std::mutex> lock(s_debugMutex);
    QStringList copy = s_debugLines;
    copy.detach();
    return copy;
}

void CapturedDebug::clear()
{
    const std::lock_guard<std::mutex> lock(s_debugMutex);
    s_debugLines.clear();
}

class CapturedStream::Buffer : public std::streambuf
{
public:
    mutable std::mutex mutex;
    std::string text;
    std::size_t flushed = 0;

protected:
    int_type overflow(int_type character) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        text.push_back(traits_type::to_char_type(character));
        return character;
    }
    std::streamsize xsputn(const char *characters, std::streamsize count) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        text.append(characters, static_cast<std::size_t>(count));
        return count;
    }
    int sync() override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        flushed = text.size();
        return 0;
    }
};

CapturedStream::CapturedStream(std::ostream &captured)
    : stream(captured), buffer(std::make_unique<Buffer>()), previous(captured.rdbuf(buffer.get()))
{
}

CapturedStream::~CapturedStream()
{
    stream.rdbuf(previous);
}

std::string CapturedStream::text() const
{
    const std::lock_guard<std::mutex> lock(buffer->mutex);
    return buffer->text;
}

std::string CapturedStream::flushedText() const
{
    const std::lock_guard<std::mutex> lock(buffer->mutex);
    return buffer->text.substr(0, buffer->flushed);
}

void CapturedStream::clear()
{
    const std::lock_guard<std::mutex> lock(buffer->mutex);
    buffer->text.clear();
    buffer->flushed = 0;
}

CapturedStdout::CapturedStdout()
{
    if (!written.open()) {
        qFatal("no temporary file for standard output");
    }
    file = std::fopen(QFile::encodeName(written.fileName()).constData(), "wb");
    if (file == nullptr) {
        qFatal("standard output cannot be captured");
    }
    std::fflush(stdout);
    savedDescriptor = dup(STDOUT_FILENO);
    dup2(fileno(file), STDOUT_FILENO);
}

CapturedStdout::~CapturedStdout()
{
    finish();
}

std::string CapturedStdout::flushedText() const
{
    // Read by another handle: this one's position is where the process goes on writing.
    QFile reader(written.fileName());
    if (!reader.open(QIODevice::ReadOnly)) {
        qFatal("what was captured of standard output cannot be read");
    }
    return reader.readAll().toStdString();
}

std::string CapturedStdout::finish()
{
    if (file == nullptr) {
        return {};
    }
    std::fflush(stdout);
    dup2(savedDescriptor, STDOUT_FILENO);
    close(savedDescriptor);
    std::fclose(file);
    file = nullptr;
    return flushedText();
}
