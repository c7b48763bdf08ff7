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
    # Without this it gives up on sources with precompiled headers.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${KORVANE_CCACHE}")
endif()

# Warnings and arithmetic for one target of ours. Results must not depend on whether the compiler fuses a multiply and
# an add, hence -ffp-contract=off. Nor may a double be widened from a float that was never rounded: GCC 12 leaves the
# rounding out where it makes vectors of straight code (loops are right), and only where pairs of floats fill a vector,
# which is not so on 32-bit x86. GCC leaves sign conversions out of -Wconversion in C++, Clang does not: both leave them
# out here. Clang sees through the links of the build's include tree, and takes <Korvane/...> for a misspelling where
# the checkout's own folder is called "korvane". The order of fields is checked with offsetof, in classes with a virtual
# table too, which both compilers support and GCC warns of.
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
