# Tests and fuzz targets.
#
#   korvane_test(<room> SOURCES <file>... [LIBS <library>...])
#       test_<name>, a GoogleTest program on the module and the toolkit archive; ctest sees every case in it.
#   korvane_fuzz(<name> SOURCES <file>... [LIBS <library>...])
#       fuzz_<name>, a libFuzzer program; a no-op unless KORVANE_BUILD_FUZZ.

include(GoogleTest)

function(korvane_link_program target)
    korvane_compile_settings(${target})
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${target} PRIVATE ${ARGN} Korvane)
    if(TARGET KorvaneDicom)
        target_link_libraries(${target} PRIVATE KorvaneDicom)
    endif()
endfunction()

# The libraries under test are optimised. The tests' own code is not: it runs for moments only, and compiles in two
# thirds of the time.
function(korvane_test_options target)
    korvane_link_program(${target} ${ARGN})
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O0>)
endfunction()

# Where precompiled headers are on, GoogleTest's header is compiled once for all test programs. The presets for daily
# work have them off: editors and the lint pass GCC's commands to Clang, which cannot read GCC's precompiled headers.
function(korvane_share_test_header target)
    if(NOT TARGET korvane-test-header)
        set(source "${PROJECT_BINARY_DIR}/test_header.cpp")
        file(GENERATE OUTPUT "${source}" CONTENT "int main() {}\n")
        # An executable like the tests: the header must be compiled with the same options for position independent code.
        add_executable(korvane-test-header EXCLUDE_FROM_ALL "${source}")
        korvane_test_options(korvane-test-header GTest::gtest)
        target_precompile_headers(korvane-test-header PRIVATE <gtest/gtest.h>)
    endif()
    target_precompile_headers(${target} REUSE_FROM korvane-test-header)
endfunction()

function(korvane_test room)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
    if(NOT KORVANE_BUILD_TESTS)
        return()
    endif()
    korvane_room_name("${room}" name)
    add_executable(test_${name} ${arg_SOURCES})
    korvane_test_options(test_${name} ${arg_LIBS} GTest::gtest_main)
    korvane_share_test_header(test_${name})
    gtest_discover_tests(test_${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES TIMEOUT 120)
endfunction()

function(korvane_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
    if(NOT KORVANE_BUILD_FUZZ)
        return()
    endif()
    add_executable(fuzz_${name} ${arg_SOURCES})
    korvane_link_program(fuzz_${name} ${arg_LIBS})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
endfunction()
