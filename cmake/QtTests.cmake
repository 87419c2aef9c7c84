# capso_qt_test(name SOURCES a.cpp ... [LINKS lib ...] [LABELS l ...] [WRAPPER command ...]
#               [ENVIRONMENT VAR=value ...] [WIDGETS])
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

# Where the program is optimized and its debug information is whole, a test needs neither.
function(capso_compile_quickly target)
    if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        target_compile_options(${target} PRIVATE -O1 -g1)
    endif()
endfunction()

# capso_test_defaults(target [WIDGETS]): how a target of the tests is compiled. WIDGETS: it links Qt Widgets. The headers
# that most tests need come precompiled, but in preset dev, where each file must include what it uses.
function(capso_test_defaults target)
    capso_target_defaults(${target})
    capso_compile_quickly(${target})
    target_link_libraries(${target} PRIVATE Qt::Test) # the precompiled headers are its, too
    if("WIDGETS" IN_LIST ARGN)
        target_precompile_headers(${target} REUSE_FROM capso_widget_test_headers)
    else()
        target_precompile_headers(${target} REUSE_FROM capso_test_headers)
    endif()
    # A source of the program is compiled as the program compiles it; clang-tidy, too, could not read gcc's headers.
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "^${CMAKE_SOURCE_DIR}/src/")
    set_source_files_properties(${sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    # What moc writes includes what it needs; mostly it is empty, and the headers would be read for nothing.
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${target}_autogen/mocs_compilation.cpp
        PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# capso_left_out(what reason): ctest names it, and why, below its summary.
function(capso_left_out what reason)
    add_test(NAME "${what}: ${reason}" COMMAND ${CMAKE_COMMAND} -E false)
    set_tests_properties("${what}: ${reason}" PROPERTIES DISABLED TRUE)
endfunction()

function(capso_qt_test name)
    cmake_parse_arguments(TEST "WIDGETS" "" "SOURCES;LINKS;LABELS;WRAPPER;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE ${TEST_LINKS} Qt::Test)
    if(TEST_WIDGETS)
        capso_test_defaults(${name} WIDGETS)
    else()
        capso_test_defaults(${name})
    endif()

    set(list_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_functions.cmake)
    # A program for another system is run by what its toolchain file names.
    set(wrapper ${TEST_WRAPPER} ${CMAKE_CROSSCOMPILING_EMULATOR})
    string(REPLACE ";" "|" wrapper "${wrapper}")
    set(environment QT_QPA_PLATFORM=offscreen ${CAPSO_SANITIZER_ENVIRONMENT} ${TEST_ENVIRONMENT})
    if(WIN32 AND CMAKE_CROSSCOMPILING)
        # Without a console Qt Test talks to the debugger; without a screen Qt does not ask Windows for fonts.
        list(APPEND environment QT_FORCE_STDERR_LOGGING=1 QT_QPA_FONTDIR=Z:/usr/share/fonts/truetype/liberation)
    endif()
    string(REPLACE ";" "|" environment "${environment}")
    string(REPLACE ";" "|" labels "${TEST_LABELS}")
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND}
            "-DPROGRAM=$<TARGET_FILE:${name}>" "-DNAME=${name}" "-DOUTPUT=${list_file}"
            "-DWRAPPER=${wrapper}" "-DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}" "-DENVIRONMENT=${environment}" "-DLABELS=${labels}"
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
