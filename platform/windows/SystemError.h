// Translates the errors of Windows calls into values of `errno`.
#pragma once

namespace platform {

/// Sets `errno` to the value that matches `GetLastError()`; errors that users are not told apart share EIO or the like.
/// Always returns false, so that a failing function can return the result.
bool FailWithSystemError();

}  // namespace platform
