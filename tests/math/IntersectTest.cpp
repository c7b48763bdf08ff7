// Points, lines, planes, segments, and what joins them.
#include "math/MessageBuffer.h"
#include "math/Show.h"

#include <cmath>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

using Floats = std::vector<float>;

Floats E(const FVector& v) {
    return Floats(v.GetPointer(), v.GetPointer() + v.dim());
}

// Both rows of the matrix behind a line.
Floats Rows(const FLine& l) {
    Floats rows = E(l.GetP0());
    for (const float element : E(l.GetDirection())) rows.push_back(element);
    return rows;
}

// Both orders give the same rows and the same flag, which is the expected one.
template <typename First, typename Second>
Floats Joint(const First& a, const Second& b, bool parallel) {
    bool flag = !parallel;
    Floats rows = Rows(Intersect(a, b, flag));
    EXPECT_EQ(flag, parallel);
    flag = !parallel;
    if constexpr (!std::is_same_v<First, Second>) {
        EXPECT_EQ(Rows(Intersect(b, a, flag)), rows);
        EXPECT_EQ(flag, parallel);
        EXPECT_EQ(Dist(a, b), Dist(b, a));
    }
    return rows;
}

const FPoint kOrigin;
const FPoint kX(1, 0, 0), kY(0, 1, 0), kZ(0, 0, 1);

const FVector& V(const FPoint& p) {
    return p;
}

}  // namespace

TEST(Geometry, Points) {
    const FPoint p(1, 2, 3), q(10, 20, 40);
    FVector four(4), two(2);
    four = 7.0, two = 5.0;
    EXPECT_EQ(Show(FPoint(four), FPoint(two), FPoint()), "3 7 7 7;3 5 5 0;3 0 0 0;");
    static_assert(std::is_same_v<decltype(p + V(q)), FPoint> && std::is_same_v<decltype(p - V(q)), FPoint>);
    static_assert(std::is_same_v<decltype(p + q), FPoint> && std::is_same_v<decltype(p - q), FVector>);
    EXPECT_EQ(Show(q - p, p + q, p - V(q), p + 1), "3 9 18 37;3 11 22 43;3 -9 -18 -37;3 2 3 4;");
}

TEST(Geometry, Lines) {
    const FLine byVector(kX, V(kY)), byPoints(kX, FPoint(0, 1, 2));
    EXPECT_EQ(Rows(byVector), (Floats{1, 0, 0, 0, 1, 0}));
    EXPECT_EQ(Rows(byPoints), (Floats{1, 0, 0, -1, 1, 2}));
    const FLine tiny(kX, V(FPoint(0, 1e-11F, 0)));
    EXPECT_EQ(Show(byPoints.GetP1(), FLine(kX, FPoint(1, 3, 4)).GetVersor(), tiny.GetVersor()),
              "3 0 1 2;3 0 0.6 0.8;3 0 1e-11 0;");
    FLine common(FPlane(0, 0, 2, -6), FPlane(0, 3, 0, 6));  // z = 3, y = -2
    EXPECT_EQ(Rows(common), (Floats{0, -2, 3, -6, 0, 0}));
    common.Init(FPlane(0, 0, 1, 0), FPlane(0, 0, -2, 5));
    EXPECT_EQ(Rows(common), (Floats{0, -2, 3, -6, 0, 0})) << "parallel planes leave it as it was";
    EXPECT_EQ(Rows(FLine(FPlane(0, 0, 1, 0), FPlane(0, 0, 1, 5))), Floats(6, 0.0F));

    const FLine slanting(kOrigin, V(FPoint(1, 1, 1)));
    const auto off = static_cast<float>(std::sqrt(0.001 / 3.0 / 3.0));  // of which the versor's x makes sqrt(0.001 / 3)
    EXPECT_TRUE(slanting.IsPointOn(FPoint(0.99F * off, 100, -100))) << "y and z do not matter";
    EXPECT_FALSE(slanting.IsPointOn(FPoint(-1.01F * off, 0, 0)));
    EXPECT_FALSE(slanting.IsPointOn(FPoint(1, 1, 1)));
    Messages messages("Divisione per zero - ");
    EXPECT_THROW(static_cast<void>(byVector.IsPointOn(kX)), ZeroException);
    if (messages.IsFound()) {
        EXPECT_EQ(messages.Take(), "operator/(FVector,Fvector)");
    }
}

