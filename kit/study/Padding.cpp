#include "Padding.h"

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

template <class T>
void Extend(MeasuredRange& range, std::span<const std::byte> voxels, const Padding& padding) {
    constexpr double kMost = 9e18;
    for (std::size_t at = 0; at + sizeof(T) <= voxels.size(); at += sizeof(T)) {
        T stored;
        std::memcpy(&stored, voxels.data() + at, sizeof stored);
        const auto value = static_cast<double>(stored);
        if (value >= padding.first && value <= padding.second) {
            ++range.padding;
        } else if (!std::isnan(value)) {
            range.smallest =
                std::min(range.smallest, static_cast<long long>(std::clamp(std::floor(value), -kMost, kMost)));
            range.largest =
                std::max(range.largest, static_cast<long long>(std::clamp(std::ceil(value), -kMost, kMost)));
        }
    }
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
    MeasuredRange range{std::numeric_limits<long long>::max(), std::numeric_limits<long long>::min()};
    switch (type) {
    case VoxelType::Int8: Extend<std::int8_t>(range, voxels, padding); break;
    case VoxelType::UInt8: Extend<std::uint8_t>(range, voxels, padding); break;
    case VoxelType::Int16: Extend<std::int16_t>(range, voxels, padding); break;
    case VoxelType::UInt16: Extend<std::uint16_t>(range, voxels, padding); break;
    case VoxelType::Int32: Extend<std::int32_t>(range, voxels, padding); break;
    case VoxelType::UInt32: Extend<std::uint32_t>(range, voxels, padding); break;
    case VoxelType::Float32: Extend<float>(range, voxels, padding); break;
    case VoxelType::Float64: Extend<double>(range, voxels, padding); break;
    case VoxelType::Rgb24: break;
    }
    return range;
}

}  // namespace korvane
