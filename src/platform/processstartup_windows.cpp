#include "processstartup.h"

#include <QCoreApplication>

#include <windows.h>

namespace {

// The program may run as administrator, with the environment and the current folder of somebody who
// is none.
void load_libraries_from_own_folder()
{
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_APPLICATION_DIR);
    // Qt adds the program's folder when the application object is made. This takes everything else
    // away: QT_PLUGIN_PATH and a folder beside the program's.
    QCoreApplication::setLibraryPaths({});
    qunsetenv("QT_QPA_PLATFORM_PLUGIN_PATH");
}

bool is_redirected(DWORD stream)
{
    HANDLE handle = GetStdHandle(stream);
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

} // namespace

void platform::prepare_process()
{
    load_libraries_from_own_folder();
    if (is_redirected(STD_ERROR_HANDLE)) {
        // Without a console window Qt would send its messages to a debugger all the same.
        qputenv("QT_FORCE_STDERR_LOGGING", "1");
    }
}

void platform::drop_toolkit_options(int &argc, char **argv)
{
    if (argc > 1) {
        argc = 1;
        argv[argc] = nullptr;
    }
}
