// Points of time for logs.
#pragma once

#include <string>

namespace korvane {

/// Now, in UTC: "2026-01-31T12:00:00.000Z" (ISO 8601).
std::string TimeNow();

}  // namespace korvane
