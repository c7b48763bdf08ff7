#include "slicing/SliceKernels.h"

namespace korvane_detail {
SliceKernel GetWideNearestKernel(const SliceView& /*view*/) {
    return nullptr;
}
SliceKernel GetWideLinearKernel(const SliceView& /*view*/, bool /*shaped*/) {
    return nullptr;
}
}  // namespace korvane_detail
