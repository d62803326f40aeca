# cmake -DPROGRAM=... -DARGS="a;b" -DEXPECTED=file -P CompareOutput.cmake
# Runs PROGRAM and requires exit status 0, empty standard error and standard output equal, byte
# for byte, to the EXPECTED file.
# Placeholders for values only known when the test runs (the disposable servers' ports and CA),
# from the environment scripts/test exports, or else from the servers' state folder.
function(server_value variable instance result)
    if(DEFINED ENV{${variable}})
        set(${result} "$ENV{${variable}}" PARENT_SCOPE)
    elseif(instance STREQUAL "ca")
        set(${result} "$ENV{TALLOWICK_TEST_SERVER_DIR}/tls/ca.pem" PARENT_SCOPE)
    else()
        file(STRINGS "$ENV{TALLOWICK_TEST_SERVER_DIR}/${instance}/port" port)
        set(${result} "${port}" PARENT_SCOPE)
    endif()
endfunction()
if(ARGS MATCHES "@TEST_")
    server_value(TALLOWICK_TEST_PORT tls port)
    server_value(TALLOWICK_TEST_STRICT_PORT strict strict_port)
    server_value(TALLOWICK_TEST_CA ca ca)
    string(REPLACE "@TEST_PORT@" "${port}" ARGS "${ARGS}")
    string(REPLACE "@TEST_STRICT_PORT@" "${strict_port}" ARGS "${ARGS}")
    string(REPLACE "@TEST_CA@" "${ca}" ARGS "${ARGS}")
endif()
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
