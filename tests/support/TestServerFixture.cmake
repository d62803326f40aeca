# cmake -DACTION=start|stop -DSCRIPT=scripts/test-server -DSTATE=<folder> -P TestServerFixture.cmake
# Starts or stops the disposable servers around a plain `ctest`. When the caller already exported
# TALLOWICK_TEST_PORT (scripts/test does), the servers are the caller's and are left alone.
if(DEFINED ENV{TALLOWICK_TEST_PORT})
    return()
endif()
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env TALLOWICK_TEST_SERVER_DIR=${STATE} ${SCRIPT} ${ACTION}
    RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "scripts/test-server ${ACTION} failed (${status})")
endif()
