// The arithmetic that both progress classes share.
#pragma once

#include "../base/Integer.h"

#include <cstdint>

namespace korvane_detail {

/// Adds `delta` to the work done and stores the new percentage of `total`, at most 100. Everything is 32 bits wide and
/// wraps around. False when the computed percentage is the stored one; compared before it is cut to 16 bits and
/// limited to 100, so that work beyond the total counts as a change each time.
inline bool AdvanceProgress(long& done, long total, long delta, short& percent) {
    const std::int32_t sum = platform::WrapAdd(platform::Low32(done), platform::Low32(delta));
    done = sum;
    const std::int32_t divisor = platform::Low32(total) == 0 ? 1 : platform::Low32(total);
    const std::int64_t quotient = static_cast<std::int64_t>(platform::WrapMultiply(sum, 100)) / divisor;
    const std::int32_t computed = platform::Low32(quotient);
    if (computed == percent) {
        return false;
    }
    percent = static_cast<short>(computed);
    if (percent > 100) {
        percent = 100;
    }
    return true;
}

}  // namespace korvane_detail
