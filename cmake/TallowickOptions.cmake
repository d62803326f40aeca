# One interface target carries the language level, the warning set and the Qt defines;
# every library, executable and test links it.
add_library(tallowick_options INTERFACE)
target_compile_features(tallowick_options INTERFACE cxx_std_20)
target_compile_options(tallowick_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast)
# GCC 12 reports -Wrestrict inside libstdc++'s own string code at -O2 (a known false positive of
# that release), which would fail optimised builds of correct code.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(tallowick_options INTERFACE -Wno-restrict)
endif()
if(TALLOWICK_WERROR)
    target_compile_options(tallowick_options INTERFACE -Werror)
endif()
target_compile_definitions(tallowick_options INTERFACE QT_NO_CONTEXTLESS_CONNECT QT_NO_KEYWORDS)
target_include_directories(tallowick_options INTERFACE ${PROJECT_SOURCE_DIR}/src)

if(TALLOWICK_SANITIZE)
    target_compile_options(tallowick_options INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
                                                       -fno-sanitize-recover=all)
    target_link_options(tallowick_options INTERFACE -fsanitize=address,undefined)
endif()
