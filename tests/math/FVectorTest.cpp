#include <Korvane/Korvane.h>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

FVector V(const std::vector<float>& elements) {
    return FVector(elements.data(), static_cast<int>(elements.size()));
}

std::vector<float> E(const FVector& v) {
    const float* const elements = v;
    return std::vector<float>(elements, elements + v.dim());
}

using Floats = std::vector<float>;

struct Watched : FVector {
    explicit Watched(int& deaths) : FVector(2), m_Deaths(deaths) { unity(); }
    ~Watched() override { ++m_Deaths; }
    int& m_Deaths;
};

}  // namespace

TEST(FVector, Storage) {
    FVector none(0);
    EXPECT_EQ(none.GetPointer(), nullptr);
    EXPECT_FALSE(none.IsVectorCreated());
    EXPECT_EQ(none.mod(), 0.0F);
    for (const int n : {1, 4, 5, 100}) {  // inside the object and beyond
        FVector v(n);
        for (int i = 0; i < n; ++i) v[i] = static_cast<float>(i);
        const Floats all = E(v);
        const float* const before = v;
        v.size(n);
        EXPECT_EQ(v.GetPointer(), before);
        EXPECT_EQ(E(v), all) << "size of the same dimension keeps the contents";
        v.resize(n - 1);
        EXPECT_EQ(v.GetPointer(), before) << "shrinking moves nothing";
        EXPECT_EQ(v.dim(), n - 1);
        v.resize(n + 3);
        EXPECT_EQ(v.dim(), n + 3);
        EXPECT_EQ(E(FVector(v, n - 1)), Floats(all.begin(), all.end() - 1));
        FVector copy(v), moved(std::move(v)), assigned;
        assigned = copy = moved;
        EXPECT_EQ(E(assigned), E(moved));
        EXPECT_NE(assigned.GetPointer(), moved.GetPointer());
        EXPECT_TRUE(assigned.IsVectorCreated());
        assigned.assign(assigned.GetPointer() + 1, n);  // out of itself
        assigned.resize(n - 1);
        EXPECT_EQ(assigned, FVector(moved.GetPointer() + 1, n - 1));
        assigned.free();
        EXPECT_EQ(assigned.GetPointer(), nullptr);
        EXPECT_FALSE(assigned.IsVectorCreated());
    }
    EXPECT_EQ(E(FVector(nullptr, 5)), Floats(5, 0.0F));
    FVector3D v3;
    EXPECT_EQ(v3.dim(), 3);
    v3 = 2.0;
    EXPECT_EQ(E(v3), (Floats{2, 2, 2}));
    EXPECT_EQ(FVector3D(V({1, 2, 3, 4, 5})).dim(), 5) << "takes the dimension of its source";
    EXPECT_EQ(E(v3 = V({1})), Floats{1});
}

