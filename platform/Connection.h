// Ends a connection that another thread waits on.
#pragma once

namespace platform {

/// Makes calls that wait on the connected socket return: reading finds the end of the stream, writing fails. The socket
/// stays open; its owner closes it.
void BreakConnection(int socket);

}  // namespace platform
