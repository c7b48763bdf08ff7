#include "SystemError.h"

#include <cerrno>
#include <windows.h>

namespace platform {

bool FailWithSystemError() {
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: errno = ENOENT; break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_WRITE_PROTECT: errno = EACCES; break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: errno = ENOSPC; break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: errno = EEXIST; break;
    case ERROR_REQUEST_ABORTED: errno = EINTR; break;
    default: errno = EIO;
    }
    return false;
}

}  // namespace platform
