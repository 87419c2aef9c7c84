# capso_qt_test(name SOURCES a.cpp ... [LINKS lib ...] [LABELS l ...] [WRAPPER command ...]
#               [ENVIRONMENT VAR=value ...])
#
# Builds a Qt Test program and registers each of its test functions as a ctest test of its own, called
# NAME.FUNCTION. An update pauses for seconds because the device needs them; with a process for each
# function, many of them wait at the same time. WRAPPER is put in front of the program.
# CAPSO_SANITIZER_ENVIRONMENT is what every other test of the program needs in its environment too.
set(CAPSO_SANITIZER_ENVIRONMENT "")
if(CAPSO_SANITIZE MATCHES "thread")
    # Why: see the file.
    set(CAPSO_SANITIZER_ENVIRONMENT
        "TSAN_OPTIONS=ignore_noninstrumented_modules=1 suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp")
elseif(CAPSO_SANITIZE MATCHES "address")
    set(CAPSO_SANITIZER_ENVIRONMENT
        "ASAN_OPTIONS=fast_unwind_on_malloc=0:verify_asan_link_order=0" "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0")
endif()

function(capso_qt_test name)
    cmake_parse_arguments(TEST "" "" "SOURCES;LINKS;LABELS;WRAPPER;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE ${TEST_LINKS} Qt5::Test)
    capso_target_defaults(${name})

    set(list_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_functions.cmake)
    string(REPLACE ";" "|" wrapper "${TEST_WRAPPER}")
    set(environment QT_QPA_PLATFORM=offscreen ${CAPSO_SANITIZER_ENVIRONMENT} ${TEST_ENVIRONMENT})
    string(REPLACE ";" "|" environment "${environment}")
    string(REPLACE ";" "|" labels "${TEST_LABELS}")
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND}
            "-DPROGRAM=$<TARGET_FILE:${name}>" "-DNAME=${name}" "-DOUTPUT=${list_file}"
            "-DWRAPPER=${wrapper}" "-DENVIRONMENT=${environment}" "-DLABELS=${labels}"
            -P ${CMAKE_SOURCE_DIR}/cmake/ListQtTests.cmake
        BYPRODUCTS ${list_file}
        VERBATIM)
    # A program that was not built must not make its tests vanish from the summary.
    set(include_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_tests.cmake)
    file(WRITE ${include_file}
        "if(EXISTS \"${list_file}\")\n  include(\"${list_file}\")\n"
        "else()\n  add_test(${name}_NOT_BUILT ${name}_NOT_BUILT)\nendif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include_file})
endfunction()
