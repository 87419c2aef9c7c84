#include "standardfiles.h"

#include <cstdio>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

// A file that is opened becomes a standard one only if somebody says so: nothing is to be held.
void holdStandardFiles()
{
}

// The C library's number 1 leads elsewhere then; Windows' own standard output stays what it was.
void divertPrinting(bool shown)
{
    HANDLE process = GetCurrentProcess();
    HANDLE kept = nullptr;
    const int output = _fileno(stdout);
    if (output < 0 || DuplicateHandle(process, GetStdHandle(STD_OUTPUT_HANDLE), process, &kept, 0,
                                      TRUE, DUPLICATE_SAME_ACCESS) == 0) {
        return; // there is none, and what is printed goes nowhere
    }
    const int nowhere = _open("NUL", _O_WRONLY);
    const int errors = _fileno(stderr);
    _dup2(shown && errors >= 0 ? errors : nowhere, output); // closes what it was
    _close(nowhere);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    SetStdHandle(STD_OUTPUT_HANDLE, kept);
}
