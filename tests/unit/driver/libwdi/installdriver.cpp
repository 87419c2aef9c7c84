// Installs the driver as the program does, for ids, interface and "composite" or "single" of the
// command line, as often as they are given, and prints what each came to.

#include "platforminstaller.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int count, char **arguments)
{
    for (int at = 1; at + 3 < count; at += 4) {
        const auto number = [&](int offset, int base) {
            return static_cast<unsigned short>(std::strtoul(arguments[at + offset], nullptr, base));
        };
        const int result = usb::install_driver(
            number(0, 16), number(1, 16), static_cast<unsigned char>(number(2, 10)),
            std::strcmp(arguments[at + 3], "composite") == 0, nullptr);
        std::printf("result %d\n", result);
    }
    return 0;
}
