#include "CClipLine.h"

#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// The first i of 0 to end for which the test holds; it holds for all that follow, and `end` counts as one of them. The
// guess is near, but off by a rounding or so; where it is far off (steps that vanish beside the start) the range is
// halved.
template <typename Test>
int FirstThat(Test test, double guess, int end) {
    int low = 0;  // everything before fails
    int high = end;
    const int near = std::clamp(platform::TruncateToInt32(guess), 0, end);
    for (int i = std::max(near - 1, 0); i < end && i - near < 3; ++i) {
        if (test(i)) {
            high = i;
            break;
        }
        low = i + 1;
    }
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (test(middle)) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return low;
}

}  // namespace

CClipLine::CClipLine() = default;
CClipLine::CClipLine(const CClipLine& other) = default;
CClipLine& CClipLine::operator=(const CClipLine& other) = default;
CClipLine::~CClipLine() = default;

CClipLine::CClipLine(const double (&low)[3], const double (&high)[3]) {
    SetBox(low, high);
}

void CClipLine::SetBox(const double (&low)[3], const double (&high)[3]) {
    std::copy_n(low, 3, m_Low);
    std::copy_n(high, 3, m_High);
}

bool CClipLine::Clip(const double (&start)[3], const double (&direction)[3], double& from, double& to) const {
    double enter = -std::numeric_limits<double>::infinity();
    double leave = std::numeric_limits<double>::infinity();
    for (int axis = 0; axis < 3; ++axis) {
        const double toLow = m_Low[axis] - start[axis];
        const double toHigh = m_High[axis] - start[axis];
        if (!(toLow <= toHigh) || !std::isfinite(start[axis]) || !std::isfinite(direction[axis])) {
            return false;
        }
        if (direction[axis] == 0) {
            if (toLow > 0 || toHigh < 0) return false;
            continue;
        }
        const auto [near, far] = std::minmax({toLow / direction[axis], toHigh / direction[axis]});
        enter = std::max(enter, near);
        leave = std::min(leave, far);
    }
    if (!(enter <= leave)) {
        return false;
    }
    from = enter;
    to = leave;
    return true;
}

bool CClipLine::ClipSamples(const double (&start)[3], const double (&step)[3], int count, int& first, int& last) const {
    int low = 0;
    int end = std::max(count, 0);
    for (int axis = 0; axis < 3; ++axis) {
        const double from = start[axis];
        const double by = step[axis];
        if (!(m_Low[axis] <= m_High[axis]) || !std::isfinite(from) || !std::isfinite(by)) {
            return false;
        }
        if (by == 0) {
            if (from < m_Low[axis] || from > m_High[axis]) return false;
            continue;
        }
        const double entry = by < 0 ? m_High[axis] : m_Low[axis];
        const double exit = by < 0 ? m_Low[axis] : m_High[axis];
        const auto entered = [&](int i) { return by < 0 ? from + i * by <= entry : from + i * by >= entry; };
        const auto left = [&](int i) { return by < 0 ? from + i * by < exit : from + i * by > exit; };
        low = std::max(low, FirstThat(entered, (entry - from) / by, end));
        end = std::min(end, FirstThat(left, (exit - from) / by, end));
    }
    if (low >= end) {
        return false;
    }
    first = low;
    last = end - 1;
    return true;
}
