#include "platform/Environment.h"

#include "WideText.h"

#include <cstdlib>
#include <process.h>

namespace platform {

std::string GetEnvironment(const char* name, bool* found) {
    const wchar_t* const value = _wgetenv(WideText(name).c_str());
    if (found != nullptr) *found = value != nullptr;
    return value != nullptr ? NarrowText(value) : "";
}

std::uint32_t ProcessNumber() {
    return static_cast<std::uint32_t>(_getpid());
}

std::tm LocalTime(std::time_t time) {
    std::tm parts{};
    localtime_s(&parts, &time);
    return parts;
}

}  // namespace platform
