// Makes names of files from texts of data; nothing else in the Kit does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

/// Makes a name from an untrusted text that every system takes for one plain file: without separators, blanks, control
/// characters and signs that have a meaning to shells, in URLs or to a file system; not beginning with a dot or hyphen,
/// not ending in a dot, not the name of a Windows device; valid UTF-8 of at most `most` bytes. "" stays "". Two texts
/// may give the same name.
std::string MakeSafeName(std::string_view text, std::size_t most = 120);

/// The same number for the same text on every system (FNV-1a), another one for each `seed`: for names of what has no usable one.
std::uint64_t HashOfText(std::string_view text, std::uint64_t seed);

/// The name with A to Z in lower case. Names that some system takes for the same file, because it ignores case, give
/// the same result.
std::string FoldName(std::string_view name);

}  // namespace korvane