TEST(FVector, ElementByElement) {
    const FVector a = V({1, -2, 3, 4, -5}), b = V({2, 4, -8, 16, 32});
    EXPECT_EQ(E(a + b), (Floats{3, 2, -5, 20, 27}));
    EXPECT_EQ(E(a - b), (Floats{-1, -6, 11, -12, -37}));
    EXPECT_EQ(E(a / b), (Floats{0.5F, -0.5F, -0.375F, 0.25F, -0.15625F}));
    EXPECT_EQ(E(a + 1), E(1UL + a));
    EXPECT_EQ(E(1 - a), (Floats{0, 3, -2, -3, 6}));
    EXPECT_EQ(E(a - 1L), (Floats{0, -3, 2, 3, -6}));
    EXPECT_EQ(E(a * 2), E(2 * a));
    EXPECT_EQ(E(a / 2), (Floats{0.5F, -1, 1.5F, 2, -2.5F}));
    EXPECT_EQ(E(4 / b), (Floats{2, 1, -0.5F, 0.25F, 0.125F}));
    FVector c(a);
    EXPECT_EQ(E(c += b), E(a + b));
    EXPECT_EQ(E(c -= b), E(a));
    EXPECT_EQ(E(((c += 1) -= 3) *= 2), (Floats{-2, -8, 2, 4, -14}));
    EXPECT_EQ(E(c /= 2), (Floats{-1, -4, 1, 2, -7}));
    EXPECT_EQ(E(c.add(b, 0.5)), (Floats{0, -2, -3, 10, 9}));
    EXPECT_EQ(E(c.abs()), (Floats{0, 2, 3, 10, 9}));
    EXPECT_EQ(c.max(), 10.0F);
    EXPECT_EQ(a.min(), -5.0F);
    EXPECT_EQ(V({-7}).max(), -7.0F);
    EXPECT_EQ(E(c.unity()), Floats(5, 1.0F));
    // The sum's dimension is the first one's, whatever the second's is.
    EXPECT_EQ(E(V({1, 2}) + a), (Floats{2, 0}));
    EXPECT_EQ(E(a + V({1, 2})), (Floats{2, 0, 3, 4, -5}));
    // Scalars are doubles, rounded with the result only.
    EXPECT_EQ(V({1})[0] + 0.0F, (V({16777216}) + 1.5 - 16777216)[0] - 1.0F);
    EXPECT_EQ((V({3}) * (1.0 / 3.0))[0], 1.0F);
    EXPECT_EQ(V({3e38F, 3e38F}) * V({1e-38F, -1e-38F}), 0.0F);
    EXPECT_EQ(V({1e30F, 1, -1e30F}) * V({1e-22F, 1, 1e-22F}), 1.0F) << "summed in double";
}

TEST(FVector, LengthAndOrder) {
    EXPECT_EQ(V({3e30F, 4e30F}).mod(), 5e30F) << "squares do not overflow";
    EXPECT_EQ(V({3e-30F, 4e-30F}).mod(), 5e-30F);
    FVector v = V({0, 3, 0, 4, 0});
    EXPECT_EQ(v.normalize(), 5.0F);
    EXPECT_EQ(E(v), (Floats{0, 0.6F, 0, 0.8F, 0}));
    FVector tiny = V({1e-11F, 0, 0});
    EXPECT_EQ(tiny.normalize(), 0.0F);
    EXPECT_EQ(tiny[0], 1e-11F);
    EXPECT_EQ(V({2e-10F}).normalize(), 2e-10F);
    EXPECT_EQ(V({kNaN, 1}).normalize(), 0.0F);
    const FVector a = V({3, 4}), b = V({0, -5, 0}), c = V({6});
    EXPECT_TRUE(a <= b && a >= b && !(a < b) && !(a > b) && a != b);
    EXPECT_TRUE(a < c && c > a && !(c <= a) && !(a >= c));
    EXPECT_TRUE(a == V({3, 4}) && a != V({3}) && FVector() == FVector() && V({kNaN}) != V({kNaN}));
    EXPECT_TRUE(V({kNaN}) <= a && V({kNaN}) >= a);
    EXPECT_EQ(V({kInf, 1}).mod(), kInf);
}

