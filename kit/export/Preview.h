// A small picture of a volume file.
#pragma once

#include "../core/Watch.h"

#include <string>

namespace korvane {

class PreviewPlanes;
class SeriesVolume;

/// Throws `Error` of kind `Unsupported` for what makes no such planes.
void CheckPreview(const SeriesVolume& series);

/// Of a series that was placed and has rescales of its slices: reads its planes, brought to one. Throws `Error`.
PreviewPlanes ReadForPreview(SeriesVolume& series);

/// The bytes of a PNG file with the middle axial, coronal and sagittal plane of a volume side by side. It was loaded, or
/// placed, with `planes` of it. Changes the volume's spacing and its values to what pictures need. Throws `Error`.
std::string MakePreview(SeriesVolume& series, PreviewPlanes* planes, const Watch& watch);

}  // namespace korvane
