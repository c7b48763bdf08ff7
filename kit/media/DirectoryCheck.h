// Examines the directory of a DICOM file-set.
#pragma once

#include "../core/Watch.h"
#include "Medium.h"

#include <string>

namespace korvane {

/// `CheckMedium` with a directory that may have another name.
MediumContents CheckDirectory(const std::string& root, const std::string& directory, MediumDepth depth,
                              const Watch& watch);

}  // namespace korvane
