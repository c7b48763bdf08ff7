#include "Padding.h"

#include "VoxelDispatch.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

namespace korvane {

namespace {

std::optional<double> ReadWord(const DICOMObject& dataSet, Tag tag, bool isSigned) {
    const VR* const element = FindElement(dataSet, tag);
    if (element == nullptr || element->m_pData == nullptr || element->m_Length < 2) return std::nullopt;
    const auto word = platform::LoadLittle<std::uint16_t>(element->m_pData);
    return isSigned ? static_cast<double>(static_cast<std::int16_t>(word)) : word;
}

template <class T>
T LoadVoxel(std::span<const std::byte> voxels, std::size_t index) {
    T value;
    std::memcpy(&value, voxels.data() + index * sizeof value, sizeof value);
    return value;
}

template <class T>
MeasuredRange RangeOfReals(std::span<const std::byte> voxels, const Padding& padding) {
    constexpr double kMost = 9e18;
    MeasuredRange range;
    double smallest = std::numeric_limits<double>::max();
    double largest = std::numeric_limits<double>::lowest();
    for (std::size_t i = 0; i < voxels.size() / sizeof(T); ++i) {
        const auto value = static_cast<double>(LoadVoxel<T>(voxels, i));
        if (std::isnan(value)) continue;
        if (value >= padding.first && value <= padding.second) {
            ++range.padding;
            continue;
        }
        smallest = std::min(smallest, value);
        largest = std::max(largest, value);
    }
    if (smallest > largest) return range;
    range.smallest = static_cast<long long>(std::clamp(std::floor(smallest), -kMost, kMost));
    range.largest = static_cast<long long>(std::clamp(std::ceil(largest), -kMost, kMost));
    return range;
}

// Loops without branches, which become instructions for many voxels at a time. Few volumes have padding: it is looked for
// where the range says that there can be some.
template <class T>
MeasuredRange RangeOfIntegers(std::span<const std::byte> voxels, const Padding& padding) {
    using Limits = std::numeric_limits<T>;
    const std::size_t count = voxels.size() / sizeof(T);
    T smallest = Limits::max();
    T largest = Limits::min();
    for (std::size_t i = 0; i < count; ++i) {
        const T stored = LoadVoxel<T>(voxels, i);
        smallest = std::min(smallest, stored);
        largest = std::max(largest, stored);
    }
    MeasuredRange range;
    const double first = std::max(std::ceil(padding.first), static_cast<double>(smallest));
    const double last = std::min(std::floor(padding.second), static_cast<double>(largest));
    if (first <= last) {
        const auto low = static_cast<T>(first);
        const auto high = static_cast<T>(last);
        smallest = Limits::max();
        largest = Limits::min();
        for (std::size_t i = 0; i < count; ++i) {
            const T stored = LoadVoxel<T>(voxels, i);
            const bool isPadding = stored >= low && stored <= high;
            range.padding += isPadding ? 1 : 0;
            smallest = std::min(smallest, isPadding ? Limits::max() : stored);
            largest = std::max(largest, isPadding ? Limits::min() : stored);
        }
    }
    if (range.padding == count) return range;
    range.smallest = static_cast<long long>(static_cast<double>(smallest));  // exact: of 32 bits at most
    range.largest = static_cast<long long>(static_cast<double>(largest));
    return range;
}

}  // namespace

std::optional<double> ReadPaddingValue(const DICOMObject& dataSet, bool isSigned) {
    return ReadWord(dataSet, tags::PixelPaddingValue, isSigned);
}

std::optional<Padding> ReadPadding(const DICOMObject& dataSet, bool isSigned) {
    const std::optional<double> value = ReadPaddingValue(dataSet, isSigned);
    if (!value) return std::nullopt;
    const double limit = ReadWord(dataSet, tags::PixelPaddingRangeLimit, isSigned).value_or(*value);
    return Padding{std::min(*value, limit), std::max(*value, limit)};
}

MeasuredRange RangeOutside(VoxelType type, std::span<const std::byte> voxels, const Padding& padding) {
    MeasuredRange range;
    WithVoxelType(type, [&](auto zero) {
        using Voxel = decltype(zero);
        if constexpr (std::is_integral_v<Voxel>) {
            range = RangeOfIntegers<Voxel>(voxels, padding);
        } else {
            range = RangeOfReals<Voxel>(voxels, padding);
        }
    });
    return range;
}

}  // namespace korvane
