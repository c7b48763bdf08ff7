#include "platform/Connection.h"

#include <winsock2.h>

namespace platform {

void BreakConnection(int socket) {
    const auto handle = static_cast<SOCKET>(socket);
    shutdown(handle, SD_BOTH);
    CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr);  // shutdown() alone does not wake a call that waits already
}

}  // namespace platform