TEST(FVector, CrossProductAndAngle) {
    EXPECT_EQ(E(V({1, 2, 3}) ^ V({-4, 5, 7})), (Floats{-1, -19, 13}));
    EXPECT_EQ(E(V({1, 0}) ^ V({0, 1})), (Floats{0, 0, 1}));
    // In double: in single precision the difference of the two products would be lost.
    EXPECT_EQ((V({4097, 4096}) ^ V({4096, 4095}))[2], -1.0F);
    FVector axis;
    constexpr double kPi = 3.141592653589793;
    for (const double angle : {0.001, 0.7, 1.5, 1.6, 2.5, 3.1}) {
        const FVector to = V({static_cast<float>(2 * std::cos(angle)), 0, static_cast<float>(2 * std::sin(angle))});
        // asin near its steep end: an error of a float in the sine is its square root in the angle.
        const double steepness = 1 / std::max(std::fabs(std::cos(angle)), 3e-4);
        EXPECT_NEAR(V({5, 0, 0}).GetAngle(to, axis), angle, 4 * 6e-8 * (steepness + kPi)) << angle;
        EXPECT_EQ(E(axis), (Floats{0, -1, 0}));
    }
    EXPECT_EQ(V({0, 1}).GetAngle(V({-3, 0}), axis), static_cast<float>(kPi / 2));
    EXPECT_EQ(E(axis), (Floats{0, 0, 1}));
    EXPECT_EQ(V({1, 1, 1}).GetAngle(V({-2, -2, -2}), axis), 0.0F) << "opposite vectors have no axis";
    EXPECT_EQ(E(axis), (Floats{0, 0, 0}));
    EXPECT_EQ(V({0, 0, 0}).GetAngle(V({1, 2, 3}), axis), 0.0F);
}

TEST(PtFVector, SharesAndDestroys) {
    int deaths = 0;
    {
        PtFVector first(new Watched(deaths));
        PtFVector second(first), third;
        third = second;
        const PtFVector& itself = third;
        third = itself;
        first = nullptr;
        second = new Watched(deaths);
        EXPECT_EQ(deaths, 0);
        EXPECT_EQ(third->dim(), 2);
        EXPECT_EQ(third[1], 1.0F);
        third = second;
        EXPECT_EQ(deaths, 1);
        EXPECT_EQ(first.operator->(), nullptr);
        EXPECT_EQ(first[0], 0.0F);
        EXPECT_EQ(third[2] + third[-1] + third[std::numeric_limits<int>::max()], 0.0F);
    }
    EXPECT_EQ(deaths, 2);
    {
        Watched local(deaths);
        { const PtFVector handle(&local), again(handle); }
        EXPECT_EQ(deaths, 2) << "the address was counted: the handles do not own the vector";
        PtFVector copy(new FVector(local));  // copies begin with a count of their own
        copy = nullptr;
    }
    EXPECT_EQ(deaths, 3);
}

TEST(ArrayHelpers, StartValues) {
    const int ints[] = {-3, -9, -1};
    const unsigned short words[] = {7, 65535, 3};
    const unsigned char bytes[] = {255, 1, 8};
    const float negative[] = {-3, -1};
    const float values[] = {2, 1e38F, -5, kNaN};
    EXPECT_EQ(IMax(ints, 3), -1);
    EXPECT_EQ(IMin(ints, 3), -9);
    EXPECT_EQ(IMax(ints, 0), std::numeric_limits<int>::min());
    EXPECT_EQ(IMin(nullptr, 4), std::numeric_limits<int>::max());
    EXPECT_EQ(UIMax(words, 3), 65535);
    EXPECT_EQ(UIMin(words, 3), 3);
    EXPECT_EQ(UIMax(words, -1) * 65536 + UIMin(words, -1), 65535);
    EXPECT_EQ(UCMax(bytes, 3), 255);
    EXPECT_EQ(UCMin(bytes, 3), 1);
    EXPECT_EQ(UCMax(bytes, 0) * 256 + UCMin(bytes, 0), 255);
    EXPECT_EQ(FMax(values, 4), 1e38F);
    EXPECT_EQ(FMin(values, 4), -5.0F);
    EXPECT_EQ(FMax(negative, 2), 1.1754944e-38F) << "the start, not the largest";
    EXPECT_EQ(FMin(values, 0), 3.4028235e38F);
    EXPECT_EQ(mean(words, 3), 65545.0F / 3);
    EXPECT_EQ(mean(bytes, 3), 88.0F);
    EXPECT_EQ(mean(V({16777216, 1, 1})), 16777218.0F / 3) << "summed in double";
    EXPECT_EQ(mean(FVector()), 3.4028235e38F);
    EXPECT_EQ(mean(values, -2), 3.4028235e38F);
}
