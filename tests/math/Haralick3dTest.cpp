#include "math/EigenReference.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

Eigen::Matrix3Xd ToEigen(const std::vector<FPoint>& points) {
    Eigen::Matrix3Xd m(3, points.size());
    for (std::size_t i = 0; i < points.size(); ++i) m.col(static_cast<Eigen::Index>(i)) = D(points[i]);
    return m;
}

FPoint P(const Vector3d& v) {
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

// Points, moved by a random pose: `from` in a box of `size`, `to` with noise of `sigma` on each coordinate.
struct Sets {
    Sets(unsigned seed, int n, const Vector3d& size, double sigma = 0.0) : m_Generator(seed) {
        Eigen::Quaterniond turn(Normal(), Normal(), Normal(), Normal());
        m_Pose.topLeftCorner<3, 3>() = turn.normalized().toRotationMatrix();
        m_Pose.topRightCorner<3, 1>() = 100 * Random();
        for (int i = 0; i < n; ++i) {
            m_From.push_back(P(size.cwiseProduct(Random()) + Vector3d(20, -30, 40)));
            m_To.push_back(P(Move(m_From.back()) + sigma * Random()));
        }
    }

    Vector3d Move(const FPoint& p) const { return (m_Pose * D(p).homogeneous()).head<3>(); }
    double Normal() { return m_Normal(m_Generator); }
    Vector3d Random() { return {Normal(), Normal(), Normal()}; }
    int Count() const { return static_cast<int>(m_From.size()); }
    // How far the points are, on average, from where they should be.
    double Error(const FTransform& t) const {
        double sum = 0;
        for (const FPoint& p : m_From) {
            sum += ((ToEigen(t) * D(p).homogeneous()).head<3>() - Move(p)).squaredNorm();
        }
        return std::sqrt(sum / Count());
    }

    std::mt19937 m_Generator;
    std::normal_distribution<double> m_Normal;
    Matrix4d m_Pose = Matrix4d::Identity();
    std::vector<FPoint> m_From, m_To;
};

FTransform Fit(const Sets& sets) {
    return Haralick3d(sets.m_From.data(), sets.m_To.data(), sets.Count()).GetTransform();
}

double DifferenceFromUmeyama(const Sets& sets, const FTransform& found) {
    return (ToEigen(found) - reference::Pose(ToEigen(sets.m_From), ToEigen(sets.m_To))).cwiseAbs().maxCoeff();
}

}  // namespace

// Coordinates are rounded to float: 4e-6 at 100 mm. The pose itself is found to double precision, as Eigen finds it.
TEST(Haralick3d, RecoversPoses) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        const int n = 3 + static_cast<int>(seed % 10);
        // Boxes, plates and needles.
        const Vector3d size(50, seed % 3 == 0 ? 0.5 : 50, seed % 2 == 0 ? 50 : n == 3 ? 1 : 0);
        const double sigma = seed % 5 == 0 ? 0.001 : 0;
        const Sets sets(seed, n, size, sigma);
        const Haralick3d pose(sets.m_From.data(), sets.m_To.data(), n);
        EXPECT_LT(sets.Error(pose.GetTransform()), 2e-5 + 5 * sigma) << seed;
        EXPECT_TRUE(pose.GetTransform().IsRigid(1e-14) && !pose.IsMirrored()) << seed;
        const Vector3d moved = (ToEigen(pose.GetTransform()) * D(sets.m_From[2]).homogeneous()).head<3>();
        EXPECT_NEAR(pose.GetErrors()[2], (moved - D(sets.m_To[2])).norm(), 1e-9);
        EXPECT_NEAR(pose.GetResidual(), pose.GetErrors().mod() / std::sqrt(n), 1e-9);
        EXPECT_EQ(pose.GetCount(), n);
        if (n == 3 || size.z() == 0) continue;  // where umeyama may mirror
        // The needles' conditioning apart.
        EXPECT_LT(DifferenceFromUmeyama(sets, pose.GetTransform()), seed % 3 == 0 ? 1e-8 : 1e-12) << seed;
    }
}

