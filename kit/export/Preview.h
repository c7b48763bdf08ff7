// A small picture of a volume file.
#pragma once

#include "../core/Watch.h"

#include <string>

namespace korvane {

class SeriesVolume;

/// The bytes of a PNG file with the middle axial, coronal and sagittal plane of a loaded volume side by side. Changes the
/// volume's spacing and its values to what pictures need. Throws `Error`: `Unsupported` for what makes no such planes.
std::string MakePreview(SeriesVolume& series, const Watch& watch);

}  // namespace korvane
