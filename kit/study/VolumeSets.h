// Series whose positions repeat: time series, echoes, repeated acquisitions.
#pragma once

#include "SeriesFinder.h"

#include <string>
#include <vector>

namespace korvane {

/// The volumes of a series, each with its slices in list order; one with all slices where no position repeats.
struct VolumeSets {
    std::vector<std::vector<SliceRef>> volumes;
    std::string order;  ///< what the volumes were told apart by, for the user; "" for a single one
};

/// Slices of one volume share what their headers say about time, echo or acquisition, provided that this tells apart the
/// slices at each position and makes as many volumes as the largest position has slices. Where it does not, instance
/// numbers that count volume after volume do. Else the first slices in list order at each position are the first volume,
/// the next ones the second: a position that lacks one then has the others in the wrong volumes.
VolumeSets FindVolumes(const FoundFiles& found, const FoundSeries& series);

}  // namespace korvane