TEST(Haralick3d, PlanarAndMirroredSets) {
    for (unsigned seed = 0; seed < 100; ++seed) {
        Sets sets(seed, 6, Vector3d(50, 30, seed % 2 == 0 ? 0 : 20), 0.01);
        if (seed % 2 == 1) {
            for (FPoint& p : sets.m_From) p[2] = -p[2];
        }
        const Haralick3d pose(sets.m_From.data(), sets.m_To.data(), 6);
        EXPECT_TRUE(pose.GetTransform().IsRigid(1e-14)) << "never a mirroring";
        // A plane's points have a mirrored pose as good: it is not taken.
        EXPECT_EQ(pose.IsMirrored(), seed % 2 == 1);
        EXPECT_EQ(sets.Error(pose.GetTransform()) < 0.1, seed % 2 == 0);
        if (seed % 2 == 0) continue;
        EXPECT_LT(DifferenceFromUmeyama(sets, pose.GetTransform()), 1e-9) << "the best rotation all the same";
    }
}

TEST(Haralick3d, RefusesWhatDeterminesNothing) {
    Sets sets(1, 8, Vector3d(50, 50, 50));
    const Haralick3d good(sets.m_From.data(), sets.m_To.data(), 8);
    Haralick3d pose(good);
    for (const int few : {2, -1}) EXPECT_THROW(pose.Init(sets.m_From.data(), sets.m_To.data(), few), DimException);
    EXPECT_THROW(pose.Init(nullptr, sets.m_To.data(), 8), DimException);
    EXPECT_THROW(pose.Init(FMatrix(5, 3), FMatrix(4, 3)), DimException);
    const auto refused = [&pose](Sets s) { EXPECT_THROW(pose.Init(s.m_From.data(), s.m_To.data(), 8), ZeroException); };
    for (unsigned seed = 0; seed < 50; ++seed) {
        Sets line(seed, 8, Vector3d(0, 0, 0));
        refused(line);  // one place
        const Vector3d direction = line.Random();
        for (int i = 0; i < 8; ++i) {
            const double length = seed % 2 == 0 ? 30 : 0.5;  // skew, and so with rounding
            line.m_From[i] = P(Vector3d(500, -300, 100) + length * line.Normal() * direction);
            line.m_To[i] = P(line.Move(line.m_From[i]));
        }
        refused(line);
        Sets half(seed, 8, Vector3d(50, 50, 50));
        half.m_From = line.m_From;  // a line onto a cloud
        refused(half);
    }
    const FPoint cross[] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}};
    const FPoint unlike[] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, 1, 0}};
    EXPECT_THROW(pose.Init(cross, unlike, 4), ZeroException) << "alike along x alone";
    Sets nan(sets);
    nan.m_To[3][1] = NAN;
    refused(nan);
    EXPECT_EQ(ToEigen(pose.GetTransform()), ToEigen(good.GetTransform())) << "kept";
    EXPECT_EQ(pose.GetCount(), 8);
    // 0.1 mm off a line of 100 mm is enough.
    EXPECT_LT(Sets(3, 8, Vector3d(50, 0.1, 0)).Error(Fit(Sets(3, 8, Vector3d(50, 0.1, 0)))), 1e-4);
}

TEST(Haralick3dWeighted, WeighsAsVariancesSay) {
    double weighted = 0, plain = 0;
    for (unsigned seed = 0; seed < 300; ++seed) {
        Sets sets(seed, 10, Vector3d(50, 50, 50));
        FVector weights(10);
        for (int i = 0; i < 10; ++i) {
            const double sigma = i < 4 ? 0.1 : 1.0;
            sets.m_To[i] = P(sets.Move(sets.m_From[i]) + sigma * sets.Random());
            weights[i] = static_cast<float>(1 / (sigma * sigma));
        }
        const Haralick3dWeighted pose(sets.m_From.data(), sets.m_To.data(), weights, 10);
        weighted += std::pow(sets.Error(pose.GetTransform()), 2);
        plain += std::pow(sets.Error(Fit(sets)), 2);
    }
    EXPECT_LT(weighted, 0.2 * plain);
    Sets sets(5, 6, Vector3d(50, 50, 50));
    sets.m_To[1] = FPoint(1e6F, 0, 0);
    sets.m_To[4] = FPoint(0, 1e6F, 0);
    const float worthless[] = {1, 0, 1, 1, -3, 1};
    const Haralick3dWeighted pose(sets.m_From.data(), sets.m_To.data(), worthless, 6);
    EXPECT_LT(sets.Error(pose.GetTransform()), 1e-4) << "weights of 0 and less take no part";
    EXPECT_EQ(pose.GetWeights()[4], 0.0F);
    EXPECT_GT(pose.GetErrors()[4], 9e5F);
    const float few[] = {1, 0, 1, 0, NAN, 0};
    EXPECT_THROW(Haralick3dWeighted(sets.m_From.data(), sets.m_To.data(), few, 6), DimException);
}

