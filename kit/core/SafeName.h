// The one way from texts of data to names of files.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane {

/// A name that every system takes for one plain file, from a text that nobody vouches for: no separators, blanks, controls
/// or signs that shells, URLs and systems read something into; no dot or hyphen in front, no dot at the end, no device of
/// Windows; valid UTF-8 of at most `most` bytes. "" stays "". Two texts may give the same name.
std::string MakeSafeName(std::string_view text, std::size_t most = 120);

/// What two names have in common that some system would take for the same file: letters of A to Z in lower case.
std::string FoldName(std::string_view name);

}  // namespace korvane