TEST(Geometry, SegmentsReadTheirSecondRowInTwoWays) {
    const FSegment byPoints(FPoint(5, 1, 1), FPoint(1, 1, 5));
    EXPECT_EQ(Rows(byPoints), (Floats{5, 1, 1, -4, 0, 4}));
    EXPECT_EQ(Show(byPoints.GetP1(), byPoints.GetMid()), "3 1 1 5;3 0.5 0.5 2.5;");
    EXPECT_EQ(byPoints.mod(), std::sqrt(91.0F)) << "from (5, 1, 1) to (-4, 0, 4)";
    EXPECT_EQ(FSegment(kX, V(FPoint(1, 3, 4))).mod(), 5.0F);
    const FPoint points[] = {{5, 1, 1},       {1, 1, 5},       {3, 1, 3},       {1.5F, 1, 1},
                             {0.9999F, 1, 3}, {5.0001F, 1, 3}, {3, 1.0001F, 3}, {3, 1, 5.1F}};
    for (const FPoint& point : points) EXPECT_EQ(byPoints.IsPointOn(point), &point < points + 4) << point;
    const FSegment diagonal(kOrigin, FPoint(1, 1, 1));
    const FLine& asLine = diagonal;
    EXPECT_TRUE(diagonal.IsPointOn(FPoint(1, 1, 1)));
    EXPECT_FALSE(asLine.IsPointOn(FPoint(1, 1, 1)));
    EXPECT_TRUE(asLine.IsPointOn(FPoint(0, 9, 9)));
    EXPECT_EQ(Rows(FSegment(FPlane(0, 0, 2, -6), FPlane(0, 3, 0, 6))), (Floats{0, -2, 3, -6, 0, 0}));
}

TEST(Geometry, Planes) {
    EXPECT_EQ(Show(FPlane(FPoint(1, 2, 3), FPoint(4, 5, 6)), FPlane(kX, kY, kZ)), "4 4 5 6 -32;4 1 1 1 -1;");
    EXPECT_EQ(E(FPlane(FLine(FPoint(1, 2, 3), V(FPoint(0, 0, -9))))), (Floats{0, 0, -1, 3}));
    const FPlane plane(2, -4, 6, 8);
    EXPECT_EQ(Show(FPlane(FVector(4).set(2)), plane.GetNormal(), plane.GetCoeff()), "4 2 2 2 2;3 2 -4 6;4 2 -4 6 8;");
    // No minus sign; only what equals 1e-8 is skipped, which 0 does not.
    EXPECT_EQ(E(plane.GetPoint()), (Floats{4, 0, 0}));
    EXPECT_EQ(E(FPlane(1e-8F, 2, 0, 4).GetPoint()), (Floats{0, 2, 0}));
    EXPECT_EQ(E(FPlane(1e-8F, 1e-8F, 1e-8F, 4).GetPoint()), (Floats{0, 0, 0}));
    EXPECT_EQ(FPlane(0, 0, 1, 5).GetPoint()[0], INFINITY);
    EXPECT_TRUE(FPlane(1, 0, 0, -1).IsPointOn(FPoint(1.0000005F, 9, 9)));
    EXPECT_FALSE(FPlane(1000, 0, 0, -1000).IsPointOn(FPoint(1.0000005F, 9, 9)));
    EXPECT_FALSE(FPlane(-1, 0, 0, 0).IsPointOn(kX));
    const FPlane none(kOrigin, FPoint(1, 1, 1), FPoint(2, 2, 2));
    EXPECT_TRUE(none.IsPointOn(FPoint(1, 2, 3)) && !FPlane(0, 0, 0, 2e-6F).IsPointOn(kX));
}

