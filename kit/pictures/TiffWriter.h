// Values as TIFF files.
#pragma once

#include "../core/Watch.h"

#include <string>
#include <vector>

namespace korvane {

/// One plane of 32-bit floating-point values, rows from the top, deflated. `pixelSize`: millimetres, 0 where not known.
/// Throws `Error`, of kind `Unsupported` where this build has no library for it.
void WriteTiff(const std::vector<float>& values, int width, int height, double pixelSize, const std::string& path,
               const Watch& watch);

}  // namespace korvane
