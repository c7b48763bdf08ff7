# The products made of the rooms: the module Korvane, the toolkit archive KorvaneDicom, and the include tree
# <build>/include/Korvane, which looks like the installed one.

# Makes the "#include" lines for the public headers of the given rooms, in order.
function(korvane_include_lines out)
    set(lines "")
    foreach(room IN LISTS ARGN)
        get_property(headers GLOBAL PROPERTY "KORVANE_HEADERS_${room}")
        foreach(header IN LISTS headers)
            string(APPEND lines "#include \"${header}\"\n")
        endforeach()
    endforeach()
    set(${out} "${lines}" PARENT_SCOPE)
endfunction()

# Makes a folder of the include tree whose entries are links to those of the same folder in the sources, so that others
# can stand beside them.
function(korvane_link_entries folder)
    set(place "${PROJECT_BINARY_DIR}/include/Korvane/${folder}")
    cmake_path(GET folder PARENT_PATH outer)
    foreach(former "${PROJECT_BINARY_DIR}/include/Korvane/${outer}" "${place}") # an older build had a link here
        if(IS_SYMLINK "${former}")
            file(REMOVE "${former}")
        endif()
    endforeach()
    file(MAKE_DIRECTORY "${place}")
    file(GLOB entries RELATIVE "${PROJECT_SOURCE_DIR}/${folder}" "${PROJECT_SOURCE_DIR}/${folder}/*")
    foreach(entry IN LISTS entries)
        file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${folder}/${entry}" "${place}/${entry}" SYMBOLIC)
    endforeach()
endfunction()

# Hosts include headers of the toolkit by the paths that they had before they moved into sub-rooms: Dicom/Lib/NAME.h, and three
# in platform/. A header that forwards to the new place is written to each old path; the list of old paths goes to the global
# property KORVANE_OLD_PATHS.
function(korvane_old_paths)
    set(old Automation.h automation/values Export.h base CodecExport.h base)
    list(TRANSFORM old PREPEND platform/ AT 0 2 4)
    foreach(room IN LISTS KORVANE_TOOLKIT_ROOMS)
        get_property(headers GLOBAL PROPERTY "KORVANE_HEADERS_${room}")
        foreach(header IN LISTS headers)
            cmake_path(GET header FILENAME name)
            list(APPEND old "Dicom/Lib/${name}" "${room}")
        endforeach()
    endforeach()

    set(paths "")
    while(old)
        list(POP_FRONT old path room)
        cmake_path(GET path FILENAME name)
        cmake_path(GET path PARENT_PATH folder)
        file(RELATIVE_PATH way "/${folder}" "/${room}/${name}")
        file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/include/Korvane/${path}" CONTENT
             "// Moved: include <Korvane/@room@/@name@>.\n#pragma once\n\n#include \"@way@\"\n" @ONLY)
        list(APPEND paths "${path}")
    endwhile()
    set_property(GLOBAL PROPERTY KORVANE_OLD_PATHS "${paths}")
endfunction()

# Links each room into the include tree and writes the umbrella headers there. The list of all public headers goes to
# <build>/public-headers.txt, for the checks that go through them.
function(korvane_include_tree rooms)
    set(tree "${PROJECT_BINARY_DIR}/include/Korvane")
    file(MAKE_DIRECTORY "${tree}")
    foreach(room IN LISTS rooms)
        get_property(headers GLOBAL PROPERTY "KORVANE_HEADERS_${room}")
        list(APPEND public_headers ${headers})
        string(REGEX REPLACE "/.*" "" folder "${room}")
        if(NOT folder MATCHES "^(platform|Dicom)$") # these have headers at former places too
            file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${folder}" "${tree}/${folder}" SYMBOLIC)
        endif()
    endforeach()
    korvane_link_entries(Dicom/Lib)
    korvane_link_entries(platform)
    korvane_old_paths()

    file(CREATE_LINK "${PROJECT_SOURCE_DIR}/kit" "${tree}/kit" SYMBOLIC)

    set(module_rooms ${rooms})
    list(REMOVE_ITEM module_rooms ${KORVANE_ARCHIVE_ROOMS})
    korvane_include_lines(KORVANE_MODULE_INCLUDES ${module_rooms})
    korvane_include_lines(KORVANE_TOOLKIT_INCLUDES ${KORVANE_TOOLKIT_ROOMS})
    foreach(header Korvane Dicom Version)
        configure_file("${PROJECT_SOURCE_DIR}/cmake/${header}.h.in" "${tree}/${header}.h" @ONLY)
    endforeach()
    list(JOIN public_headers "\n" lines)
    file(WRITE "${PROJECT_BINARY_DIR}/public-headers.txt" "${lines}\n")
endfunction()

