# ftplib, as the interface target korvane-ftplib: Debian's libftp, on Windows the static one that
# cmake/windows/packages.sh makes.
find_path(KORVANE_FTPLIB_INCLUDE ftplib.h REQUIRED)
find_library(KORVANE_FTPLIB ftp REQUIRED)
mark_as_advanced(KORVANE_FTPLIB_INCLUDE KORVANE_FTPLIB)

add_library(korvane-ftplib INTERFACE)
target_include_directories(korvane-ftplib SYSTEM INTERFACE "${KORVANE_FTPLIB_INCLUDE}")
target_link_libraries(korvane-ftplib INTERFACE "${KORVANE_FTPLIB}")
if(WIN32)
    target_link_libraries(korvane-ftplib INTERFACE ws2_32)
endif()
