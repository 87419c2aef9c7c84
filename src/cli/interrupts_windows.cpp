#include "interrupts.h"

#include <mutex>

#include <windows.h>

namespace {

constexpr UINT s_ended = 0xC000013A; // what Windows' own handler ends a program with

// Windows calls the handler on a thread of its own.
std::mutex s_mutex; // for all of what follows
Interrupts *s_object = nullptr;
int s_count = 0;   // of what has come and was kept
int s_reasons = 0; // to keep what comes

// Whoever calls holds the mutex, so that nothing is begun with a device meanwhile.
void end()
{
    TerminateProcess(GetCurrentProcess(), s_ended);
}

BOOL WINAPI noteEvent(DWORD event)
{
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        if (s_reasons == 0) {
            end();
        }
        ++s_count;
        if (s_object) {
            QMetaObject::invokeMethod(s_object, &Interrupts::interrupted, Qt::QueuedConnection);
        }
    }
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        // The console closes, or the session ends. Windows ends the program when this returns, or
        // some seconds from now; the end of the program is also that of this thread.
        Sleep(INFINITE);
    }
    return TRUE;
}

} // namespace

Interrupts::Interrupts()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_object = this;
    SetConsoleCtrlHandler(noteEvent, TRUE);
}

// The handler stays for what is left of the process, see keep().
Interrupts::~Interrupts()
{
    keep();
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_object = nullptr;
}

int Interrupts::count()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_count;
}

void Interrupts::keep()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    ++s_reasons;
}

Interrupts::Busy::Busy()
{
    keep();
}

Interrupts::Busy::~Busy()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    if (--s_reasons == 0 && s_count > 0) {
        end();
    }
}

// Nothing stops a program here.
Interrupts::NoStop::NoStop() = default;

Interrupts::NoStop::~NoStop() = default;
