// Distances beside a search for the nearest points.
#include "math/EigenReference.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

// Everything is a point and up to two directions, each with a range of parameters.
struct Thing {
    Vector3d base;
    std::vector<Vector3d> directions;
    double first;
    double last;
};

constexpr double kFar = 1e9;

Thing Make(const FVector& p) {
    return {D(p), {}, 0, 0};
}
Thing Make(const FLine& l) {
    return {D(l.GetP0()), {D(l.GetDirection())}, -kFar, kFar};
}
Thing Make(const FSegment& s) {
    return {D(s.GetP0()), {D(s.GetP1()) - D(s.GetP0())}, 0, 1};
}
Thing Make(const FPlane& p) {
    const Vector3d n = D(p);
    const Vector3d u = n.unitOrthogonal();
    return {-p[3] / n.squaredNorm() * n, {u, n.normalized().cross(u)}, -kFar, kFar};
}

// Least squares with bounds: of each parameter free, at its first or at its last value, the best that is allowed.
double Nearest(const Thing& a, const Thing& b) {
    const Vector3d w = b.base - a.base;
    const auto n = static_cast<int>(a.directions.size() + b.directions.size());
    Eigen::MatrixXd m(3, n);
    Eigen::VectorXd low(n), high(n);
    int k = 0;
    for (const Thing* thing : {&a, &b}) {
        for (const Vector3d& direction : thing->directions) {
            m.col(k) = thing == &a ? direction : Vector3d(-direction);
            low[k] = thing->first;
            high[k++] = thing->last;
        }
    }
    double best = INFINITY;
    for (int choice = 0; choice < std::lround(std::pow(3, n)); ++choice) {
        Eigen::VectorXd x(n);
        std::vector<int> open;
        for (int i = 0, rest = choice; i < n; ++i, rest /= 3) {
            x[i] = rest % 3 == 1 ? low[i] : rest % 3 == 2 ? high[i] : 0.0;
            if (rest % 3 == 0) open.push_back(i);
        }
        if (!open.empty()) x(open) = reference::PseudoInverse(m(Eigen::all, open)) * (w - m * x);
        if ((x.array() >= low.array() - 1e-12).all() && (x.array() <= high.array() + 1e-12).all()) {
            best = std::min(best, (w - m * x).norm());
        }
    }
    return best;
}

template <typename First, typename Second>
void Check(const First& a, const Second& b) {
    const double truth = Nearest(Make(a), Make(b));
    EXPECT_NEAR(Distance(a, b), truth, 1e-6 * std::max(truth, 1.0));
    EXPECT_EQ(Distance(b, a), Distance(a, b));
}

}  // namespace

TEST(Distance, OfEveryPair) {
    std::mt19937 generator(4);
    std::uniform_real_distribution<float> uniform(-50, 50);
    for (int round = 0; round < 300; ++round) {
        // In some rounds coordinates are few, so that objects are parallel, meet and lie on each other.
        const auto coordinate = [&] {
            return round % 2 == 0 ? uniform(generator) : std::round(uniform(generator) / 40);
        };
        const auto point = [&] { return FPoint(coordinate(), coordinate(), coordinate()); };
        const auto segment = [&] {
            FPoint from = point(), to = point();
            while (to == from) to = point();
            return FSegment(from, to);
        };
        const auto line = [&]() -> FLine { return segment(); };
        const auto plane = [&] { return FPlane(line()); };
        Check(static_cast<FVector>(point()), static_cast<FVector>(point()));
        Check(line(), static_cast<FVector>(point()));
        Check(plane(), static_cast<FVector>(point()));
        Check(segment(), static_cast<FVector>(point()));
        Check(line(), line());
        Check(line(), plane());
        Check(segment(), line());
        Check(segment(), plane());
        Check(segment(), segment());
        Check(plane(), plane());
    }
}

TEST(Distance, OfWhatHasNoDirection) {
    const FPoint p(3, 4, 0), origin;
    const FVector none = FVector3D().zero();
    const FLine dot(p, none), x(origin, static_cast<FVector>(FPoint(2, 0, 0)));
    EXPECT_EQ(Distance(dot, origin), 5.0F);
    EXPECT_EQ(Distance(FSegment(p, p), FSegment(origin, FPoint(-1, 0, 0))), 5.0F);
    for (const float of : {Distance(dot, x), Distance(x, dot), Distance(dot, FPlane(0, 2, 0, 0))}) EXPECT_EQ(of, 4.0F);
    EXPECT_EQ(Distance(FPlane(1e-20F, 0, 0, 1e-20F), p), 4.0F) << "short normals are normals";
    EXPECT_EQ(Distance(FPlane(), p), 0.0F);
    // Parallel but for rounding: the lines' meeting a million kilometres away is not what is asked for.
    EXPECT_EQ(Distance(x, FLine(FPoint(0, 7, 0), static_cast<FVector>(FPoint(1, 1e-7F, 0)))), 7.0F);
}
