#include "platform/Connection.h"

#include <sys/socket.h>

namespace platform {

void BreakConnection(int socket) {
    shutdown(socket, SHUT_RDWR);
}

}  // namespace platform
