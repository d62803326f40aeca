# tallowick_add_test(<name> SOURCES ... LIBS ... LABELS ...)
# One Qt Test executable per unit, registered with CTest under the given labels:
#   unit        pure model tests, also run under the sanitizers
#   integration tests against the disposable MariaDB server
#   widget      widget tests on the offscreen platform

# Where the disposable servers keep their state when CTest starts them itself; the tests read the
# ports from there unless TALLOWICK_TEST_* is in the environment.
set(TALLOWICK_TEST_SERVER_DIR ${PROJECT_BINARY_DIR}/test-server)
set(TALLOWICK_TEST_ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TALLOWICK_TEST_SERVER_DIR=${TALLOWICK_TEST_SERVER_DIR}")

# Tests that need a server require this fixture, so a plain `ctest` starts and stops the servers.
function(tallowick_add_server_fixture)
    foreach(action start stop)
        add_test(NAME test_server_${action}
            COMMAND ${CMAKE_COMMAND} -DACTION=${action} -DSCRIPT=${PROJECT_SOURCE_DIR}/scripts/test-server
                    -DSTATE=${TALLOWICK_TEST_SERVER_DIR} -P ${PROJECT_SOURCE_DIR}/tests/support/TestServerFixture.cmake)
    endforeach()
    set_tests_properties(test_server_start PROPERTIES FIXTURES_SETUP test_server TIMEOUT 300)
    set_tests_properties(test_server_stop PROPERTIES FIXTURES_CLEANUP test_server)
endfunction()

# Marks tests as needing the disposable servers.
function(tallowick_needs_server)
    set_tests_properties(${ARGN} PROPERTIES FIXTURES_REQUIRED test_server ENVIRONMENT "${TALLOWICK_TEST_ENVIRONMENT}")
endfunction()

function(tallowick_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE tallowick_options Qt6::Test ${ARG_LIBS})
    add_test(NAME ${name} COMMAND ${name})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        LABELS "${ARG_LABELS}"
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "${TALLOWICK_TEST_ENVIRONMENT}")
    if("unit" IN_LIST ARG_LABELS)
        add_dependencies(unit_tests ${name})
    else()
        tallowick_needs_server(${name})
    endif()
endfunction()
