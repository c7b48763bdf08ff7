// Series whose positions repeat: time series, echoes, repeated acquisitions.
#pragma once

#include "FoundFiles.h"

namespace korvane {

/// Slices of one volume share what their headers say about time, echo or acquisition, provided that this tells apart the
/// slices at each position and makes as many volumes as the largest position has slices. Where it does not, instance
/// numbers that count volume after volume do. Else the first slices in list order at each position are the first volume,
/// the next ones the second: a position that lacks one then has the others in the wrong volumes.
VolumeSets FindVolumes(const FoundFiles& found, const FoundSeries& series);

}  // namespace korvane
