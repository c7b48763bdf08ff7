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

// Integers are compared as keys of the same order, in the form of which the baseline of x86 finds the smaller and the larger
// of 16 bytes at a time: 8 bits without a sign, 16 bits with one.
template <class T>
struct Key {
    using Word = std::make_unsigned_t<T>;
    using Type = std::conditional_t<sizeof(T) == 1, Word, std::make_signed_t<T>>;
    static constexpr Word kFlip =
        std::is_signed_v<T> == std::is_signed_v<Type> ? Word{0} : static_cast<Word>(Word{1} << (8 * sizeof(T) - 1));

    static Type Of(T value) { return static_cast<Type>(static_cast<Word>(value) ^ kFlip); }
    static T ValueOf(Type key) { return static_cast<T>(static_cast<Word>(static_cast<Word>(key) ^ kFlip)); }
};

// Of nothing: the lowest is above the highest.
template <class T>
struct KeyRange {
    using Type = typename Key<T>::Type;
    Type low = std::numeric_limits<Type>::max();
    Type high = std::numeric_limits<Type>::min();
};

// Loops without branches, which become instructions for many voxels at a time. Few volumes have padding: it is looked for
// where the range says that there can be some.
template <class T>
KeyRange<T> KeysOf(std::span<const std::byte> voxels) {
    KeyRange<T> range;
    for (std::size_t i = 0; i < voxels.size() / sizeof(T); ++i) {
        const auto key = Key<T>::Of(LoadVoxel<T>(voxels, i));
        range.low = std::min(range.low, key);
        range.high = std::max(range.high, key);
    }
    return range;
}

/// Of those that are not from `low` to `high`, which are counted.
template <class T>
KeyRange<T> KeysOutside(std::span<const std::byte> voxels, T low, T high, std::uint64_t& inside) {
    using KeyType = typename Key<T>::Type;
    const KeyType first = Key<T>::Of(low);
    const KeyType last = Key<T>::Of(high);
    KeyRange<T> range;
    const KeyRange<T> none;
    for (std::size_t i = 0; i < voxels.size() / sizeof(T); ++i) {
        const KeyType key = Key<T>::Of(LoadVoxel<T>(voxels, i));
        const bool isInside = key >= first && key <= last;
        inside += isInside ? 1 : 0;
        range.low = std::min(range.low, isInside ? none.low : key);
        range.high = std::max(range.high, isInside ? none.high : key);
    }
    return range;
}

template <class T>
MeasuredRange RangeOfIntegers(std::span<const std::byte> voxels, const Padding& padding) {
    const std::size_t count = voxels.size() / sizeof(T);
    KeyRange<T> keys = KeysOf<T>(voxels);
    MeasuredRange range;
    const double first = std::max(std::ceil(padding.first), static_cast<double>(Key<T>::ValueOf(keys.low)));
    const double last = std::min(std::floor(padding.second), static_cast<double>(Key<T>::ValueOf(keys.high)));
    if (first <= last) keys = KeysOutside<T>(voxels, static_cast<T>(first), static_cast<T>(last), range.padding);
    if (range.padding == count) return range;
    range.smallest =
        static_cast<long long>(static_cast<double>(Key<T>::ValueOf(keys.low)));  // exact: of 32 bits at most
    range.largest = static_cast<long long>(static_cast<double>(Key<T>::ValueOf(keys.high)));
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
