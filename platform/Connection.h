// Ends a connection that another thread waits on.
#pragma once

namespace platform {

/// Makes whoever waits on the connected socket return: reading meets the end, writing fails. The socket stays open, its
/// owner closes it.
void BreakConnection(int socket);

}  // namespace platform
