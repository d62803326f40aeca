# The version the program reports: the project's own, and in a git checkout what `git describe`
# says at configure time (scripts/package configures again, so a package names its commit).
# Outside git (a source tarball) it is the project's version alone.
set(TALLOWICK_GIT_DESCRIBE "")
find_package(Git QUIET)
if(GIT_FOUND AND EXISTS ${PROJECT_SOURCE_DIR}/.git)
    execute_process(COMMAND ${GIT_EXECUTABLE} describe --tags --always --dirty
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE TALLOWICK_GIT_DESCRIBE OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE describeStatus ERROR_QUIET)
    if(NOT describeStatus EQUAL 0)
        set(TALLOWICK_GIT_DESCRIBE "")
    endif()
endif()

if(TALLOWICK_GIT_DESCRIBE)
    set(TALLOWICK_VERSION_TEXT "${PROJECT_VERSION} (git ${TALLOWICK_GIT_DESCRIBE})")
    # Debian versions allow letters, digits and ".+~" here; a "-" would start a Debian revision.
    string(REGEX REPLACE "[^A-Za-z0-9.+~]" "." describeForDebian "${TALLOWICK_GIT_DESCRIBE}")
    set(TALLOWICK_PACKAGE_VERSION "${PROJECT_VERSION}+git.${describeForDebian}")
else()
    set(TALLOWICK_VERSION_TEXT "${PROJECT_VERSION}")
    set(TALLOWICK_PACKAGE_VERSION "${PROJECT_VERSION}")
endif()

# Only the files that include it rebuild when the version changes; configure_file leaves an
# unchanged header untouched.
configure_file(${PROJECT_SOURCE_DIR}/cmake/Version.h.in ${PROJECT_BINARY_DIR}/generated/version/Version.h @ONLY)
target_include_directories(tallowick_options INTERFACE ${PROJECT_BINARY_DIR}/generated)
