#include <Korvane/slicing/CClipLine.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <utility>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLow[3] = {0, 0, -2};
constexpr double kHigh[3] = {10, 5, 2};

using Line = double[3];

std::pair<double, double> Clip(const Line& start, const Line& direction) {
    std::pair<double, double> range = {-1, -2};
    const bool hit = CClipLine(kLow, kHigh).Clip(start, direction, range.first, range.second);
    EXPECT_EQ(hit, range.first <= range.second);
    return range;
}

const std::pair<double, double> kMissed = {-1, -2};

}  // namespace

TEST(CClipLine, GivesTheParametersInside) {
    EXPECT_EQ(Clip({-5, 1, 0}, {2.5, 0, 0}), std::pair(2.0, 6.0));
    EXPECT_EQ(Clip({15, 1, 0}, {-2.5, 0, 0}), std::pair(2.0, 6.0));
    EXPECT_EQ(Clip({0, 0, -2}, {1, 1, 1}), std::pair(0.0, 4.0));
    EXPECT_EQ(Clip({10, 7, 0}, {0, -1, 0}), std::pair(2.0, 7.0));  // within a face
    EXPECT_EQ(Clip({0, 10, 0}, {2, -1, 0}), std::pair(5.0, 5.0));  // through an edge
    EXPECT_EQ(Clip({1, 1, 1}, {0, 0, 0}), std::pair(-kInfinity, kInfinity));
    EXPECT_EQ(Clip({1, 5.1, 0}, {1, 0, 0}), kMissed);
    EXPECT_EQ(Clip({-1, 4.9, 0}, {1, 0.2, 0}), kMissed);
    for (const double bad : {kNaN, kInfinity}) EXPECT_EQ(Clip({bad, 1, 0}, {1, 0, 0}), kMissed);
    EXPECT_EQ(Clip({1, 1, 0}, {1, kNaN, 0}), kMissed);
    double from, to;
    EXPECT_FALSE(CClipLine(kHigh, kLow).Clip({5, 2, 0}, {1, 0, 0}, from, to));
}

TEST(CClipLine, SamplesOnTheBorderAreInside) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(-1, 1);
    const CClipLine box(kLow, kHigh);
    int hits = 0;
    for (int n = 0; n < 20000; ++n) {
        Line start, step;
        for (int axis = 0; axis < 3; ++axis) {  // multiples of a tenth: many samples meet a border, or miss it by a bit
            start[axis] = std::round(unit(random) * 100) * 0.1;
            step[axis] = n % 3 == axis ? 0 : std::round(unit(random) * 10) * 0.1;
        }
        int first = -1, last = -2, expectedFirst = -1, expectedLast = -2;
        for (int i = 0; i < 100; ++i) {
            bool inside = true;
            for (int axis = 0; axis < 3; ++axis) {
                const double at = start[axis] + i * step[axis];
                inside = inside && at >= kLow[axis] && at <= kHigh[axis];
            }
            if (inside) expectedFirst = expectedFirst < 0 ? i : expectedFirst;
            if (inside) expectedLast = i;
        }
        EXPECT_EQ(box.ClipSamples(start, step, 100, first, last), expectedFirst >= 0);
        ASSERT_EQ(std::pair(first, last), std::pair(expectedFirst, expectedLast)) << n;
        hits += expectedFirst >= 0 ? 1 : 0;
    }
    EXPECT_GT(hits, 1000);
}

TEST(CClipLine, StepsThatVanishEndSoon) {
    const CClipLine box(kLow, kHigh);
    constexpr int kMost = std::numeric_limits<int>::max();
    int first = 0, last = 0;
    EXPECT_TRUE(box.ClipSamples({-1e-9, 1, 0}, {1e-18, 0, 0}, kMost, first, last));
    EXPECT_NEAR(first, 1e9, 1);
    EXPECT_EQ(last, kMost - 1);
    EXPECT_TRUE(box.ClipSamples({9, 1, 0}, {1e-17, 1e-300, -0.0}, kMost, first, last));  // never leaves 9
    EXPECT_EQ(std::pair(first, last), std::pair(0, kMost - 1));
    EXPECT_FALSE(box.ClipSamples({1, 1, 0}, {kNaN, 0, 0}, 9, first, last));
    for (const int count : {0, -5}) EXPECT_FALSE(box.ClipSamples({1, 1, 0}, {1, 0, 0}, count, first, last));
}
