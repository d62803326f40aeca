# tallowick_add_test(<name> SOURCES ... LIBS ... LABELS ...)
# One Qt Test executable per unit, registered with CTest under the given labels:
#   unit        pure model tests, also run under the sanitizers
#   integration tests against the disposable MariaDB server
#   widget      widget tests on the offscreen platform
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
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
    if("unit" IN_LIST ARG_LABELS)
        add_dependencies(unit_tests ${name})
    endif()
endfunction()
