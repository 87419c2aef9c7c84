#include "standardstreams.h"

#include <QString>

#include <algorithm>
#include <system_error>
#include <thread>

#include <windows.h>

namespace {

HANDLE handleOf(int file)
{
    return GetStdHandle(file == StandardOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

bool isConsole(HANDLE handle)
{
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != 0;
}

// A console is given characters: what it makes of bytes depends on a setting that it shares with
// other programs.
int writeToConsole(HANDLE console, const QString &text)
{
    constexpr int most = 8192; // at a time; consoles of Windows 7 take some tens of thousands
    const std::wstring units = text.toStdWString();
    for (std::size_t at = 0; at < units.size();) {
        std::size_t length = std::min(units.size() - at, std::size_t(most));
        if (at + length < units.size() && IS_HIGH_SURROGATE(units[at + length - 1])) {
            --length;
        }
        DWORD written = 0;
        if (WriteConsoleW(console, units.data() + at, DWORD(length), &written, nullptr) == 0) {
            return int(GetLastError());
        }
        at += written;
    }
    return 0;
}

} // namespace

int writeAll(int file, const QByteArray &text)
{
    HANDLE handle = handleOf(file);
    if (isConsole(handle)) {
        return writeToConsole(handle, QString::fromUtf8(text));
    }
    const char *at = text.constData();
    auto left = DWORD(text.size());
    while (left > 0) {
        DWORD written = 0;
        if (WriteFile(handle, at, left, &written, nullptr) == 0) {
            return int(GetLastError());
        }
        at += written;
        left -= written;
    }
    return 0;
}

bool meansGoneReader(int code)
{
    return code == ERROR_NO_DATA || code == ERROR_BROKEN_PIPE || code == ERROR_PIPE_NOT_CONNECTED;
}

bool hasLostReader(int /*file*/)
{
    return false;
}

// Windows 10 and later, whose consoles know the sequences once they are asked to.
bool isCapableTerminal(int file)
{
    HANDLE handle = handleOf(file);
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != 0 &&
           SetConsoleMode(handle,
                          mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int terminalWidth()
{
    constexpr int usualWidth = 80;
    CONSOLE_SCREEN_BUFFER_INFO facts{};
    if (GetConsoleScreenBufferInfo(handleOf(StandardError), &facts) == 0) {
        return usualWidth;
    }
    return std::max(facts.srWindow.Right - facts.srWindow.Left + 1, 2);
}

bool startUninterrupted(const std::function<void()> &work)
{
    try {
        std::thread(work).detach();
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}
