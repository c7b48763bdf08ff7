// Findings as reports in JSON have them.
#pragma once

#include "../core/Finding.h"

#include <nlohmann/json_fwd.hpp>

namespace korvane {

/// Kind and text, and those members that say something. Texts that are not UTF-8 are escaped.
nlohmann::ordered_json JsonOf(const Finding& finding);

}  // namespace korvane
