# Rooms: one folder, one OBJECT library.
#
#   korvane_room(<folder> SOURCES <file>... HEADERS <file>...)
#
# makes the OBJECT library room_<name>; the name is the folder's in lower case, its parts but "Lib" joined by "_"
# ("Dicom/Lib/stream" is room_dicom_stream).
# HEADERS are the public headers: they are installed, and the umbrella headers list them. A header that only the room
# itself includes belongs to SOURCES.

function(korvane_room_name folder out)
    string(REPLACE "/Lib" "" name "${folder}")
    string(REPLACE "/" "_" name "${name}")
    string(TOLOWER "${name}" name)
    set(${out} "${name}" PARENT_SCOPE)
endfunction()

function(korvane_room folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;HEADERS")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "korvane_room(${folder}): what is ${arg_UNPARSED_ARGUMENTS}?")
    endif()
    korvane_room_name("${folder}" name)
    set(target room_${name})

    add_library(${target} OBJECT ${arg_SOURCES} ${arg_HEADERS})
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
    korvane_compile_settings(${target})
    if(NOT folder IN_LIST KORVANE_ARCHIVE_ROOMS)
        target_compile_definitions(${target} PRIVATE KORVANE_BUILDING)
    endif()
    if(folder IN_LIST KORVANE_PIXEL_ROOMS)
        target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O3>)
    endif()

    set_property(GLOBAL APPEND PROPERTY KORVANE_PRESENT_ROOMS "${folder}")
    list(TRANSFORM arg_HEADERS PREPEND "${folder}/")
    set_property(GLOBAL PROPERTY "KORVANE_HEADERS_${folder}" "${arg_HEADERS}")
endfunction()
