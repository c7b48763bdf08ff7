#include <Korvane/kit/study/Padding.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <type_traits>
#include <vector>

using namespace korvane;

namespace {

template <class T>
VoxelType TypeOfValue() {
    if constexpr (sizeof(T) == 1) return std::is_signed_v<T> ? VoxelType::Int8 : VoxelType::UInt8;
    if constexpr (sizeof(T) == 2) return std::is_signed_v<T> ? VoxelType::Int16 : VoxelType::UInt16;
    return std::is_signed_v<T> ? VoxelType::Int32 : VoxelType::UInt32;
}

template <class T>
MeasuredRange RangeOneByOne(const std::vector<T>& values, const Padding& padding) {
    MeasuredRange range;
    for (const T value : values) {
        if (value >= padding.first && value <= padding.second) {
            ++range.padding;
        } else {
            range.Add({value, value});
        }
    }
    return range;
}

template <class T>
void ExpectSameRanges(const std::vector<T>& values, const Padding& padding) {
    const MeasuredRange range = RangeOutside(TypeOfValue<T>(), std::as_bytes(std::span(values)), padding);
    const MeasuredRange wanted = RangeOneByOne(values, padding);
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(values.size()));
    EXPECT_EQ(range.IsEmpty(), wanted.IsEmpty());
    EXPECT_EQ(range.smallest, wanted.smallest);
    EXPECT_EQ(range.largest, wanted.largest);
    EXPECT_EQ(range.padding, wanted.padding);
}

template <class T>
class RangeOfTest : public testing::Test {};
using Types = testing::Types<std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t, std::uint32_t>;
TYPED_TEST_SUITE(RangeOfTest, Types);

// Values on both sides of where the sign turns, in lengths that do and do not fill whole vectors.
TYPED_TEST(RangeOfTest, IsThatOfEachValueLookedAtAlone) {
    using Limits = std::numeric_limits<TypeParam>;
    const double low = Limits::min();
    const double high = Limits::max();
    const Padding paddings[] = {kNoPadding, {low, low}, {high, high}, {low, high}, {low - 7, 0}, {-0.5, 99.5}, {3, 2}};
    std::minstd_rand random(1);
    for (const std::size_t length : {0, 1, 2, 15, 16, 17, 63, 64, 1000}) {
        std::vector<TypeParam> values(length);
        for (TypeParam& value : values) value = static_cast<TypeParam>(random());
        for (const Padding& padding : paddings) ExpectSameRanges(values, padding);
        if (length == 0) continue;
        values.front() = Limits::max();
        values.back() = Limits::min();
        for (const Padding& padding : paddings) ExpectSameRanges(values, padding);
    }
}

}  // namespace
