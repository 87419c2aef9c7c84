#ifndef FAKE_WINDOWS_H
#define FAKE_WINDOWS_H

// The few names of Win32 that the loading of libwdi.dll uses, answered by tst_windowsinstaller.cpp,
// so that it runs where there is no Windows. That it agrees with the real ones is for the
// cross-compiler to say (windows.driverInstallerCompiles).

#define WINAPI

using BOOL = int;
using DWORD = unsigned int;
struct FakeWindow;
using HWND = FakeWindow *;
struct FakeLibrary;
using HMODULE = FakeLibrary *;
using FARPROC = void (*)();

BOOL SetDllDirectoryW(const wchar_t *path);
HMODULE LoadLibraryW(const wchar_t *name);
FARPROC GetProcAddress(HMODULE library, const char *name);
BOOL FreeLibrary(HMODULE library);
DWORD GetLastError();

#endif
