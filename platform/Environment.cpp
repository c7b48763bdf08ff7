#include "Environment.h"

namespace platform {

std::string LocalTimeText() {
    const std::tm parts = LocalTime(std::time(nullptr));
    char text[129];
    const std::size_t length = std::strftime(text, sizeof text, "%c", &parts);
    return std::string(text, length);
}

}  // namespace platform
