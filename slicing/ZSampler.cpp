#include "ZSampler.h"

#include "PlaneOffsets.h"
#include "SliceKernels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace korvane_detail {

namespace {

// Samples nearer to a plane than this part of the gap are on it: their z is a rounded number.
constexpr double kOnPlane = 1e-4;

constexpr double kEven = 0.01;

double Shape(double t) {
    using C = ShapeConstants<double>;
    return t * ((C::kSquare - C::kCube * t) * t + C::kLinear);
}

}  // namespace

const char* ZSampler::Read(CVolume& volume) {
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    if (const char* failure = ReadPlaces(volume, dim[2])) {
        return failure;
    }
    m_Direction = m_Places.back().m_Z < m_Places.front().m_Z ? -1 : 1;
    for (const Place& place : m_Places) {
        m_Distances.push_back((place.m_Z - m_Places.front().m_Z) * m_Direction);
    }
    if (!std::is_sorted(m_Distances.begin(), m_Distances.end())) {
        return "volume with planes out of order";
    }
    const double voxel = (double{space[0]} + space[1]) / 2;
    ForgetRounding(PlaneOffsets::GetTolerance(volume));
    for (std::size_t k = 0; k < m_Places.size(); ++k) {
        const int plane = static_cast<int>(k);
        m_Samples.push_back({plane, plane, 0, m_Places[k].m_X, m_Places[k].m_Y, m_Places[k].m_Z});
    }
    SetSpacing(space[2] > 0 && std::isfinite(space[2]) ? space[2] : voxel);
    return nullptr;
}

const char* ZSampler::ReadPlaces(CVolume& volume, int count) {
    float origin[4];
    volume.GetOrigin(origin);
    for (int k = 0; k < count; ++k) {
        const CImagePlane& plane = *volume.GetPlane(k);
        if (plane.m_pData == nullptr) {
            return "volume without pixels";
        }
        const Place place = {double{plane.m_Org[0]} - origin[0], double{plane.m_Org[1]} - origin[1], plane.m_Org[2]};
        if (!std::isfinite(place.m_X + place.m_Y + place.m_Z)) {
            return "volume with a position that is not finite";
        }
        m_Places.push_back(place);
    }
    return nullptr;
}

// In a straight stack the planes' own x and y say nothing; a host that sets z alone leaves them 0.
void ZSampler::ForgetRounding(double tolerance) {
    const Place first = m_Places.front();
    const auto straight = [&](const Place& place) {
        return std::fabs(place.m_X - first.m_X) <= tolerance && std::fabs(place.m_Y - first.m_Y) <= tolerance;
    };
    if (std::all_of(m_Places.begin(), m_Places.end(), straight)) {
        for (Place& place : m_Places) {
            place.m_X = 0;
            place.m_Y = 0;
        }
    }
}

bool ZSampler::IsEven() const {
    const std::size_t count = m_Distances.size();
    const double gap = count > 1 ? m_Distances.back() / static_cast<double>(count - 1) : 1;
    for (std::size_t k = 0; k < count; ++k) {
        if (std::fabs(m_Distances[k] - static_cast<double>(k) * gap) > kEven * gap) return false;
    }
    return gap > 0;
}

bool ZSampler::IsUpright() const {
    return std::all_of(m_Places.begin(), m_Places.end(),
                       [](const Place& place) { return place.m_X == 0 && place.m_Y == 0; });
}

void ZSampler::UseTable(CVolume& volume) {
    volume.UpdateZInterpArray();
    m_Samples.clear();
    for (int i = 0; const ZInterpVector* record = volume.MapVoxToZInterp(i); ++i) {
        m_Samples.push_back(MakeSample(record->m_z * m_Direction));
    }
    SetSpacing(volume.GetVoxelSize());
}

ZSample ZSampler::MakeSample(double distance) const {
    const auto begin = m_Distances.begin();
    const auto next = std::upper_bound(begin, m_Distances.end(), distance);
    // Of planes that coincide the first one counts.
    const auto first = std::lower_bound(begin, next, next == begin ? 0 : *(next - 1) - kSamePlane);
    ZSample sample{static_cast<int>(first - begin), static_cast<int>(first - begin), 0, 0, 0, 0};
    double t = 0;
    if (next != begin && next != m_Distances.end() && *next - *first > kSamePlane) {
        t = (distance - *first) / (*next - *first);
        sample.m_High = static_cast<int>(next - begin);
    }
    if (t > 1 - kOnPlane) {
        sample.m_Low = sample.m_High;
        t = 0;
    } else if (t < kOnPlane) {
        sample.m_High = sample.m_Low;
        t = 0;
    }
    sample.m_Weight = Shape(t);
    const Place& low = m_Places[static_cast<std::size_t>(sample.m_Low)];
    const Place& high = m_Places[static_cast<std::size_t>(sample.m_High)];
    sample.m_X = low.m_X + t * (high.m_X - low.m_X);
    sample.m_Y = low.m_Y + t * (high.m_Y - low.m_Y);
    sample.m_Z = m_Places.front().m_Z + distance * m_Direction;
    return sample;
}

// `single`: where there is no distance to tell.
void ZSampler::SetSpacing(double single) {
    const double extent = std::fabs(m_Samples.back().m_Z - m_Samples.front().m_Z);
    m_Spacing = extent > 0 ? extent / static_cast<double>(m_Samples.size() - 1) : single;
}

}  // namespace korvane_detail
