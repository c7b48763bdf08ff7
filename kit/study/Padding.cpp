#include "Padding.h"

#include "VoxelDispatch.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

namespace korvane {

namespace {

std::optional<double> ReadWord(const DICOMObject& dataSet, Tag tag, bool isSigned) {
    const VR* const element = FindElement(dataSet, tag);
    if (element == nullptr || element->m_pData == nullptr || element->m_Length < 2) return std::nullopt;
    const auto word = platform::LoadLittle<std::uint16_t>(element->m_pData);
    return isSigned ? static_cast<double>(static_cast<std::int16_t>(word)) : word;
}

// Ends are compared as what the voxels are, and become integers once.
template <class T>
MeasuredRange RangeOf(std::span<const std::byte> voxels, const Padding& padding) {
    constexpr double kMost = 9e18;
    MeasuredRange range;
    T smallest = std::numeric_limits<T>::max();
    T largest = std::numeric_limits<T>::lowest();
    bool isAny = false;
    for (std::size_t at = 0; at + sizeof(T) <= voxels.size(); at += sizeof(T)) {
        T stored;
        std::memcpy(&stored, voxels.data() + at, sizeof stored);
        const auto value = static_cast<double>(stored);
        if (std::isnan(value)) continue;
        if (value >= padding.first && value <= padding.second) {
            ++range.padding;
            continue;
        }
        smallest = std::min(smallest, stored);
        largest = std::max(largest, stored);
        isAny = true;
    }
    if (!isAny) return range;
    range.smallest = static_cast<long long>(std::clamp(std::floor(static_cast<double>(smallest)), -kMost, kMost));
    range.largest = static_cast<long long>(std::clamp(std::ceil(static_cast<double>(largest)), -kMost, kMost));
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
    WithVoxelType(type, [&](auto zero) { range = RangeOf<decltype(zero)>(voxels, padding); });
    return range;
}

}  // namespace korvane
