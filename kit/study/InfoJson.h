// The findings of `korvane info` for programs.
#pragma once

#include <iosfwd>

namespace korvane {

struct FoundFiles;

/// One object: "schema" ("korvane.info"), "version" (1; it grows when a member changes its meaning or goes), counts, and
/// the series in the order of the text form. Lengths in millimetres, positions and directions in patient axes (LPS).
void WriteInfoJson(const FoundFiles& found, std::ostream& out);

}  // namespace korvane
