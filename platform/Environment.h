// What the process's surroundings say: environment variables, its own number, and the local time.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace platform {

/// The value of an environment variable; `found` tells a missing one from an empty one.
std::string GetEnvironment(const char* name, bool* found = nullptr);

/// The number of this process: another one in a child that was forked from it.
std::uint32_t ProcessNumber();

/// A point in time as the machine's local time.
std::tm LocalTime(std::time_t time);

/// The local time now by strftime's "%c", at most 128 characters.
std::string LocalTimeText();

}  // namespace platform