TEST(Intersect, PointsAndTheirFeet) {
    const FLine line(FPoint(0, 3, 0), V(FPoint(7, 0, 0)));
    EXPECT_EQ(Joint(line, V(FPoint(2, 5, 1)), false), (Floats{2, 5, 1, 0, -2, -1}));
    EXPECT_EQ(Dist(line, FPoint(2, 5, 1)), std::sqrt(57.0F)) << "|2 P - F|: row 1 is read as a point";
    const FPlane plane(0, 0, 2, -8);
    EXPECT_EQ(Joint(plane, V(FPoint(1, 2, 9)), false), (Floats{1, 2, 4, 1, 2, 9}));
    EXPECT_EQ(Dist(plane, FPoint(1, 2, 9)), 5.0F);
    EXPECT_EQ(Dist(FPoint(1, 2, 9), FPoint(1, 6, 6)), 5.0F);
    EXPECT_EQ(Joint(FPlane(0, 0, 0.0009F, 1), V(kX), true), (Floats{1, 0, 0, 1, 0, 0})) << "no plane: the point itself";

    const FSegment segment(FPoint(10, 0, 0), FPoint(20, 0, 0));
    EXPECT_EQ(Joint(segment, V(FPoint(12, 3, 0)), false), (Floats{12, 3, 0, 0, -3, 0}));
    EXPECT_EQ(Joint(segment, V(FPoint(23, 4, 0)), false), (Floats{23, 4, 0, -3, -4, 0}));
    EXPECT_EQ(Joint(segment, V(FPoint(9, 0, 0)), false), (Floats{9, 0, 0, 1, 0, 0})) << "the nearer end";
    // A foot that takes part in no rounding is found on its segment.
    const FSegment level(FPoint(0, 0.1F, 0.7F), FPoint(1, 0.1F, 0.7F));
    EXPECT_EQ(Joint(level, V(FPoint(0.3F, 5, 9)), false)[3], 0.0F);
}

TEST(Intersect, Lines) {
    const FLine x(kOrigin, V(kX));
    EXPECT_EQ(Joint(x, FLine(FPoint(2, 1, -5), V(kZ)), false), (Floats{2, 0, 0, 0, 1, 0})) << "exact without c's z";
    EXPECT_EQ(Dist(x, FLine(FPoint(2, 1, -5), V(kZ))), std::sqrt(5.0F));
    // c = (0, -0.8, 0.6): with its z, q would be 1 and t1 2.
    EXPECT_NEAR(Joint(x, FLine(FPoint(2, 0, 1), V(FPoint(0, 3, 4))), false)[0], 2 / 0.64, 1e-5);
    EXPECT_EQ(Joint(x, FLine(FPoint(3, 4, 0), V(FPoint(-5, 0, 0))), true), (Floats{0, 0, 0, 0, 4, 0}));
    EXPECT_EQ(Dist(FLine(FPoint(9, 1, 1), V(kX)), FLine(FPoint(3, 4, 5), V(kX))), 5.0F);
    EXPECT_EQ(Joint(x, FLine(FPoint(3, 4, 0), V(kY)), true), (Floats{0, 0, 0, 3, 0, 0}))
        << "z alone counts as parallel";
    Messages messages("Divisione per zero - ");
    bool flag = false;
    for (const FLine& other : {FLine(kX, V(kY)), FLine(kX, V(kZ)), FLine()}) {
        EXPECT_THROW(Intersect(FLine(kX, V(kOrigin)), other, flag), ZeroException);
        EXPECT_THROW(Dist(other, FLine(kX, V(kOrigin))), ZeroException);
        const std::string text = "Intersect(Line,Line): Retta non definita";
        if (messages.IsFound()) {
            EXPECT_EQ(messages.Take(), text + text);
        }
    }
}

