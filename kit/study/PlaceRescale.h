// Stored values to real ones.
#pragma once

#include "FramePlace.h"
#include "Volume.h"

namespace korvane {

/// What a frame's rescale says (PS3.3 C.7.6.16.2.9); stored values are real ones where it says nothing usable.
Rescale RescaleOf(const FramePlace& place);

}  // namespace korvane