// 30 % outliers of several kinds: anywhere near, far off, all moved alike, and all far off in one place, which a fit that
// begins with all points does not survive.
TEST(Haralick3dWeighted, SurvivesOutliers) {
    using Kind = std::function<FPoint(Sets&, const FPoint&)>;
    const Kind kinds[] = {[](Sets& s, const FPoint&) { return P(60 * s.Random()); },
                          [](Sets& s, const FPoint&) { return P(1e4 * s.Random()); },
                          [](Sets&, const FPoint& p) { return P(Vector3d(p[0] + 40, p[1], p[2])); },
                          [](Sets&, const FPoint&) { return FPoint(3e4F, 1e4F, -2e4F); },
                          [](Sets& s, const FPoint& p) { return P(Vector3d(p[0], p[1], p[2]) + 10 * s.Random()); }};
    constexpr double kSigma = 0.2;
    for (const int n : {10, 20, 200}) {
        for (const Kind& kind : kinds) {
            double robust = 0, clean = 0;
            int kept = 0;
            for (unsigned seed = 0; seed < 40; ++seed) {
                Sets sets(seed, n, Vector3d(60, 60, 60), kSigma);
                Sets good(sets);
                good.m_From.resize(n * 7 / 10), good.m_To.resize(n * 7 / 10);
                for (int i = n * 7 / 10; i < n; ++i) sets.m_To[i] = kind(sets, sets.m_To[i]);
                Haralick3dWeighted pose;
                pose.InitRobust(sets.m_From.data(), sets.m_To.data(), n);
                robust += std::pow(good.Error(pose.GetTransform()), 2);
                clean += std::pow(good.Error(Fit(good)), 2);
                for (int i = n * 7 / 10; i < n; ++i) {
                    kept += pose.GetErrors()[i] > 3 && pose.GetWeights()[i] > 0 ? 1 : 0;
                }
                EXPECT_NEAR(pose.GetDeviation(), 0.35, 0.3) << seed;
            }
            const std::string what = std::to_string(n) + " points, kind " + std::to_string(&kind - kinds);
            EXPECT_LT(robust / clean, n == 10 ? 2.0 : 1.3) << what;
            EXPECT_EQ(kept, 0) << what;
        }
    }
    // Exact points, of which single precision alone is left; and without outliers nothing is lost.
    Sets exact(7, 10, Vector3d(60, 60, 60));
    for (int i = 0; i < 3; ++i) exact.m_To[i] += 0.5;
    Haralick3dWeighted pose;
    pose.InitRobust(exact.m_From.data(), exact.m_To.data(), 10);
    EXPECT_LT(exact.Error(pose.GetTransform()), 3e-5);
    EXPECT_EQ(pose.GetWeights()[0] + pose.GetWeights()[1] + pose.GetWeights()[2], 0.0F);
    EXPECT_GT(FVector(pose.GetWeights().GetPointer() + 3, 7).min(), 0.5F);
    for (const int few : {2, 0}) {
        EXPECT_THROW(pose.InitRobust(exact.m_From.data(), exact.m_To.data(), few), DimException);
    }
    const std::vector<FPoint> same(10, FPoint(1, 2, 3));
    EXPECT_THROW(pose.InitRobust(same.data(), same.data(), 10), ZeroException);
}
