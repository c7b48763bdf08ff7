#include "math/EigenMatrices.h"

#include <gtest/gtest.h>
#include <locale>

namespace {

// Eighths below 128, so that every sum and product is exact.
MatrixXd Random(int rows, int cols) {
    static std::mt19937 generator(5);
    return MatrixXd::NullaryExpr(rows, cols, [] { return static_cast<double>(generator() % 2048) / 8 - 128; });
}

FMatrix M22(float a, float b, float c, float d) {
    return FromEigen((MatrixXd(2, 2) << a, b, c, d).finished());
}

struct Commas : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

}  // namespace

// It converts to the addresses of its rows, which is not what such a comparison means.
template <typename Matrix>
concept IsComparable = requires(Matrix a, const Matrix b) {
    a == b;
}
|| requires(Matrix a, const Matrix b) {
    a != b;
}
|| requires(Matrix a, const Matrix b) {
    a < b;
};
static_assert(!IsComparable<FMatrix> && IsComparable<FVector>);

TEST(FMatrix, Storage) {
    for (const auto& [rows, cols] : {std::pair(1, 1), {4, 4}, {3, 5}, {2, 9}, {5, 2}, {40, 30}}) {
        const MatrixXd all = Random(rows, cols);
        FMatrix m = FromEigen(all);
        for (int i = 0; i < rows; ++i) EXPECT_EQ(m[i], m[0] + i * cols) << "one block";
        m.size(rows, cols);
        FMatrix copy(m), moved(std::move(m)), assigned(2, 2);
        EXPECT_FALSE(m.IsMatrixCreated());  // NOLINT(bugprone-use-after-move): it is empty
        assigned = copy = moved;
        EXPECT_EQ(ToEigen(moved.transpose()), MatrixXd(all.transpose()));
        moved.set(1);
        assigned.resize(rows + 2, cols + 3);
        assigned.resize(rows, cols);
        EXPECT_EQ(ToEigen(assigned), all) << "what both shapes have in common stays";
        EXPECT_EQ(assigned.row(rows - 1)[cols - 1], all(rows - 1, cols - 1));
        EXPECT_EQ(assigned.col(cols - 1)[rows - 1], all(rows - 1, cols - 1));
        EXPECT_EQ(Show(copy.row(-1), copy.row(rows), copy.col(cols), copy.col(kHuge)), "0 ;0 ;0 ;0 ;");
    }
    const FMatrix flat(0, 3);
    EXPECT_TRUE(flat.GetPointer() == nullptr && flat.nrows() == 0 && flat.ncols() == 3 && !flat.IsMatrixCreated());
    EXPECT_EQ(Show(FMatrix(nullptr, 2, 3), FMatrix(2, 3).diag(2)), "0 0 0\n0 0 0\n;2 0 0\n0 2 0\n;");
    EXPECT_EQ(Show(FVector::transpose(V({1, 2}))), "1\n2\n;");
}

TEST(FMatrix, ZeroSizesGoThroughEverything) {
    FMatrix none, tall(3, 0), flat(0, 3), m = FMatrix(2, 3).set(1);
    EXPECT_EQ(Show(tall * flat, tall * FVector(), FVector() * flat), "0 0 0\n0 0 0\n0 0 0\n;3 0 0 0;3 0 0 0;");
    EXPECT_EQ(Show((flat * tall).nrows(), (flat * m.transpose()).ncols(), flat.transpose().nrows()), "0;2;3;");
    EXPECT_EQ(Show(determinant(none), inv(none), none / none, none + none), "1;;;;");
    EXPECT_EQ(Show(none.balanc().elmhes().hgr().ncols(), d_PseudoInv(flat).nrows(), flat, tall), "2;3;;\n\n\n;");
    EXPECT_EQ(Show((none *= 2).add(m, 2)), Show(m * 2)) << "elements that were not there count as 0";
    EXPECT_EQ(Show(tall.append(m)), Show(m)) << "without columns it becomes a copy, whatever its rows";
    EXPECT_EQ(Show(m.append(flat)), Show(tall));
}

