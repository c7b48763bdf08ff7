// What the process's surroundings say: environment variables and the local time.
#pragma once

#include <string>

namespace platform {

/// The value of an environment variable; `found` tells a missing one from an empty one.
std::string GetEnvironment(const char* name, bool* found = nullptr);

/// The local time by strftime's "%c", at most 128 characters.
std::string LocalTimeText();

}  // namespace platform
