// What a volume must have for its voxels to be moved onto another grid.
#pragma once

#include "PatientFrame.h"
#include "ZSampler.h"

namespace korvane_detail {

/// Null, or why the volume cannot be read; then the sampler has a sample for each plane, and the frame its axes.
const char* ReadReformatSource(CVolume& source, ZSampler& sampler, PatientFrame& frame);

}  // namespace korvane_detail
