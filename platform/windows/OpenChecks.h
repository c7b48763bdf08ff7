// Makes the errors of opening a file on Windows the same as on POSIX.
#pragma once

#include <string>

namespace platform {

/// True, with `errno` EISDIR, for a directory.
bool RefuseDirectory(const std::wstring& path);

/// To be called after opening the path has failed: sets `errno` to ENAMETOOLONG where the system said that the path is
/// missing, but it is only too long.
void NameLength(const char* path);

}  // namespace platform
