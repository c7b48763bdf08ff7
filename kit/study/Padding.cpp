#include "Padding.h"

#include "VoxelDispatch.h"

#include "base/Bytes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

namespace korvane {

namespace {

template <class Word>
std::optional<Word> ReadWord(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    if (element == nullptr || element->m_pData == nullptr || element->m_Length < sizeof(Word)) return std::nullopt;
    return platform::LoadLittle<Word>(element->m_pData);
}

template <class Real, class Word>
std::optional<double> ReadReal(const DICOMObject& dataSet, Tag tag) {
    const std::optional<Word> word = ReadWord<Word>(dataSet, tag);
    return word ? std::optional<double>(std::bit_cast<Real>(*word)) : std::nullopt;
}

std::optional<double> ReadInteger(const DICOMObject& dataSet, Tag tag, bool isSigned) {
    const auto word = ReadWord<std::uint16_t>(dataSet, tag);
    if (!word) return std::nullopt;
    return isSigned ? static_cast<double>(static_cast<std::int16_t>(*word)) : *word;
}

// What the pixels are tells which of the elements counts.
std::optional<double> ReadEnd(const DICOMObject& dataSet, const PixelForm& form, bool isLimit) {
    switch (form.kind) {
    case PixelForm::Kind::Float:
        return ReadReal<float, std::uint32_t>(dataSet, isLimit ? tags::FloatPixelPaddingRangeLimit
                                                               : tags::FloatPixelPaddingValue);
    case PixelForm::Kind::Double:
        return ReadReal<double, std::uint64_t>(dataSet, isLimit ? tags::DoubleFloatPixelPaddingRangeLimit
                                                                : tags::DoubleFloatPixelPaddingValue);
    default:
        return ReadInteger(dataSet, isLimit ? tags::PixelPaddingRangeLimit : tags::PixelPaddingValue, form.isSigned);
    }
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

std::optional<double> ReadPaddingValue(const DICOMObject& dataSet, const PixelForm& form) {
    return ReadEnd(dataSet, form, false);
}

std::optional<Padding> ReadPadding(const DICOMObject& dataSet, const PixelForm& form) {
    const std::optional<double> value = ReadPaddingValue(dataSet, form);
    if (!value) return std::nullopt;
    const double limit = ReadEnd(dataSet, form, true).value_or(*value);
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