TEST(FMatrix, Arithmetic) {
    // Sizes on both sides of what the loops take at once.
    for (const auto& [rows, inner, cols] :
         {std::tuple(1, 3, 1), {3, 3, 3}, {4, 4, 4}, {2, 5, 7}, {6, 4, 22}, {17, 9, 35}}) {
        const MatrixXd left = Random(rows, inner), right = Random(inner, cols);
        const FMatrix a = FromEigen(left), b = FromEigen(right), product = a * b;
        EXPECT_EQ(ToEigen(product), ToEigen(FromEigen(left * right)));
        for (int i = 0; i < rows; ++i) ASSERT_EQ(product.row(i), a.row(i) * b);
        for (int j = 0; j < cols; ++j) ASSERT_EQ(product.col(j), a * b.col(j));
    }
    const FMatrix a = M22(1, 2, 3, 4), b = M22(0.5F, 1, 2, -4);
    EXPECT_EQ(Show(a + b, a - b), "1.5 3\n5 0\n;0.5 1\n1 8\n;");
    EXPECT_EQ(Show(2 * a, a / 2, a / b), "2 4\n6 8\n;0.5 1\n1.5 2\n;2 0\n5 0.25\n;");
    FMatrix c(a);
    EXPECT_EQ(Show((c *= 3) /= 2), "1.5 3\n4.5 6\n;");
    EXPECT_EQ(Show(c.add(c, 1)), "3 6\n9 12\n;");
    EXPECT_EQ(Show(c.add(FMatrix(1, 3).set(1), 2)), "5 8 2\n;") << "takes the other's shape first";
    EXPECT_EQ(Show(c.append(c)), "5 8 2 5 8 2\n;");
    EXPECT_EQ(Show(c.append(a, b)), "1 2 0.5 1\n3 4 2 -4\n;");
    EXPECT_EQ(Show(c.append(c, a)), "1 2 0.5 1 1 2\n3 4 2 -4 3 4\n;");
    const FMatrix sums = FVector::transpose(V({1e15F, 1, -1e15F})).transpose();
    EXPECT_EQ(Show(sums * V({1, 1, 1}), sums * V({1e7F, 1, 1e7F})), "1 1;1 0;") << "in double, but only that";
}

TEST(FMatrix, Text) {
    // A comment is skipped up to 1024 characters; what follows is read.
    std::stringstream text(" # a comment\n#\n  # x x\n\n2 3\n1 -2.5 1e10 0 1234567 1e-5\n2 7 8\n#" +
                           std::string(1023, 'x') + "1 5 rest");
    FMatrix read(4, 4);
    FVector first, second;
    read.load(text);
    first.load(text);
    second.load(text);
    EXPECT_EQ(Show(read, first, second), "1 -2.5 1e+10\n0 1.23457e+06 1e-05\n;2 7 8;1 5;");
    std::stringstream foreign;
    foreign.imbue(std::locale(std::locale::classic(), new Commas));
    foreign << V({0.125, 1.5}) << '\n' << 0.5;
    EXPECT_EQ(foreign.str(), "2 0.125 1.5\n0,5") << "the stream keeps its own locale";
    EXPECT_TRUE(foreign >> first && first == V({0.125, 1.5}));
}

TEST(FMatrix, TextThatIsNone) {
    const auto refuses = [](auto value, const char* text) {
        const std::string before = Show(value);
        std::istringstream in(text);
        in.exceptions(std::ios_base::failbit);
        EXPECT_THROW(value.load(in), std::ios_base::failure) << text;
        EXPECT_EQ(Show(value), before) << text;
    };
    for (const char* text :
         {"", "x", "2", "2 2 1 2 3", "2 2 1 2 x 4", "-1 2 1 2", "2 -2 1", "2000000000 2000000000 1 2 3",
          "99999999999 1 1", "65536 65536 1 2", "# only a comment", "#", "1 1 1e99"}) {
        refuses(M22(1, 2, 3, 4), text);
    }
    for (const char* text : {"", "-3 1 2 3", "2000000000 1 2 3", "3 1 2", "2147483648 1"}) refuses(V({5, 6}), text);
    FMatrix m;
    std::istringstream in("2000000000 0");
    EXPECT_TRUE(in >> m);
    EXPECT_EQ(m.nrows(), 2000000000);
}
