#include "math/Show.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

struct Watched : FVector {
    explicit Watched(int& deaths) : FVector(2), m_Deaths(deaths) { unity(); }
    ~Watched() override { ++m_Deaths; }
    int& m_Deaths;
};

}  // namespace

TEST(FVector, Storage) {
    for (const int n : {1, 3, 4, 5, 100}) {  // inside the object and beyond
        FVector v(n);
        for (int i = 0; i < n; ++i) v[i] = static_cast<float>(i);
        FVector copy(v), moved(std::move(v)), assigned(2);
        EXPECT_EQ(v.dim(), 0);  // NOLINT(bugprone-use-after-move): it is empty
        EXPECT_EQ(moved, copy);
        assigned = copy = moved;
        const float* const before = assigned;
        assigned.size(n);
        assigned.resize(n - 1);
        EXPECT_TRUE(before == assigned.GetPointer() && before != moved.GetPointer()) << "shrinking moves nothing";
        copy.resize(n + 1);
        copy[n] = 7;
        copy.resize(n + 20);
        copy.resize(n + 1);
        EXPECT_EQ(copy[n], 7.0F);
        EXPECT_EQ(assigned, FVector(copy, n - 1));
        moved.assign(moved.GetPointer() + 1, n - 1);  // out of itself
        EXPECT_EQ(moved, FVector(copy.GetPointer() + 1, n - 1));
        assigned.free();
        EXPECT_EQ(Show(assigned, assigned.IsVectorCreated(), assigned.mod()), "0 ;0;0;");
    }
    FVector3D v3, other = V({1, 2, 3, 4});
    v3 = 2.0;
    EXPECT_EQ(Show(FVector(nullptr, 2), v3, other), "2 0 0;3 2 2 2;4 1 2 3 4;");
    EXPECT_EQ(Show(v3 = V({1})), "1 1;") << "takes the dimension of its source";
}

TEST(FVector, ElementByElement) {
    const FVector a = V({1, -2, 3, 4, -5}), b = V({2, 4, -8, 16, 32});
    EXPECT_EQ(Show(a + b, a - b), "5 3 2 -5 20 27;5 -1 -6 11 -12 -37;");
    EXPECT_EQ(Show(a / b, 4 / b), "5 0.5 -0.5 -0.375 0.25 -0.15625;5 2 1 -0.5 0.25 0.125;");
    EXPECT_EQ(Show(1 - a, a - 1L, a + 1), "5 0 3 -2 -3 6;5 0 -3 2 3 -6;5 2 -1 4 5 -4;");
    EXPECT_EQ(Show(a / 2, a * 2), "5 0.5 -1 1.5 2 -2.5;5 2 -4 6 8 -10;");
    EXPECT_EQ(Show(1UL + a, 2 * a), Show(a + 1, a * 2));
    FVector c(a);
    EXPECT_EQ(Show(c += b), Show(a + b));
    EXPECT_EQ(Show(c -= b), Show(a));
    EXPECT_EQ(Show(((c += 1) -= 3) *= 2), "5 -2 -8 2 4 -14;");
    EXPECT_EQ(Show((c /= 2).add(b, 0.5)), "5 0 -2 -3 10 9;");
    EXPECT_EQ(Show(c.abs(), c.max(), a.min(), V({-7}).max()), "5 0 2 3 10 9;10;-5;-7;");
    // The sum's dimension is the first one's, whatever the second's is.
    EXPECT_EQ(Show(V({1, 2}) + a, a + V({1, 2})), "2 2 0;5 2 0 3 4 -5;");
    // Scalars are doubles, rounded with the result only.
    EXPECT_EQ(Show(V({16777216}) + 1.5 - 16777215, V({3}) * (1.0 / 3.0)), "1 3;1 1;");
    EXPECT_EQ(V({1e30F, 1, -1e30F}) * V({1e-22F, 1, 1e-22F}), 1.0F) << "summed in double";
}

TEST(FVector, ElementsInBraces) {
    const FVector listed = {1, 2.5F, -3}, pair{0.5, 2}, reals{1.0F, 2.0F, 3.0F, 4.0F, 5.0F}, one{7.0F};
    EXPECT_EQ(Show(listed, pair, reals, one, -listed), "3 1 2.5 -3;2 0.5 2;5 1 2 3 4 5;1 7;3 -1 -2.5 3;");
    // What integers alone in braces and parentheses always were.
    EXPECT_EQ(Show(FVector{2}.zero(), FVector{nullptr, 3}, FVector{0, 3}, FVector(0, 3)),
              "2 0 0;3 0 0 0;3 0 0 0;3 0 0 0;");
    FVector3D v{1, 2, 3};
    v = -v;
    EXPECT_EQ(Show(v, V({kInf, 0}) - -V({0, 0})), "3 -1 -2 -3;2 inf 0;");
    EXPECT_TRUE(std::signbit((-V({0}))[0])) << "not a difference from 0";
}

