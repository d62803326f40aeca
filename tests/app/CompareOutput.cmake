# cmake -DPROGRAM=... -DARGS="a;b" -DEXPECTED=file -P CompareOutput.cmake
# Runs PROGRAM and requires exit status 0, empty standard error and standard output equal, byte
# for byte, to the EXPECTED file.
# Placeholders for values only known when the test runs (the disposable server's port and CA).
string(REPLACE "@TEST_PORT@" "$ENV{TALLOWICK_TEST_PORT}" ARGS "${ARGS}")
string(REPLACE "@TEST_STRICT_PORT@" "$ENV{TALLOWICK_TEST_STRICT_PORT}" ARGS "${ARGS}")
string(REPLACE "@TEST_CA@" "$ENV{TALLOWICK_TEST_CA}" ARGS "${ARGS}")
execute_process(
    COMMAND ${PROGRAM} ${ARGS}
    RESULT_VARIABLE status
    OUTPUT_VARIABLE output
    ERROR_VARIABLE errors)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "exit status ${status}\nstdout:\n${output}\nstderr:\n${errors}")
endif()
if(NOT errors STREQUAL "")
    message(FATAL_ERROR "unexpected standard error:\n${errors}")
endif()
if(NOT output STREQUAL expected)
    message(FATAL_ERROR "output differs from ${EXPECTED}:\n--- got ---\n${output}--- expected ---\n${expected}")
endif()
