#include "platforminstaller.h"

#include "winusbinstall.h"

#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>

#include <windows.h>

// libwdi.dll is not part of the program: it is opened for each installation, so one that is put in
// place while the program runs is used at the next attempt.

namespace {

static_assert(std::is_same_v<usb::wdi::Bool, BOOL>);
static_assert(std::is_pointer_v<HWND>);
static_assert(std::is_same_v<int(WINAPI *)(int), decltype(usb::wdi::Functions::setLogLevel)>);

struct LibraryCloser
{
    void operator()(HMODULE library) const { FreeLibrary(library); }
};
using Library = std::unique_ptr<std::remove_pointer_t<HMODULE>, LibraryCloser>;

// The path of libwdi.dll beside the program, whether it is there or not.
std::wstring libwdi_path()
{
    std::wstring path(32768, L'\0'); // no path in Windows is longer
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.find_last_of(L'\\') + 1);
    return path + L"libwdi.dll";
}

Library open_libwdi()
{
    // A program that may run as administrator loads code from beside itself and, for what that code
    // needs, from the system: not from the current folder, which is wherever the last file dialog
    // was, and not from the search path, to which anybody adds.
    Library library(
        LoadLibraryExW(libwdi_path().c_str(), nullptr,
                       LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (!library) {
        const auto error = static_cast<unsigned long>(GetLastError());
        std::printf("Can't load libwdi.dll: error %lu\n", error);
    }
    return library;
}

template<typename Function>
bool resolve(const Library &library, const char *name, Function &function)
{
    // By way of void *, for the compiler rightly warns of casts between unlike function types.
    function =
        reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(library.get(), name)));
    if (function == nullptr) {
        std::printf("libwdi.dll has no %s\n", name);
    }
    return function != nullptr;
}

bool resolve_all(const Library &library, usb::wdi::Functions &wdi)
{
    return resolve(library, "wdi_strerror", wdi.strError) &&
           resolve(library, "wdi_set_log_level", wdi.setLogLevel) &&
           resolve(library, "wdi_create_list", wdi.createList) &&
           resolve(library, "wdi_destroy_list", wdi.destroyList) &&
           resolve(library, "wdi_prepare_driver", wdi.prepareDriver) &&
           resolve(library, "wdi_install_driver", wdi.installDriver);
}

} // namespace

bool usb::has_driver_installer()
{
    return true;
}

int usb::install_driver(unsigned short vendorId, unsigned short productId,
                        unsigned char interfaceNumber, bool composite, char *deviceDescription)
{
    const Library library = open_libwdi();
    wdi::Functions functions{};
    if (!library || !resolve_all(library, functions)) {
        return InstallFailed;
    }
    return wdi::install(functions, vendorId, productId, interfaceNumber, composite,
                        deviceDescription);
}
