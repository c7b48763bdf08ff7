#include "math/EigenReference.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>

namespace {

using Eigen::AngleAxisd;

constexpr double kPi = 3.141592653589793;

FVector V(double x, double y, double z) {
    return FPoint(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
}

double Difference(const FTransform& a, const FTransform& b) {
    return (ToEigen(a) - ToEigen(b)).cwiseAbs().maxCoeff();
}

class Numbers {
public:
    FVector Vector(double most = 1.0) { return V(most * Next(), most * Next(), most * Next()); }
    double Next() { return m_Uniform(m_Generator); }
    FTransform Rigid() { return FTransform(Vector(3.0), Vector(200.0)); }
    // Oblique voxels, as small as in microscopy.
    FTransform Voxels(double spacing) {
        FVector row = Vector(), column = Vector();
        column.add(row, -(row * column) / (row * row));
        return FTransform(row, column, Vector(500), spacing, spacing * 1.5, spacing * (Next() > 0 ? 3 : -3));
    }

private:
    std::mt19937 m_Generator{9};
    std::uniform_real_distribution<double> m_Uniform{-1.0, 1.0};
};

FMatrix Read(const std::string& text) {
    std::istringstream in(text);
    FMatrix m;
    in >> m;
    return m;
}

}  // namespace

TEST(FTransform, RotatesAsAngleAndAxisSay) {
    Numbers numbers;
    for (int i = 0; i < 100; ++i) {
        const FVector axis = numbers.Vector(10), center = numbers.Vector(100);
        const double angle = i < 20 ? 1e-9 * numbers.Next() : 10 * numbers.Next();
        const Eigen::Matrix3d truth = AngleAxisd(angle, D(axis).normalized()).toRotationMatrix();
        const Matrix4d about = ToEigen(FTransform(axis, angle, FPoint(center)));
        EXPECT_LT((about.topLeftCorner<3, 3>() - truth).cwiseAbs().maxCoeff(), 1e-15);
        EXPECT_LT((truth * D(center) + about.topRightCorner<3, 1>() - D(center)).norm(), 1e-13) << "the centre stays";

        const FVector angles = numbers.Vector(6), shift = numbers.Vector(100);
        const Matrix4d turned = ToEigen(FTransform(angles, shift));
        const Eigen::Matrix3d order =
            (AngleAxisd(angles[2], Vector3d::UnitZ()) * AngleAxisd(angles[1], Vector3d::UnitY()) *
             AngleAxisd(angles[0], Vector3d::UnitX()))
                .toRotationMatrix();
        EXPECT_LT((turned.topLeftCorner<3, 3>() - order).cwiseAbs().maxCoeff(), 1e-15);
        EXPECT_EQ((turned.topRightCorner<3, 1>()), D(shift));
    }
}

TEST(FTransform, DecomposesIntoAnglesThatMakeItAgain) {
    Numbers numbers;
    FVector angles, shift;
    for (int i = 0; i < 200; ++i) {
        FTransform t = numbers.Rigid();
        if (i % 4 == 1) {
            t = FTransform(V(numbers.Next(), i % 8 == 1 ? kPi / 2 : -kPi / 2, numbers.Next()), numbers.Vector());
        }
        t.Decompose(angles, shift);
        EXPECT_LT(Difference(t, FTransform(angles, shift)), 4e-7) << "as float angles have it";
        EXPECT_LE(std::fabs(angles[1]), static_cast<float>(kPi / 2));
        if (i % 4 == 1) {
            EXPECT_EQ(angles[2], 0.0F) << "x and z turn about the same axis";
        }
        // Scales aside.
        FMatrix scale(3, 3);
        scale.diag(0.01);
        scale[1][1] = 40.0F;
        FVector same;
        (t * FTransform(scale)).Decompose(same, shift);
        EXPECT_LT(Difference(FTransform(angles, shift), FTransform(same, shift)), 1e-6);
    }
    FMatrix mirror(3, 3);
    mirror.diag(-1);
    EXPECT_THROW(FTransform(mirror).Decompose(angles, shift), ZeroException);
    EXPECT_THROW(FTransform(mirror.zero()).Decompose(angles, shift), ZeroException);
}

// The mapping of PS3.3 C.7.6.2.1.1, written out.
TEST(FTransform, ImagePlanes) {
    const FTransform coronal(V(2, 0, 0), V(0, 0, -1), FPoint(-100, 50, 80), 0.5, 0.75, 3);
    const FPoint p = coronal * FPoint(10, 20, 4);
    EXPECT_EQ(p, FPoint(-95, 62, 65));
    EXPECT_EQ(coronal * V(10, 20, 4), V(5, 12, -15)) << "vectors are not moved";
    EXPECT_EQ(inv(coronal) * p, FPoint(10, 20, 4));
    EXPECT_FALSE(coronal.IsRigid());
    EXPECT_TRUE(FTransform(V(1, 0, 0), V(0, 0, -1), FPoint(1, 2, 3), 1, 1).IsRigid());
    EXPECT_FALSE(FTransform(V(1, 0, 0), V(0, 0, -1), FPoint(), 1, 1, -1).IsRigid());
    EXPECT_THROW(FTransform(V(1, 0, 0), V(-1, 0, 0), FPoint(), 1, 1), ZeroException);
    EXPECT_THROW(FTransform(V(1, NAN, 0), V(0, 1, 0), FPoint(), 1, 1), ZeroException);
}

TEST(FTransform, InverseAndProduct) {
    Numbers numbers;
    const FTransform identity;
    double worst = 0;
    for (const double spacing : {0.0, 1e-6, 0.004, 0.7, 5.0}) {  // 0: rigid
        for (int i = 0; i < 40; ++i) {
            const FTransform t = spacing > 0 ? numbers.Voxels(spacing) : numbers.Rigid();
            const Matrix4d truth = reference::Inverse(ToEigen(t));
            EXPECT_LT((ToEigen(inv(t)) - truth).cwiseAbs().maxCoeff(), 1e-12 * truth.cwiseAbs().maxCoeff());
            worst = std::max(worst, Difference(inv(t) * t, identity));
            const FTransform other = numbers.Rigid();
            const Matrix4d product = ToEigen(t) * ToEigen(other);
            EXPECT_LT((ToEigen(t * other) - product).cwiseAbs().maxCoeff(), 1e-12);
            FTransform in(t);
            EXPECT_EQ(Difference(in *= other, t * other), 0);
        }
    }
    EXPECT_LT(worst, 1e-8) << "translations of 500 mm, in voxels of a nanometre";
    FTransform round;
    for (int i = 0; i < 3600; ++i) round *= FTransform(V(1, 2, 3), kPi / 1800, FPoint(10, 20, 30));
    EXPECT_LT(Difference(round, identity), 1e-10) << "nothing is lost in chains";
    EXPECT_TRUE(round.IsRigid(1e-12) && inv(round).IsRigid(1e-12));
    FMatrix flat(3, 3);
    flat.set(1);
    EXPECT_THROW(inv(FTransform(flat)), ZeroException);
    EXPECT_THROW(inv(FTransform(flat.set(INFINITY))), ZeroException);
}

TEST(FTransform, MovesGeometry) {
    Numbers numbers;
    for (int i = 0; i < 50; ++i) {
        const FTransform t = i % 2 == 0 ? numbers.Rigid() : numbers.Voxels(0.3);
        const FPoint a(numbers.Vector(100)), b(numbers.Vector(100));
        const Vector3d moved = (ToEigen(t) * D(a).homogeneous()).head<3>();
        EXPECT_LT((D(t * a) - moved).cwiseAbs().maxCoeff(), 3.1e-5) << "half a step of a float at 512";
        const FLine line = t * FLine(a, b);
        EXPECT_LT(Distance(line, t * a) + Distance(line, t * b), 2e-4);
        const FSegment segment = t * FSegment(a, b);
        EXPECT_LT(Distance(segment.GetP0(), t * a) + Distance(segment.GetP1(), t * b), 2e-4);
        const FPlane plane(a, static_cast<FVector>(b));
        const FPlane image = t * plane;
        EXPECT_LT(Distance(image, t * a), 2e-4);
        const FPoint aside(numbers.Vector(100));
        const double value = plane.GetNormal() * aside + plane[3];
        EXPECT_NEAR(image.GetNormal() * (t * aside) + image[3], value, 0.06) << "of some 10000";
    }
    EXPECT_THROW(FTransform() * FVector(4), DimException);
}

TEST(FTransform, MatricesAndText) {
    const FMatrix m = Read("4 4  0 -2 0 10  2 0 0 20  0 0 2 30  0 0 0 2");
    const FTransform t(m);
    EXPECT_EQ(t * FPoint(1, 2, 3), FPoint(3, 11, 18)) << "the last element divides";
    EXPECT_TRUE(t.IsRigid());
    EXPECT_EQ(t.GetTranslation(), V(5, 10, 15));
    EXPECT_EQ(Difference(FTransform(t.GetRotation(), t.GetTranslation()), t), 0);
    EXPECT_EQ(FTransform(Read("3 3  1 0 0 0 2 0 0 0 3")) * FPoint(1, 1, 1), FPoint(1, 2, 3));
    FTransform kept(t);
    const std::string perspective = "4 4  1 0 0 0  0 1 0 0  0 0 1 0  0 0.1 0 1";
    for (const std::string& wrong : {std::string("3 4  1 0 0 0  0 1 0 0  0 0 1 0"), perspective}) {
        EXPECT_THROW(kept.Init(Read(wrong)), DimException);
    }
    EXPECT_THROW(kept.Init(Read("4 4  1 0 0 0  0 1 0 0  0 0 1 0  0 0 0 0")), ZeroException);
    EXPECT_THROW(kept.Init(V(0, 0, 0), 1.0), ZeroException);
    EXPECT_THROW(kept.Init(FVector(2), 1.0), DimException);
    std::ostringstream out;
    out << t;
    EXPECT_EQ(out.str(), "0 -1 0 5\n1 0 0 10\n0 0 1 15\n0 0 0 1\n");
    for (const std::string& wrong : {perspective, std::string("4 4 1 2 3")}) {
        std::istringstream in(wrong);
        EXPECT_TRUE((in >> kept).fail());
    }
    EXPECT_EQ(Difference(kept, t), 0) << "kept through all of this";
    std::istringstream in("# voxel to patient\n4 4\n" + out.str());
    FTransform read;
    EXPECT_TRUE(read.load(in));
    EXPECT_EQ(Difference(read, t), 0);
}
