# 64-bit Windows programs from Debian 12: the MinGW compilers with POSIX threads, and the libraries that
# packaging/windows/libraries has built and keeps in the user's cache folder.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

execute_process(
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/libraries --where
    OUTPUT_VARIABLE CAPSO_WINDOWS_LIBRARIES
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "The libraries for Windows are missing: packaging/windows/libraries builds them")
endif()
string(REPLACE "\n" ";" CAPSO_WINDOWS_LIBRARIES "${CAPSO_WINDOWS_LIBRARIES}")

set(CMAKE_FIND_ROOT_PATH ${CAPSO_WINDOWS_LIBRARIES} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config sees the libraries for Windows alone. libzip is a static one, so what it needs in turn is asked for too.
list(TRANSFORM CAPSO_WINDOWS_LIBRARIES APPEND /lib/pkgconfig OUTPUT_VARIABLE pkgconfig_folders)
list(JOIN pkgconfig_folders ":" pkgconfig_folders)
set(ENV{PKG_CONFIG_LIBDIR} ${pkgconfig_folders})
set(PKG_CONFIG_ARGN --static)

# zlib is Debian's and linked statically: left alone, CMake would choose the import library of its DLL.
set(ZLIB_LIBRARY /usr/x86_64-w64-mingw32/lib/libz.a CACHE FILEPATH "")
set(pkgcfg_lib_LIBZIP_z ${ZLIB_LIBRARY} CACHE FILEPATH "")

# Tests are run by wine.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine)
