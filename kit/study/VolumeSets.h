// Series whose positions repeat: time series, echoes, repeated acquisitions.
#pragma once

#include "FoundFiles.h"

namespace korvane {

/// Candidates of `KeyCandidates` are tried in their order, then instance numbers that count volume after volume. One
/// becomes part of the key when it differs among images at one position and its volumes have most of the positions: what
/// varies with the slice does not. What images of one volume never differ in is a key too where it makes few volumes of some
/// positions. Then times that vary with the slice put images at each position into an order. Where some images still share position and key they are told apart by their order, the
/// first in list order being of the first volume: a guess.
VolumeSets FindVolumes(const FoundFiles& found, const FoundSeries& series);

}  // namespace korvane