TEST(Intersect, Planes) {
    const FLine line(FPoint(1, 2, 3), V(FPoint(0, 0, 2)));
    EXPECT_EQ(Joint(line, FPlane(0, 0, 3, -27), false), (Floats{1, 2, 9, 0, 0, 0}));
    EXPECT_EQ(Dist(line, FPlane(0, 0, 3, -27)), 0.0F);
    EXPECT_EQ(Joint(line, FPlane(-2, 0, 0, 10), true), (Floats{5, 2, 3, 0, 0, 0}));
    EXPECT_EQ(Dist(line, FPlane(-2, 0, 0, 10)), 4.0F);
    EXPECT_EQ(Joint(line, FPlane(-5e-4F, 0, 0, 10), true), (Floats{1, 2, 3, 0, 0, 0}));
    EXPECT_EQ(Dist(line, FPlane(0, 0, 0, 1)), 0.0F);

    const FPlane planes[] = {FPlane(1, 2, 3, 4), FPlane(-3, 1, 0.5F, 2), FPlane(0, 0, 4, -2), FPlane(5, 0, 0, 1)};
    for (const FPlane& a : planes) {
        for (const FPlane& b : planes) {
            if (a == b) continue;
            const Floats rows = Joint(a, b, false);
            const FLine common(FPoint(rows[0], rows[1], rows[2]), V(FPoint(rows[3], rows[4], rows[5])));
            EXPECT_EQ(E(common.GetDirection()), E(a.GetNormal() ^ b.GetNormal()));
            for (const FPlane& p : {a, b}) {
                EXPECT_NEAR(p.GetNormal() * common.GetP0() + p[3], 0, 2e-6);
                EXPECT_NEAR(p.GetNormal() * common.GetP1() + p[3], 0, 2e-5);
            }
            EXPECT_EQ(Dist(a, b), 0.0F);
        }
    }
    // Parallel ones are joined from the first one's `GetPoint()`, here (3, 0, 0).
    EXPECT_EQ(Joint(FPlane(1, 0, 0, 3), FPlane(2, 0, 0, -20), true), (Floats{10, 0, 0, 3, 0, 0}));
    EXPECT_EQ(Dist(FPlane(1, 0, 0, 3), FPlane(2, 0, 0, -20)), 7.0F);
}

TEST(Intersect, Segments) {
    const FSegment up(FPoint(0, 0, 1), FPoint(0, 0, 4));
    EXPECT_EQ(Joint(up, FLine(FPoint(1, 5, 2), V(kY)), false), (Floats{0, 0, 2, 1, 0, 0}));
    EXPECT_EQ(Joint(up, FLine(FPoint(1, 5, 9), V(kY)), false), (Floats{0, 0, 4, 1, 0, 5}))
        << "the smaller |2 P - F|: the first end has |(-1, 0, -7)|, the second |(-1, 0, -1)|";
    EXPECT_EQ(Joint(up, FPlane(0, 1, 1, -2), false), (Floats{0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(Joint(up, FPlane(0, 0, 2, -20), false), (Floats{0, 0, 10, 0, 0, 4}));
    EXPECT_EQ(Dist(up, FPlane(0, 0, 2, -20)), 6.0F);
    EXPECT_EQ(Joint(up, FPlane(1, 0, 0, -2), true), (Floats{2, 0, 1, 0, 0, 1})) << "the first of two ends";
    EXPECT_EQ(Joint(up, FSegment(FPoint(1, -1, 3), FPoint(1, 1, 3)), false), (Floats{0, 0, 3, 1, 0, 0}));
    EXPECT_EQ(Joint(up, FSegment(FPoint(1, 0, 3), FPoint(1, 0, 0)), true), (Floats{0, 0, 1, 1, 0, 0}));
    // The feet lie beyond the second: of the ends' results the one with the smallest |2 P - F|, though not the nearest.
    const FSegment aside(FPoint(1, 2, 3), FPoint(1, 5, 3));
    EXPECT_EQ(Joint(up, aside, false), (Floats{0, 0, 1, 1, 2, 2}));
    EXPECT_EQ(Dist(up, aside), std::sqrt(6.0F));
    EXPECT_EQ(Distance(up, aside), std::sqrt(5.0F));
}
