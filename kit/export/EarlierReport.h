// What an earlier run has done already.
#pragma once

#include "../core/Watch.h"
#include "ExportAll.h"

#include <string>

namespace korvane {

/// Marks as whole the series of `report` that the report file at `path` calls written, in the same format and from the
/// same files, and whose outputs are there with the bytes that were written. A file that is not there marks none. Throws `Error`:
/// `Damaged` for a file that is no such report, `Disk`.
void PassOverWhole(ExportAllReport& report, const std::string& path, const Watch& watch);

}  // namespace korvane
