#include <Korvane/kit/study/SeriesGeometry.h>

#include <gtest/gtest.h>

#include <vector>

using namespace korvane;

namespace {

FramePlace At(double x, double y, double z) {
    FramePlace place;
    place.hasPosition = true;
    place.hasOrientation = true;
    place.position = {x, y, z};
    return place;
}

std::vector<FramePlace> AxialAt(const std::vector<double>& heights) {
    std::vector<FramePlace> places;
    for (const double z : heights) places.push_back(At(0, 0, z));
    return places;
}

TEST(SeriesGeometryTest, StacksAscendAlongTheNormalWhateverTheListOrder) {
    const SeriesGeometry geometry = StudyGeometry(AxialAt({10, -5, 10.00001, 0, 5}));
    const std::vector<std::vector<std::size_t>> expected = {{1}, {3}, {4}, {0, 2}};
    EXPECT_EQ(geometry.stacks, expected);
    EXPECT_EQ(geometry.volumes, 2U);
    EXPECT_FALSE(geometry.complete);
    EXPECT_NEAR(geometry.smallestGap, 5, 1e-4);
    EXPECT_TRUE(geometry.uneven.empty());
}

// Micrometres stay apart, rounded positions are even, and a gap that is a multiple tells how many slices are missing.
TEST(SeriesGeometryTest, UnevenGapsTellWhatIsMissing) {
    using Gaps = std::vector<std::pair<std::size_t, int>>;
    const std::pair<std::vector<double>, Gaps> cases[] = {{{0, 0.004, 0.008, 0.012}, {}},
                                                          {{0, 0.333, 0.667, 1, 1.333}, {}},
                                                          {{0, 5, 10, 15.2, 20.2}, {{2, 0}}},
                                                          {{0, 2, 4, 10, 12, 15, 17}, {{2, 2}, {4, 0}}}};
    for (const auto& [heights, uneven] : cases) {
        const SeriesGeometry geometry = StudyGeometry(AxialAt(heights));
        Gaps found;
        for (const auto& gap : geometry.uneven) found.emplace_back(gap.index, gap.missing);
        EXPECT_EQ(found, uneven) << heights[1];
        EXPECT_EQ(geometry.stacks.size(), heights.size());
        EXPECT_NEAR(geometry.usualGap, heights[1], 0.01 * heights[1]);
    }
}

TEST(SeriesGeometryTest, TiltIsTheAngleToTheNormalWhicheverWayTheNormalPoints) {
    std::vector<FramePlace> leaning = {At(0, 0, 0), At(0, 1, 10)};
    for (const double column : {1.0, -1.0}) {
        for (FramePlace& place : leaning) place.orientation = {1, 0, 0, 0, column, 0};
        EXPECT_NEAR(StudyGeometry(leaning).tilt, 5.7106, 1e-3);
    }
}

// What one direction and one distance for all planes would get wrong.
TEST(SeriesGeometryTest, ErrorsOfAnEvenGridAreMeasured) {
    const SeriesGeometry leaning = StudyGeometry({At(0, 0, 0), At(3, 4, 10)});
    EXPECT_NEAR(leaning.sideways, 5, 1e-9);
    EXPECT_TRUE(IsSheared(leaning, 40));
    const SeriesGeometry rounded = StudyGeometry({At(0, 0, 0), At(0.05, 0, 10), At(0, 0.05, 20)});
    EXPECT_FALSE(IsSheared(rounded, 1));
    EXPECT_TRUE(IsSheared(rounded, 0.1));  // small pixels

    std::vector<double> drifting;
    for (int i = 0; i < 20; ++i) drifting.push_back(i);
    for (int i = 0; i < 20; ++i) drifting.push_back(drifting.back() + 1.009);
    const SeriesGeometry drift = StudyGeometry(AxialAt(drifting));
    EXPECT_TRUE(drift.uneven.empty() && IsUneven(drift));
    EXPECT_NEAR(drift.offEven, 0.009 * 19 * 20 / 39, 1e-3);
}

TEST(SeriesGeometryTest, UnusableSlicesAreSetAside) {
    std::vector<FramePlace> places = AxialAt({0, 0, 1e300});
    for (FramePlace& place : places) place.orientation = {0, 0, 0, 0, 0, 0};
    EXPECT_EQ(StudyGeometry(places).stacks.size(), 2U);
    places[1].hasPosition = false;
    EXPECT_EQ(StudyGeometry(places).unplaced, std::vector<std::size_t>{1});
    EXPECT_TRUE(StudyGeometry({}).stacks.empty());
}

TEST(SeriesGeometryTest, RunsAreFewAndLong) {
    using Runs = std::vector<std::pair<std::size_t, std::size_t>>;
    struct Case {
        std::vector<double> along;
        Runs runs;
    };
    for (const Case& c : {Case{{}, {}}, Case{{3}, {{0, 0}}}, Case{{0, 5, 10.004, 15}, {{0, 3}}},
                          Case{{0, 5, 10, 20, 25}, {{0, 2}, {3, 4}}}, Case{{0, 10, 15, 20}, {{0, 0}, {1, 3}}},
                          Case{{0, 5, 10, 12.5, 15, 17.5}, {{0, 1}, {2, 5}}}}) {
        EXPECT_EQ(EvenRuns(c.along), c.runs) << c.along.size();
    }
}

}  // namespace
