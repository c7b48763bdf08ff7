#include "Environment.h"

#include <cstdlib>
#include <ctime>

#if defined(_WIN32)
#include "WideText.h"
#endif

namespace platform {

#if defined(_WIN32)

std::string GetEnvironment(const char* name, bool* found) {
    const wchar_t* const value = _wgetenv(WideText(name).c_str());
    if (found != nullptr) *found = value != nullptr;
    return value != nullptr ? NarrowText(value) : "";
}

#else

std::string GetEnvironment(const char* name, bool* found) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here writes the environment
    if (found != nullptr) *found = value != nullptr;
    return value != nullptr ? value : "";
}

#endif

std::string LocalTimeText() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
#if defined(_WIN32)
    localtime_s(&parts, &now);
#else
    localtime_r(&now, &parts);
#endif
    char text[129];
    const std::size_t length = std::strftime(text, sizeof text, "%c", &parts);
    return std::string(text, length);
}

}  // namespace platform
