# Toolchain: 32-bit Windows by Debian's MinGW-w64 cross compiler (posix threads).
#
# Arithmetic is done in SSE2 registers as on the other target, never on the x87 stack, whose extra digits would change
# results; callers may hand over a stack aligned to 4 bytes, hence -mstackrealign. libgcc is shared by the module and
# every program, since each static copy would have its own list of unwind tables and an exception thrown in the module
# would end the program instead of reaching its catch.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(KORVANE_TRIPLET i686-w64-mingw32)
set(CMAKE_C_COMPILER ${KORVANE_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KORVANE_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KORVANE_TRIPLET}-windres)

set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse -mstackrealign")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse -mstackrealign")
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static-libstdc++ -shared-libgcc")
endforeach()

# What Debian does not package for this target is made beside the build, once.
get_filename_component(KORVANE_WINDOWS_ROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/windows-packages" ABSOLUTE)
if("${CMAKE_CURRENT_LIST_DIR}/packages.sh" IS_NEWER_THAN "${KORVANE_WINDOWS_ROOT}/complete")
    execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/packages.sh" "${KORVANE_WINDOWS_ROOT}"
                    COMMAND_ERROR_IS_FATAL ANY)
endif()

set(CMAKE_FIND_ROOT_PATH "${KORVANE_WINDOWS_ROOT}" "/usr/${KORVANE_TRIPLET}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine.sh")
