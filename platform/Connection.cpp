#include "Connection.h"

#if defined(_WIN32)
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

namespace platform {

#if defined(_WIN32)

void BreakConnection(int socket) {
    const auto handle = static_cast<SOCKET>(socket);
    shutdown(handle, SD_BOTH);
    CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr);  // shutting down leaves a call that waits already waiting
}

#else

void BreakConnection(int socket) {
    shutdown(socket, SHUT_RDWR);
}

#endif

}  // namespace platform
