// For words that somebody has mistyped.
#pragma once

#include "KitExport.h"

#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// The word of a list that a mistyped one was probably meant to be; "" when none is near: a third of its letters may be wrong,
/// two at least.
KORVANE_KIT std::string NearestWord(std::string_view mistyped, const std::vector<std::string>& words);

}  // namespace korvane
