#include "FramePlaces.h"

#include <bit>
#include <cstdint>

namespace korvane {

namespace {

/// To the bit: -0 and 0 are printed as what they are.
template <std::size_t kCount>
bool AreSame(const std::array<double, kCount>& a, const std::array<double, kCount>& b) {
    using Bits = std::array<std::uint64_t, kCount>;
    return std::bit_cast<Bits>(a) == std::bit_cast<Bits>(b);
}

bool IsSamePlane(const FramePlace& a, const FramePlace& b) {
    return a.hasPosition == b.hasPosition && a.hasOrientation == b.hasOrientation && a.hasSpacing == b.hasSpacing &&
           a.sizeOf == b.sizeOf && AreSame(a.orientation, b.orientation) && AreSame(a.statedAxes, b.statedAxes) &&
           a.axesChanged == b.axesChanged && AreSame(a.spacing, b.spacing) && a.slope == b.slope &&
           a.intercept == b.intercept && a.hasRealWorld == b.hasRealWorld &&
           AreSame(std::array{a.realSlope, a.realIntercept}, std::array{b.realSlope, b.realIntercept}) &&
           a.hasOtherRealWorld == b.hasOtherRealWorld && a.isRealWorldPart == b.isRealWorldPart && a.unit == b.unit;
}

}  // namespace

FramePlaces::FramePlaces(const FramePlace& place, std::size_t count)
    : m_First{place.position, std::make_shared<const FramePlace>(place)}, m_Others(count - 1, m_First) {}

void FramePlaces::Add(const Entry& entry) {
    if (m_First.plane == nullptr) {
        m_First = entry;
    } else {
        m_Others.push_back(entry);
    }
}

void FramePlaces::Add(const FramePlace& place) {
    const std::shared_ptr<const FramePlace> before = GetCount() == 0 ? nullptr : EntryOf(GetCount() - 1).plane;
    const bool isSame = before != nullptr && IsSamePlane(*before, place);
    Add(Entry{place.position, isSame ? before : std::make_shared<const FramePlace>(place)});
}

void FramePlaces::Set(std::size_t frame, const FramePlace& place) {
    const bool isSame = frame > 0 && IsSamePlane(GetPlane(frame - 1), place);
    EntryOf(frame) = {place.position, isSame ? EntryOf(frame - 1).plane : std::make_shared<const FramePlace>(place)};
}

FramePlace FramePlaces::Get(std::size_t frame) const {
    FramePlace place = GetPlane(frame);
    place.position = GetPosition(frame);
    return place;
}

bool FramePlaces::ShareWith(const FramePlaces& met) {
    const std::shared_ptr<const FramePlace> own = m_First.plane;
    if (!IsSamePlane(*own, *met.m_First.plane)) return false;
    m_First.plane = met.m_First.plane;
    for (Entry& entry : m_Others) {
        if (entry.plane == own) entry.plane = m_First.plane;
    }
    return true;
}

}  // namespace korvane
