#include "host/SeriesGeometry.h"

#include <gtest/gtest.h>

#include <vector>

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

TEST(SeriesGeometryTest, PositionsOfMicrometresStayApart) {
    const SeriesGeometry geometry = StudyGeometry(AxialAt({0, 0.004, 0.008, 0.012}));
    EXPECT_EQ(geometry.stacks.size(), 4U);
    EXPECT_EQ(geometry.volumes, 1U);
}

TEST(SeriesGeometryTest, AGapThatIsAMultipleTellsHowManySlicesAreMissing) {
    const SeriesGeometry geometry = StudyGeometry(AxialAt({0, 2, 4, 10, 12, 15, 17}));
    ASSERT_EQ(geometry.uneven.size(), 2U);
    EXPECT_EQ(geometry.uneven[0].index, 2U);
    EXPECT_EQ(geometry.uneven[0].missing, 2);
    EXPECT_EQ(geometry.uneven[1].index, 4U);
    EXPECT_EQ(geometry.uneven[1].missing, 0);
    EXPECT_DOUBLE_EQ(geometry.usualGap, 2);
}

TEST(SeriesGeometryTest, RoundedPositionsAreEven) {
    EXPECT_TRUE(StudyGeometry(AxialAt({0, 0.333, 0.667, 1, 1.333})).uneven.empty());
    EXPECT_FALSE(StudyGeometry(AxialAt({0, 5, 10, 15.2, 20.2})).uneven.empty());
}

TEST(SeriesGeometryTest, TiltIsTheAngleToTheNormalWhicheverWayTheNormalPoints) {
    std::vector<FramePlace> leaning = {At(0, 0, 0), At(0, 1, 10)};
    EXPECT_NEAR(StudyGeometry(leaning).tilt, 5.7106, 1e-3);
    for (FramePlace& place : leaning) place.orientation = {1, 0, 0, 0, -1, 0};
    EXPECT_NEAR(StudyGeometry(leaning).tilt, 5.7106, 1e-3);
    EXPECT_NEAR(StudyGeometry(AxialAt({3, 1, 2})).tilt, 0, 1e-9);
}

TEST(SeriesGeometryTest, SlicesWithoutPositionAreSetAside) {
    std::vector<FramePlace> places = AxialAt({0, 1, 2});
    places[1].hasPosition = false;
    const SeriesGeometry geometry = StudyGeometry(places);
    EXPECT_EQ(geometry.unplaced, std::vector<std::size_t>{1});
    EXPECT_EQ(geometry.stacks.size(), 2U);
}

TEST(SeriesGeometryTest, UnusableNumbersGiveAResult) {
    std::vector<FramePlace> places = AxialAt({0, 0, 1e300});
    for (FramePlace& place : places) place.orientation = {0, 0, 0, 0, 0, 0};
    EXPECT_EQ(StudyGeometry(places).stacks.size(), 2U);
    EXPECT_TRUE(StudyGeometry({}).stacks.empty());
}

TEST(SeriesGeometryTest, LabelsNameTheStrongestDirectionsFirst) {
    EXPECT_EQ(DirectionLabel(1, 0, 0), "L");
    EXPECT_EQ(DirectionLabel(0, 0, -1), "F");
    EXPECT_EQ(DirectionLabel(-0.2, 0.9, 0.05), "PR");
    EXPECT_EQ(DirectionLabel(0, -0.7071, 0.7071), "AH");
    EXPECT_EQ(DirectionLabel(0, 0, 0), "");
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
