#include "platform/Connection.h"

#include <winsock2.h>

namespace platform {

void BreakConnection(int socket) {
    const auto handle = static_cast<SOCKET>(socket);
    shutdown(handle, SD_BOTH);
    CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr);  // shutting down leaves a call that waits already waiting
}

}  // namespace platform
