#!/bin/sh
# Builds the driver installer for 64-bit Windows: usage compile_for_windows.sh SOURCE_FOLDER WORK_FOLDER
# The records' size assertions are in the sources, so a wrong size does not compile. A missing
# cross-compiler is a failure: nobody else looks at the Windows half between releases.
set -eu

compiler=x86_64-w64-mingw32-g++-posix
objdump=x86_64-w64-mingw32-objdump
source=$1
work=$2

for tool in $compiler $objdump; do
    if ! command -v $tool >/dev/null; then
        echo "$tool is missing (Debian: g++-mingw-w64-x86-64-posix)" >&2
        exit 1
    fi
done

rm -rf "$work"
mkdir -p "$work"
cat >"$work/main.cpp" <<'END'
#include "platforminstaller.h"
static_assert(sizeof(void *) == 8, "the record sizes are those of 64-bit Windows");
int main()
{
    return usb::has_driver_installer() ? usb::install_driver(0x04b4, 0x00f3, 0, false, nullptr) : 1;
}
END

$compiler -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wconversion \
    -Wno-sign-conversion -Werror -I"$source" -static -o "$work/install.exe" \
    "$work/main.cpp" "$source/platforminstaller_windows.cpp" "$source/winusbinstall.cpp"

# The program must start where libwdi.dll is not, so it may need no library but Windows' own.
needed=$($objdump -p "$work/install.exe" | sed -n 's/^\tDLL Name: //p')
if [ -z "$needed" ]; then
    echo "install.exe imports nothing: has objdump's output changed?" >&2
    exit 1
fi
for library in $needed; do
    case $library in
    KERNEL32.dll | msvcrt.dll | api-ms-win-crt-*.dll) ;;
    *)
        echo "install.exe needs $library" >&2
        exit 1
        ;;
    esac
done
