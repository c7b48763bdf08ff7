#include "PlaneOffsets.h"

#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace korvane_detail {

namespace {

PlaneOffset Mix(const PlaneOffsets::Knot& a, const PlaneOffsets::Knot& b, double z) {
    const double t = (z - a.m_Z) / (b.m_Z - a.m_Z);
    return {a.m_Offset.m_X + t * (b.m_Offset.m_X - a.m_Offset.m_X),
            a.m_Offset.m_Y + t * (b.m_Offset.m_Y - a.m_Offset.m_Y)};
}

bool Agree(const PlaneOffset& a, const PlaneOffset& b, double tolerance) {
    return std::fabs(a.m_X - b.m_X) <= tolerance && std::fabs(a.m_Y - b.m_Y) <= tolerance;
}

}  // namespace

StraightExtent FindStraightExtent(double plane0, double low, double high, double spacing) {
    const double below = std::max(std::ceil((plane0 - low) / spacing - kStraight), 0.0);
    const double above = std::max(std::ceil((high - plane0) / spacing - kStraight), 0.0);
    return {plane0 - below * spacing, platform::TruncateToInt32(below + above)};
}

double PlaneOffsets::GetTolerance(CVolume& volume) {
    float space[4];
    volume.GetSpacing(space);
    const double pixel = (double{space[0]} + space[1]) / 2;
    return pixel > 0 && std::isfinite(pixel) ? kStraight * pixel : kStraight;
}

bool PlaneOffsets::Read(CVolume& volume) {
    m_Knots.clear();
    int dim[4];
    float origin[4];
    volume.GetDimensions(dim);
    volume.GetOrigin(origin);
    const int count = std::min(dim[2], volume.GetPlaneCount());
    if (count < 2) {
        return true;
    }
    const double tolerance = GetTolerance(volume);
    const CImagePlane* const planes = volume.GetPlane(0);  // side by side
    const float* const first = planes->m_Org;
    bool upright = true;
    float sum = 0;  // not finite where a position is not
    for (int k = 0; k < count; ++k) {
        const float* const org = planes[k].m_Org;
        sum += 0 * org[0] + 0 * org[1] + 0 * org[2];
        upright = upright && Agree({org[0], org[1]}, {first[0], first[1]}, tolerance);
    }
    if (!std::isfinite(sum)) {
        return false;
    }
    if (upright) {
        return true;
    }
    for (int k = 0; k < count; ++k) {
        const float* const org = planes[k].m_Org;
        m_Knots.push_back({double{org[2]} - first[2], {double{org[0]} - origin[0], double{org[1]} - origin[1]}});
    }
    const auto lower = [](const Knot& a, const Knot& b) { return a.m_Z < b.m_Z; };
    const auto coincide = [](const Knot& a, const Knot& b) { return b.m_Z - a.m_Z <= kSamePlane; };
    std::stable_sort(m_Knots.begin(), m_Knots.end(), lower);
    m_Knots.erase(std::unique(m_Knots.begin(), m_Knots.end(), coincide), m_Knots.end());
    DropLine(tolerance);
    return true;
}

// Knots on the line from the first to the last say nothing that those two do not say.
void PlaneOffsets::DropLine(double tolerance) {
    if (m_Knots.size() < 2) {
        m_Knots.clear();  // planes that coincide: the first one counts, wherever it lies
        return;
    }
    const Knot first = m_Knots.front();
    const Knot last = m_Knots.back();
    const auto onLine = [&](const Knot& knot) { return Agree(knot.m_Offset, Mix(first, last, knot.m_Z), tolerance); };
    if (std::all_of(m_Knots.begin(), m_Knots.end(), onLine)) {
        m_Knots = {first, last};
    }
}

PlaneOffset PlaneOffsets::At(double z) const {
    if (IsUpright()) {
        return {};
    }
    const auto above = std::upper_bound(m_Knots.begin(), m_Knots.end(), z,
                                        [](double value, const Knot& knot) { return value < knot.m_Z; });
    const std::ptrdiff_t last = static_cast<std::ptrdiff_t>(m_Knots.size()) - 2;
    const std::ptrdiff_t low = std::clamp<std::ptrdiff_t>(above - m_Knots.begin() - 1, 0, last);
    return Mix(m_Knots[static_cast<std::size_t>(low)], m_Knots[static_cast<std::size_t>(low) + 1], z);
}

}  // namespace korvane_detail