TEST(FVector, LengthAndOrder) {
    EXPECT_EQ(Show(V({3e30F, 4e30F}).mod(), V({3e-30F, 4e-30F}).mod()), "5e+30;5e-30;") << "squares do not overflow";
    FVector v = V({0, 3, 0, 4, 0}), tiny = V({1e-11F, 0});
    EXPECT_EQ(Show(v.normalize(), tiny.normalize(), v, tiny), "5;0;5 0 0.6 0 0.8 0;2 1e-11 0;");
    EXPECT_EQ(Show(V({2e-10F}).normalize(), V({kNaN, 1}).normalize(), V({kInf, 1}).mod()), "2e-10;0;inf;");
    const FVector a = V({3, 4}), b = V({0, -5, 0}), c = V({6}), nan = V({kNaN});
    EXPECT_TRUE(a <= b && a >= b && !(a < b) && !(a > b) && a != b);
    EXPECT_TRUE(a < c && c > a && !(c <= a) && !(a >= c) && nan <= a && nan >= a);
    EXPECT_TRUE(a == V({3, 4}) && a != V({3}) && FVector() == FVector() && nan != nan);
}

TEST(FVector, CrossProductAndAngle) {
    EXPECT_EQ(Show(V({1, 2, 3}) ^ V({-4, 5, 7}), V({1, 0}) ^ V({0, 1})), "3 -1 -19 13;3 0 0 1;");
    // In double: in single precision the difference of the two products would be lost.
    EXPECT_EQ((V({4097, 4096}) ^ V({4096, 4095}))[2], -1.0F);
    FVector axis;
    for (const double angle : {0.001, 0.7, 1.5, 1.6, 2.5, 3.1}) {
        const FVector to = V({static_cast<float>(2 * std::cos(angle)), 0, static_cast<float>(2 * std::sin(angle))});
        EXPECT_NEAR(V({5, 0, 0}).GetAngle(to, axis), angle, 5e-6);  // asin is steep near its end
        EXPECT_EQ(Show(axis), "3 0 -1 0;");
    }
    EXPECT_EQ(Show(V({0, 1}).GetAngle(V({-3, 0}), axis), axis), "1.5708;3 0 0 1;");
    EXPECT_EQ(Show(V({1, 1, 1}).GetAngle(V({-2, -2, -2}), axis), axis), "0;3 0 0 0;") << "opposite: no axis";
}

TEST(PtFVector, SharesAndDestroys) {
    int deaths = 0;
    {
        PtFVector first(new Watched(deaths)), second(first), third;
        third = second;
        third = third.operator->();
        first = nullptr;
        second = new Watched(deaths);
        EXPECT_EQ(Show(deaths, third->dim(), third[1], third[2], third[-1], third[kHuge]), "0;2;1;0;0;0;");
        third = second;
        EXPECT_EQ(Show(deaths, first.operator->() == nullptr, first[0]), "1;1;0;");
        third = nullptr;
        second = second.operator->();  // the only one
        EXPECT_EQ(Show(deaths, second[1]), "1;1;");
    }
    EXPECT_EQ(deaths, 2);
    {
        Watched local(deaths);
        { const PtFVector handle(&local); }
        EXPECT_EQ(deaths, 2) << "the address was counted: the handles do not own the vector";
        PtFVector copy(new FVector(local));  // copies begin with a count of their own
    }
    EXPECT_EQ(deaths, 3);
}

TEST(ArrayHelpers, StartValues) {
    const int ints[] = {-3, -9, -1};
    const unsigned short words[] = {7, 65535, 3};
    const unsigned char bytes[] = {255, 1, 8};
    const float negative[] = {-3, -1}, values[] = {2, 1e38F, -5, kNaN};
    EXPECT_EQ(Show(IMax(ints, 3), IMin(ints, 3), IMax(ints, 0), IMin(nullptr, 4)), "-1;-9;-2147483648;2147483647;");
    EXPECT_EQ(Show(UIMax(words, 3), UIMin(words, 3), UIMax(words, -1), UIMin(words, -1)), "65535;3;0;65535;");
    EXPECT_EQ(Show(+UCMax(bytes, 3), +UCMin(bytes, 3), +UCMax(bytes, 0), +UCMin(bytes, 0)), "255;1;0;255;");
    EXPECT_EQ(Show(FMax(values, 4), FMin(values, 4), FMin(values, 0)), "1e+38;-5;3.40282e+38;");
    EXPECT_EQ(Show(FMax(negative, 2)), "1.17549e-38;") << "the start, not the largest";
    EXPECT_EQ(mean(V({16777216, 1, 1})), 16777218.0F / 3) << "summed in double";
    EXPECT_EQ(Show(mean(bytes, 3), mean(words, 3), mean(FVector())), "88;21848.3;3.40282e+38;");
}
