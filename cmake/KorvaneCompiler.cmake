# Compiler settings that every target of the project shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

find_program(KORVANE_CCACHE ccache)
mark_as_advanced(KORVANE_CCACHE)
if(KORVANE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Without this setting ccache does not cache sources that use precompiled headers.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${KORVANE_CCACHE}")
endif()

# Warnings and arithmetic for one of the project's targets.
# - -ffp-contract=off: results must not depend on whether the compiler fuses a multiplication and an addition.
# - -fno-tree-slp-vectorize: GCC 12 may widen a float to a double without rounding it first where it makes vectors of
#   straight-line code (not of loops), if pairs of floats fill a vector, which they do not on 32-bit x86.
# - No sign conversions in -Wconversion: GCC leaves them out in C++, and Clang is made to do the same.
# - No -Wnonportable-include-path: Clang resolves the links of the build's include tree, and takes <Korvane/...> for a
#   misspelling where the checkout's folder is called "korvane".
# - No -Winvalid-offsetof: tests check the order of fields with offsetof in classes with a virtual table, which both
#   compilers support.
function(korvane_compile_settings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion -Wshadow -Wimplicit-fallthrough -Wundef
        -Wno-nonportable-include-path -Wno-invalid-offsetof
        -ffp-contract=off $<$<CXX_COMPILER_ID:GNU>:-fno-tree-slp-vectorize>)
    if(KORVANE_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(KORVANE_BUILD_FUZZ)
        target_compile_options(${target} PRIVATE
            -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
