# Asks a Qt Test program for its test functions and writes one add_test() for each (see QtTests.cmake).
string(REPLACE "|" ";" wrapper "${WRAPPER}")
string(REPLACE "|" ";" environment "${ENVIRONMENT}")
string(REPLACE "|" ";" labels "${LABELS}")

# After its answer the program exits without destructors, so the temporary folders that a test object holds would stay.
set(temporary "${OUTPUT}.tmp")
file(MAKE_DIRECTORY "${temporary}")
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen "TMPDIR=${temporary}" ${EMULATOR} "${PROGRAM}" -functions
    OUTPUT_VARIABLE functions
    RESULT_VARIABLE result
    OUTPUT_STRIP_TRAILING_WHITESPACE)
file(REMOVE_RECURSE "${temporary}")
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NAME}: cannot list its test functions (${result})")
endif()

# Seconds; far more than any test takes on a machine of its own. It comes last: a run on simulated devices gives up
# earlier and says what it has seen (SimRun::finish()), then Qt Test does, after 300.
set(timeout 330)

set(script "")
string(REGEX MATCHALL "[A-Za-z_0-9]+\\(\\)" functions "${functions}")
foreach(function IN LISTS functions)
    string(REPLACE "()" "" function "${function}")
    set(test "${NAME}.${function}")
    set(command "")
    foreach(word IN LISTS wrapper)
        string(APPEND command " [==[${word}]==]")
    endforeach()
    string(APPEND script "add_test([==[${test}]==]${command} [==[${PROGRAM}]==] ${function})\n")
    string(APPEND script "set_tests_properties([==[${test}]==] PROPERTIES TIMEOUT ${timeout}")
    string(APPEND script " ENVIRONMENT [==[${environment}]==] LABELS [==[${labels}]==])\n")
endforeach()
file(WRITE "${OUTPUT}" "${script}")
