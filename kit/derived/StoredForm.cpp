#include "StoredForm.h"

#include "../core/Error.h"
#include "../study/VoxelDispatch.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace korvane {

namespace {

/// What a converter of one voxel gives, put into the words of the stored type.
template <class Voxel, class Stored, class Map>
void Fill(std::span<const std::byte> voxels, std::vector<std::byte>& pixels, Map map) {
    const std::size_t count = voxels.size() / sizeof(Voxel);
    pixels.resize(count * sizeof(Stored));
    for (std::size_t i = 0; i < count; ++i) {
        Voxel voxel;
        std::memcpy(&voxel, voxels.data() + i * sizeof voxel, sizeof voxel);
        const auto stored = static_cast<Stored>(map(voxel));
        std::memcpy(pixels.data() + i * sizeof stored, &stored, sizeof stored);
    }
}

bool Fits16(double smallest, double largest, VoxelType type) {
    return type == VoxelType::UInt16 ? smallest >= 0 && largest <= 65535 : smallest >= -32768 && largest <= 32767;
}

}  // namespace

double AsDecimal(double value) {
    std::string text = platform::FormatReal(value);
    char shorter[40];
    for (int digits = 15; text.size() > 16 && digits > 8; --digits) {
        std::snprintf(shorter, sizeof shorter, "%.*g", digits, value);
        text = shorter;
    }
    return platform::ParseReal(text);
}

/// Of the voxels that are finite numbers.
struct StoredForm::Range {
    double smallest = std::numeric_limits<double>::infinity();
    double largest = -std::numeric_limits<double>::infinity();
    bool whole = true;  ///< all of them are integers

    void Add(double value) {
        smallest = std::min(smallest, value);
        largest = std::max(largest, value);
        whole = whole && value == std::floor(value);
    }
};

StoredForm::StoredForm(VoxelType type, const PlaneOf& planeOf, std::size_t planes, const StoredLimits& limits)
    : m_Type(type), m_Stored(type), m_Replacement(limits.replaceNonFinite) {
    if (limits.exact) return;
    switch (type) {
    case VoxelType::Int8: m_Stored = VoxelType::Int16; break;  // nobody reads signed bytes
    case VoxelType::UInt8:
        if (!limits.holdsBytes) m_Stored = VoxelType::UInt16;
        break;
    case VoxelType::Int32: Choose<std::int32_t>(planeOf, planes, limits); break;
    case VoxelType::UInt32: Choose<std::uint32_t>(planeOf, planes, limits); break;
    case VoxelType::Float32: Choose<float>(planeOf, planes, limits); break;
    case VoxelType::Float64: Choose<double>(planeOf, planes, limits); break;
    case VoxelType::Int16:
    case VoxelType::UInt16:
    case VoxelType::Rgb24: break;
    }
}

template <class Voxel>
void StoredForm::Choose(const PlaneOf& planeOf, std::size_t planes, const StoredLimits& limits) {
    Range range;
    std::size_t first = 0;
    for (std::size_t plane = 0; plane < planes; ++plane) {
        const std::span<const std::byte> bytes = planeOf(plane);
        for (std::size_t at = 0; at < bytes.size(); at += sizeof(Voxel)) {
            Voxel voxel;
            std::memcpy(&voxel, bytes.data() + at, sizeof voxel);
            const auto value = static_cast<double>(voxel);
            if (std::isfinite(value)) {
                range.Add(value);
            } else if (++m_Replaced == 1) {
                first = plane;
            }
        }
    }
    if (m_Replaced > 0 && !m_Replacement) {
        throw Error(ErrorKind::Unsupported,
                    std::to_string(m_Replaced) + " voxels are no finite numbers, the first in plane " +
                        std::to_string(first) + " (from 0), and images hold none such: say what shall stand for them");
    }
    if (m_Replaced > 0) range.Add(*m_Replacement);
    for (const VoxelType type : {VoxelType::Int16, VoxelType::UInt16}) {
        if (!range.whole || !Fits16(range.smallest, range.largest, type)) continue;
        m_Stored = type;
        return;
    }
    Scale(range, limits);
}

/// Over the range of the values; signed ones and from 0 where no intercept can be said.
void StoredForm::Scale(const Range& range, const StoredLimits& limits) {
    const double largest = std::max(std::fabs(range.smallest), std::fabs(range.largest));
    double slope = limits.holdsIntercept ? (range.largest - range.smallest) / 65535 : largest / 32767;
    if (slope == 0) slope = limits.holdsIntercept ? 1 : largest;  // one value, which the intercept is
    const double intercept = limits.holdsIntercept ? range.smallest : 0;
    // A text of 16 characters with an exponent of three digits has no room for the precision that is needed.
    if (!std::isnormal(slope) || slope < 1e-90 || slope > 1e90) {
        throw Error(ErrorKind::Unsupported, "values from " + platform::FormatReal(range.smallest) + " to " +
                                                platform::FormatReal(range.largest) +
                                                " have a range that no rescale of an image can say");
    }
    m_bScaled = true;
    m_Stored = limits.holdsIntercept ? VoxelType::UInt16 : VoxelType::Int16;
    m_Scale = {AsDecimal(slope), AsDecimal(intercept)};
    // The ends of the range may be beside those of the stored values by what the texts are rounded.
    const double most = limits.holdsIntercept ? 65535 : 32767;
    const double least = limits.holdsIntercept ? 0 : -32767;
    const auto off = [&](double value) {
        const double stored = std::clamp(std::round((value - m_Scale.intercept) / m_Scale.slope), least, most);
        return std::fabs(stored * m_Scale.slope + m_Scale.intercept - value);
    };
    m_Error = std::max({std::fabs(m_Scale.slope) / 2, off(range.smallest), off(range.largest)});
    if (range.smallest == range.largest) m_Error = off(range.smallest);
}

Rescale StoredForm::Combine(const Rescale& rescale) const {
    if (!m_bScaled) return rescale;
    return {m_Scale.slope * rescale.slope, m_Scale.intercept * rescale.slope + rescale.intercept};
}

std::span<const std::byte> StoredForm::Convert(std::span<const std::byte> voxels) {
    if (m_Stored == m_Type) return voxels;
    WithVoxelType(m_Type, [&](auto zero) {
        using Voxel = decltype(zero);
        const bool isSigned = m_Stored == VoxelType::Int16;
        const double least = isSigned ? -32768 : 0, most = isSigned ? 32767 : 65535;
        const auto map = [&](Voxel voxel) {
            auto value = static_cast<double>(voxel);
            if (!std::isfinite(value)) value = m_Replacement.value_or(0);
            if (m_bScaled) value = std::round((value - m_Scale.intercept) / m_Scale.slope);
            return std::clamp(value, least, most);
        };
        isSigned ? Fill<Voxel, std::int16_t>(voxels, m_Pixels, map) : Fill<Voxel, std::uint16_t>(voxels, m_Pixels, map);
    });
    return m_Pixels;
}

}  // namespace korvane
