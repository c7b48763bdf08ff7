// Examines the directory of a DICOM file-set.
#pragma once

#include "../core/Watch.h"
#include "Medium.h"

#include <string>

namespace korvane {

/// As `CheckMedium`; `directory` is the path of the DICOMDIR, which may have another name.
MediumContents CheckDirectory(const std::string& root, const std::string& directory, MediumDepth depth,
                              const Watch& watch, const std::string& profile = {});

}  // namespace korvane