function(korvane_products)
    get_property(rooms GLOBAL PROPERTY KORVANE_PRESENT_ROOMS)
    korvane_include_tree("${rooms}")
    if(NOT rooms)
        return()
    endif()

    set(module_objects "")
    set(archive_objects "")
    foreach(room IN LISTS rooms)
        korvane_room_name("${room}" name)
        list(APPEND module_objects $<TARGET_OBJECTS:room_${name}>)
        if(room IN_LIST KORVANE_ARCHIVE_ROOMS)
            list(APPEND archive_objects $<TARGET_OBJECTS:room_${name}>)
        endif()
    endforeach()

    set(system_libraries ${CMAKE_DL_LIBS})
    if(WIN32)
        list(APPEND system_libraries ws2_32)
    endif()
    add_library(Korvane SHARED ${module_objects})
    add_library(Korvane::Korvane ALIAS Korvane)
    set_target_properties(Korvane PROPERTIES
        LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(NOT WIN32)
        # Hides the standard library's templates that the module instantiated: they are no part of its interface.
        set(version_script "${PROJECT_SOURCE_DIR}/cmake/Korvane.map")
        target_link_options(Korvane PRIVATE "LINKER:--version-script=${version_script}")
        # With Clang the sanitizers' runtime is linked into programs only, so the library has undefined symbols.
        if(NOT KORVANE_BUILD_FUZZ AND NOT (CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize"))
            target_link_options(Korvane PRIVATE LINKER:--no-undefined)
        endif()
        set_target_properties(Korvane PROPERTIES LINK_DEPENDS "${version_script}")
    else()
        set_target_properties(Korvane PROPERTIES PREFIX "")
        # A program with a libgcc of its own would not catch what the module throws.
        target_link_options(Korvane INTERFACE -shared-libgcc)
        korvane_ship_runtime()
    endif()
    if(export IN_LIST rooms)
        target_link_libraries(Korvane PRIVATE korvane-ftplib)
    endif()
    target_link_libraries(Korvane PRIVATE ${system_libraries})
    set(products Korvane)

    if(archive_objects)
        add_library(KorvaneDicom STATIC ${archive_objects})
        add_library(Korvane::Dicom ALIAS KorvaneDicom)
        set_target_properties(KorvaneDicom PROPERTIES LINKER_LANGUAGE CXX EXPORT_NAME Dicom)
        target_link_libraries(KorvaneDicom PUBLIC ${system_libraries})
        list(APPEND products KorvaneDicom)
    endif()

    foreach(product IN LISTS products)
        target_compile_features(${product} PUBLIC cxx_std_20)
        target_include_directories(${product} INTERFACE
            $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:include>)
        if(KORVANE_BUILD_FUZZ)
            target_link_options(${product} PRIVATE -fsanitize=address,undefined)
        endif()
    endforeach()
endfunction()

# On Windows: finds the compiler's runtime libraries that the module and every program share, sets KORVANE_RUNTIME to
# them, and copies them beside the programs.
function(korvane_ship_runtime)
    set(shipped "")
    foreach(file libgcc_s_dw2-1.dll libwinpthread-1.dll)
        execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${file}
                        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        file(REAL_PATH "${path}" path)
        file(COPY "${path}" DESTINATION "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
        list(APPEND shipped "${path}")
    endforeach()
    set_property(GLOBAL PROPERTY KORVANE_RUNTIME "${shipped}")
endfunction()

# Makes the Kit's library from the objects of its folder; its headers are listed in KORVANE_KIT_HEADERS.
function(korvane_kit_product)
    set(KORVANE_KIT_INCLUDES "")
    foreach(header IN LISTS KORVANE_KIT_HEADERS)
        string(APPEND KORVANE_KIT_INCLUDES "#include \"${header}\"\n")
    endforeach()
    configure_file("${PROJECT_SOURCE_DIR}/cmake/Kit.h.in" "${PROJECT_BINARY_DIR}/include/Korvane/Kit.h" @ONLY)
    list(JOIN KORVANE_KIT_HEADERS "\n" lines)
    file(WRITE "${PROJECT_BINARY_DIR}/kit-headers.txt" "${lines}\n")
    set_property(GLOBAL PROPERTY KORVANE_KIT_HEADERS "${KORVANE_KIT_HEADERS}")

    add_library(KorvaneKit SHARED $<TARGET_OBJECTS:korvane-kit-objects>)
    add_library(Korvane::Kit ALIAS KorvaneKit)
    set_target_properties(KorvaneKit PROPERTIES
        LINKER_LANGUAGE CXX EXPORT_NAME Kit VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    target_compile_features(KorvaneKit PUBLIC cxx_std_20)
    target_link_libraries(KorvaneKit PUBLIC Korvane PRIVATE KorvaneDicom JPEG::JPEG PNG::PNG ZLIB::ZLIB Threads::Threads)
    target_include_directories(KorvaneKit INTERFACE
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:include>)
    add_dependencies(KorvaneKit DcmCodec) # loaded at run time, so nothing else makes the build wait for it
    if(WIN32)
        set_target_properties(KorvaneKit PROPERTIES PREFIX "")
    else()
        set(version_script "${PROJECT_SOURCE_DIR}/cmake/KorvaneKit.map")
        target_link_options(KorvaneKit PRIVATE "LINKER:--version-script=${version_script}")
        set_target_properties(KorvaneKit PROPERTIES LINK_DEPENDS "${version_script}" INSTALL_RPATH "$ORIGIN")
    endif()
endfunction()
