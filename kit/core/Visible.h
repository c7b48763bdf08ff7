// Texts of unknown origin, made safe for a terminal.
#pragma once

#include "KitExport.h"

#include <string>
#include <string_view>

namespace korvane {

/// A text that is safe to print on one line: control characters (C0, DEL and C1) and bytes that are not valid UTF-8
/// become \xNN, line feeds, carriage returns and tabs \n, \r and \t, a backslash stays.
KORVANE_KIT std::string Visible(std::string_view text);

}  // namespace korvane
