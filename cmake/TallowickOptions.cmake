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

# Each library's headers are reachable as "<folder>/Header.h" only through that library's own
# include folder, so a target sees the headers of exactly what it links: an include that crosses
# the layering (the interface reaching into the client, say) fails to compile.
function(tallowick_public_headers target folder)
    set(root ${PROJECT_BINARY_DIR}/include/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/src/${folder} ${root}/${folder} SYMBOLIC)
    target_include_directories(${target} PUBLIC ${root})
endfunction()

if(TALLOWICK_SANITIZE)
    target_compile_options(tallowick_options INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
                                                       -fno-sanitize-recover=all)
    target_link_options(tallowick_options INTERFACE -fsanitize=address,undefined)
endif()
