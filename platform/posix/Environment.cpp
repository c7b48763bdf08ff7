#include "platform/Environment.h"

#include <cstdlib>
#include <unistd.h>

namespace platform {

std::string GetEnvironment(const char* name, bool* found) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here writes the environment
    if (found != nullptr) *found = value != nullptr;
    return value != nullptr ? value : "";
}

std::uint32_t ProcessNumber() {
    return static_cast<std::uint32_t>(getpid());
}

std::tm LocalTime(std::time_t time) {
    std::tm parts{};
    localtime_r(&time, &parts);
    return parts;
}

}  // namespace platform
