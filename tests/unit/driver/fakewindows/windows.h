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

#define LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR 0x00000100
#define LOAD_LIBRARY_SEARCH_SYSTEM32 0x00000800

DWORD GetModuleFileNameW(HMODULE library, wchar_t *path, DWORD size);
HMODULE LoadLibraryExW(const wchar_t *path, void *file, DWORD flags);
FARPROC GetProcAddress(HMODULE library, const char *name);
BOOL FreeLibrary(HMODULE library);
DWORD GetLastError();

#endif
