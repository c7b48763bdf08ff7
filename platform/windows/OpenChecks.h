// What opening a file says here otherwise than on POSIX, made the same.
#pragma once

#include <string>

namespace platform {

/// True, with `errno` EISDIR, for a directory.
bool RefuseDirectory(const std::wstring& path);

/// After a failure to open the path: `errno` is ENAMETOOLONG where that is why the system calls it missing.
void NameLength(const char* path);

}  // namespace platform
