// Finds the DICOM files under paths and groups them into series.
#pragma once

#include "../core/Watch.h"
#include "../dataset/InputOptions.h"
#include "FoundFiles.h"

#include <string>
#include <vector>

namespace korvane {

/// Reads the headers of all files that the paths lead to (see `FindInputs`), on `jobs` threads (see `CountJobs`). Throws `Error` of kind
/// `NotFound` when a path does not exist.
FoundFiles FindSeries(const std::vector<std::string>& paths, const InputOptions& input, unsigned jobs,
                      const Watch& watch);

}  // namespace korvane
