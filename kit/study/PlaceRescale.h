// Stored values to real ones.
#pragma once

#include "FramePlace.h"
#include "Volume.h"

namespace korvane {

/// What a frame's rescale says (PS3.3 C.7.6.16.2.9); stored values are real ones where it says nothing usable.
Rescale RescaleOf(const FramePlace& place);

/// False where it says something of which `RescaleOf` can make nothing.
bool IsRescaleUsable(const FramePlace& place);

/// The same, or the Real World Value Mapping (PS3.3 C.7.6.16.2.11) where there is no rescale. Windows are not of these values.
Rescale RealRescaleOf(const FramePlace& place);

}  // namespace korvane
