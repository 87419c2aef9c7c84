# Which Qt everything is built with. This is the one place of the build that knows; the targets are Qt::Core and so on.
# Qt 5 is what the program is made for; Qt 6 is for distributions that are leaving Qt 5. What the sources must know of
# the difference stands in src/usb/qtcompat.h.
set(CAPSO_QT 5 CACHE STRING "Major version of Qt: 5 or 6")
set_property(CACHE CAPSO_QT PROPERTY STRINGS 5 6)

if(CAPSO_QT STREQUAL "5")
    set(CAPSO_QT_MINIMUM 5.15)
elseif(CAPSO_QT STREQUAL "6")
    set(CAPSO_QT_MINIMUM 6.4)
else()
    message(FATAL_ERROR "CAPSO_QT is '${CAPSO_QT}', but must be 5 or 6")
endif()

# capso_find_qt(Core Widgets ...)
macro(capso_find_qt)
    find_package(Qt${CAPSO_QT} ${CAPSO_QT_MINIMUM} REQUIRED COMPONENTS ${ARGN})
    if(TARGET Qt6::Test)
        capso_same_definitions_for_every_test(Qt6::Test)
    endif()
endmacro()

# Qt 6 defines for every test where its sources and its build are, for QFINDTESTDATA, which nothing here uses. Precompiled
# headers that were compiled with other definitions would be of no use to it.
function(capso_same_definitions_for_every_test target)
    get_target_property(definitions ${target} INTERFACE_COMPILE_DEFINITIONS)
    if(definitions)
        list(FILTER definitions EXCLUDE REGEX "^QT_TESTCASE_")
        set_target_properties(${target} PROPERTIES INTERFACE_COMPILE_DEFINITIONS "${definitions}")
    endif()
endfunction()
