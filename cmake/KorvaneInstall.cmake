# Installation: lib/, include/Korvane/, bin/korvane, a CMake package and a pkg-config file.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Public headers keep their place under include/Korvane, since they include each other relatively.
function(korvane_install_headers)
    get_property(rooms GLOBAL PROPERTY KORVANE_PRESENT_ROOMS)
    foreach(room IN LISTS rooms)
        get_property(headers GLOBAL PROPERTY "KORVANE_HEADERS_${room}")
        foreach(header IN LISTS headers)
            cmake_path(GET header PARENT_PATH folder)
            install(FILES "${PROJECT_SOURCE_DIR}/${header}"
                    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Korvane/${folder}")
        endforeach()
    endforeach()
    foreach(header Korvane Dicom Version)
        install(FILES "${PROJECT_BINARY_DIR}/include/Korvane/${header}.h"
                DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Korvane")
    endforeach()
endfunction()

function(korvane_install)
    set(products Korvane)
    if(TARGET KorvaneDicom)
        list(APPEND products KorvaneDicom)
    endif()
    if(TARGET korvane-host)
        file(RELATIVE_PATH to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
        set_target_properties(korvane-host PROPERTIES INSTALL_RPATH "$ORIGIN/${to_lib}")
        install(TARGETS korvane-host)
    endif()
    install(TARGETS ${products} EXPORT KorvaneTargets)
    # Beside the module Korvane, where the codec manager looks.
    if(TARGET DcmCodec)
        if(WIN32)
            install(TARGETS DcmCodec LIBRARY DESTINATION "${CMAKE_INSTALL_BINDIR}")
        else()
            install(TARGETS DcmCodec LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
        endif()
    endif()
    get_property(runtime GLOBAL PROPERTY KORVANE_RUNTIME)
    install(FILES ${runtime} DESTINATION "${CMAKE_INSTALL_BINDIR}")
    korvane_install_headers()

    set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Korvane")
    install(EXPORT KorvaneTargets NAMESPACE Korvane:: DESTINATION "${package_dir}")
    configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KorvaneConfig.cmake.in"
                                  "${PROJECT_BINARY_DIR}/KorvaneConfig.cmake" INSTALL_DESTINATION "${package_dir}")
    write_basic_package_version_file("${PROJECT_BINARY_DIR}/KorvaneConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
    install(FILES "${PROJECT_BINARY_DIR}/KorvaneConfig.cmake" "${PROJECT_BINARY_DIR}/KorvaneConfigVersion.cmake"
            DESTINATION "${package_dir}")

    # Relative to the file itself, so that an installed tree may be moved.
    file(RELATIVE_PATH KORVANE_PC_TO_PREFIX
         "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
    get_target_property(options Korvane INTERFACE_LINK_OPTIONS)
    if(WIN32)
        list(APPEND options -lws2_32)
    endif()
    if(options)
        list(JOIN options " " KORVANE_PC_LINK_OPTIONS)
    endif()
    configure_file("${PROJECT_SOURCE_DIR}/cmake/korvane.pc.in" "${PROJECT_BINARY_DIR}/korvane.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/korvane.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()
