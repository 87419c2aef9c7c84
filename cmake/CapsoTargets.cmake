# How every target of the project is compiled. Nothing here touches global flag strings.

set(CAPSO_WARNINGS
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
    -Wconversion -Wno-sign-conversion)

# Warnings, sanitizers and coverage for one target.
function(capso_target_defaults target)
    if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${CAPSO_WARNINGS}>)
        if(CAPSO_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
        if(CAPSO_SANITIZE)
            target_compile_options(${target} PRIVATE -fsanitize=${CAPSO_SANITIZE}
                                   -fno-omit-frame-pointer -fno-sanitize-recover=all)
            target_link_options(${target} PRIVATE -fsanitize=${CAPSO_SANITIZE})
        endif()
        if(CAPSO_COVERAGE)
            target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
            target_link_options(${target} PRIVATE --coverage)
        endif()
    endif()
    target_compile_definitions(${target} PRIVATE QT_DEPRECATED_WARNINGS)
endfunction()

# A module: one static library. It sees the headers of the modules that it links and of no
# other, so an include that the architecture forbids does not compile.
function(capso_module name)
    cmake_parse_arguments(MODULE "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(capso_${name} STATIC ${MODULE_SOURCES})
    target_include_directories(capso_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(capso_${name} PUBLIC ${MODULE_PUBLIC} PRIVATE ${MODULE_PRIVATE})
    capso_target_defaults(capso_${name})
endfunction()

# libusb's header without its library: the modules stop short of linking libusb, so that a test can
# answer their calls with a scripted one.
add_library(capso_libusb_header INTERFACE)
target_include_directories(capso_libusb_header SYSTEM INTERFACE ${LIBUSB_INCLUDE_DIRS})
