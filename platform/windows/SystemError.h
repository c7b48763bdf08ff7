// The errors of Windows' own calls, told as C's.
#pragma once

namespace platform {

/// Sets `errno` to what the system's last error comes to, as far as messages to users tell one from another; always
/// false, for a call to return.
bool FailWithSystemError();

}  // namespace platform
