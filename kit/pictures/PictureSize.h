// How large pictures become.
#pragma once

#include "Slice.h"

namespace korvane {

/// How many times larger than `width` x `height` a picture becomes by the options `size`, `zoom` and `annotate`: small ones
/// grow by a whole factor before letters are set on them. Throws `Error` for what makes no picture, or one that is larger
/// than 65536 pixels.
double FindZoom(int width, int height, const SliceOptions& options);

}  // namespace korvane
