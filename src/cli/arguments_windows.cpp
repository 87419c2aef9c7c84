#include "arguments.h"

#include <QString>

#include <windows.h>

#include <shellapi.h>

// What main() is given is in the code page of the process, which has not every letter.
std::vector<std::string> argumentsOf(int /*argc*/, char ** /*argv*/)
{
    int count = 0;
    LPWSTR *words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> result;
    for (int i = 1; words && i < count; ++i) {
        result.push_back(QString::fromWCharArray(words[i]).toStdString());
    }
    LocalFree(words);
    return result;
}
