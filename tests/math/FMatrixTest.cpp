#include <Korvane/Korvane.h>

#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Rows = std::vector<std::vector<float>>;

FMatrix M(const Rows& rows) {
    std::vector<const float*> table;
    for (const auto& row : rows) table.push_back(row.data());
    return FMatrix(table.data(), static_cast<int>(rows.size()), rows.empty() ? 0 : static_cast<int>(rows[0].size()));
}

Rows E(const FMatrix& m) {
    Rows rows;
    for (int i = 0; m.IsMatrixCreated() && i < m.nrows(); ++i) rows.emplace_back(m[i], m[i] + m.ncols());
    return rows;
}

FMatrix Random(int rows, int cols) {
    static std::mt19937 generator(5);
    FMatrix m(rows, cols);
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) m[i][j] = static_cast<float>(generator() % 2048) / 8 - 128;
    }
    return m;
}

std::string Text(const auto& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

// Decimal commas and groups of thousands.
struct Commas : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST(FMatrix, Storage) {
    for (const auto& [rows, cols] : {std::pair(1, 1), {4, 4}, {3, 5}, {2, 9}, {5, 2}, {40, 30}}) {
        FMatrix m = Random(rows, cols);
        float** const table = m;
        for (int i = 0; i < rows; ++i) EXPECT_EQ(table[i], table[0] + i * cols) << "one block";
        const Rows all = E(m);
        m.size(rows, cols);
        EXPECT_EQ(E(m), all);
        FMatrix copy(m), moved(std::move(m)), assigned(2, 2);
        EXPECT_EQ(m.IsMatrixCreated(), false);
        assigned = copy = moved;
        EXPECT_EQ(E(assigned), all);
        EXPECT_NE(assigned.GetPointer(), moved.GetPointer());
        assigned.resize(rows + 2, cols + 3);
        assigned.resize(rows, cols);
        EXPECT_EQ(E(assigned), all) << "what both shapes have in common stays";
        EXPECT_EQ(E(assigned.transpose().transpose()), all);
        EXPECT_EQ(assigned.transpose()[cols - 1][0], all[0].back());
        EXPECT_EQ(assigned.row(rows - 1), FVector(all.back().data(), cols));
        EXPECT_EQ(assigned.col(cols - 1)[rows - 1], all.back().back());
        for (const int outside : {-1, std::max(rows, cols), std::numeric_limits<int>::max()}) {
            EXPECT_EQ(assigned.row(outside).dim() + assigned.col(outside).dim(), 0);
        }
    }
    const FMatrix flat(0, 3);
    EXPECT_EQ(flat.GetPointer(), nullptr);
    EXPECT_EQ(flat.nrows() * 10 + flat.ncols(), 3);
    EXPECT_FALSE(flat.IsMatrixCreated());
    EXPECT_EQ(E(FMatrix(nullptr, 2, 3)), Rows(2, {0, 0, 0}));
    EXPECT_EQ(E(FMatrix(2, 3).diag(2)), (Rows{{2, 0, 0}, {0, 2, 0}}));
    EXPECT_EQ(E(FVector::transpose(FVector(3).unity())), Rows(3, {1}));
}

TEST(FMatrix, ZeroSizesGoThroughEverything) {
    FMatrix none, tall(3, 0), flat(0, 3);
    FMatrix m = Random(2, 3);
    EXPECT_EQ(E(tall * flat), Rows(3, {0, 0, 0}));
    EXPECT_EQ((flat * tall).nrows(), 0);
    EXPECT_EQ((flat * m.transpose()).ncols(), 2);
    EXPECT_EQ((tall * FVector()), FVector(3).zero());
    EXPECT_EQ((FVector() * flat), FVector(3).zero());
    EXPECT_EQ(flat.transpose().nrows(), 3);
    EXPECT_EQ(determinant(none), 1.0F);
    EXPECT_EQ(inv(none).nrows() + (none / none).nrows() + (none + none).nrows(), 0);
    EXPECT_EQ(none.balanc().elmhes().hgr().ncols(), 2);
    EXPECT_EQ(d_PseudoInv(flat).nrows(), 3);
    EXPECT_EQ(d_PseudoInv(tall).ncols(), 3);
    EXPECT_EQ(Text(none) + Text(flat) + Text(tall), "\n\n\n");
    EXPECT_EQ(E((none *= 2).add(m, 2)), E(m * 2)) << "elements that were not there count as 0";
    EXPECT_EQ(E(FMatrix().append(m)), E(m));
    EXPECT_EQ(E(tall.append(m)), E(m)) << "without columns it becomes a copy, whatever its rows";
    EXPECT_EQ(E(m.append(flat)), E(tall));
}

TEST(FMatrix, Arithmetic) {
    // Sizes on both sides of what the loops take at once; small integers and eighths, so that every sum is exact.
    for (const auto& [rows, inner, cols] :
         {std::tuple(1, 3, 1), {3, 3, 3}, {4, 4, 4}, {2, 5, 7}, {6, 4, 22}, {17, 9, 35}}) {
        const FMatrix a = Random(rows, inner), b = Random(inner, cols);
        const FMatrix product = a * b;
        for (int i = 0; i < rows; ++i) {
            for (int j = 0; j < cols; ++j) ASSERT_EQ(product[i][j], a.row(i) * b.col(j));
            ASSERT_EQ(product.row(i), a.row(i) * b);
        }
        for (int j = 0; j < cols; ++j) ASSERT_EQ(product.col(j), a * b.col(j));
    }
    const FMatrix a = M({{1, 2}, {3, 4}}), b = M({{0.5F, 1}, {2, -4}});
    EXPECT_EQ(E(a + b), (Rows{{1.5F, 3}, {5, 0}}));
    EXPECT_EQ(E(a - b), (Rows{{0.5F, 1}, {1, 8}}));
    EXPECT_EQ(E(2 * a), E(a * 2));
    EXPECT_EQ(E(a / 2), (Rows{{0.5F, 1}, {1.5F, 2}}));
    EXPECT_EQ(E(a / b), (Rows{{2, 0}, {5, 0.25F}}));
    FMatrix c(a);
    EXPECT_EQ(E((c *= 3) /= 2), (Rows{{1.5F, 3}, {4.5F, 6}}));
    EXPECT_EQ(E(c.add(c, 1)), (Rows{{3, 6}, {9, 12}}));
    EXPECT_EQ(E(c.add(M({{1, 1, 1}}), 2)), (Rows{{5, 8, 2}})) << "takes the other's shape first";
    EXPECT_EQ(E(c.append(c)), (Rows{{5, 8, 2, 5, 8, 2}}));
    EXPECT_EQ(E(c.append(a, b)), (Rows{{1, 2, 0.5F, 1}, {3, 4, 2, -4}}));
    EXPECT_EQ(E(c.append(c, a)), (Rows{{1, 2, 0.5F, 1, 1, 2}, {3, 4, 2, -4, 3, 4}}));
    EXPECT_EQ((M({{1e30F, 1, -1e30F}}) * FVector(3).unity())[0], 0.0F) << "sums in double, but only that";
    EXPECT_EQ((M({{1e15F, 1, -1e15F}}) * FVector(3).unity())[0], 1.0F);
}

TEST(FMatrix, Text) {
    const FMatrix m = M({{1, -2.5F, 1e10F}, {0, 1234567, 1e-5F}});
    EXPECT_EQ(Text(m), "1 -2.5 1e+10\n0 1.23457e+06 1e-05\n");
    EXPECT_EQ(Text(m.row(0)), "3 1 -2.5 1e+10");
    EXPECT_EQ(Text(FVector()), "0 ");

    std::stringstream text(" # a comment\n#\n  # " + std::string(900, 'x') + "\n\n2 3\n" + Text(m) + "2 7 8 rest");
    FMatrix read(4, 4);
    FVector v;
    read.load(text);
    EXPECT_EQ(Text(read), Text(m));
    v.load(text);
    EXPECT_EQ(Text(v), "2 7 8");
    std::string rest;
    EXPECT_TRUE(text >> rest && rest == "rest");
    // A comment is skipped up to 1024 characters; what follows is read.
    std::istringstream longComment("#" + std::string(1023, 'x') + "1 5\n");
    v.load(longComment);
    EXPECT_EQ(Text(v), "1 5");

    std::stringstream foreign;
    foreign.imbue(std::locale(std::locale::classic(), new Commas));
    foreign.precision(9);
    foreign << FVector(2000).set(0.125) << '\n' << 0.5;
    EXPECT_EQ(foreign.str().substr(0, 11), "2000 0.125 ");
    EXPECT_EQ(foreign.str().substr(foreign.str().size() - 4), "\n0,5") << "the stream keeps its own locale";
    EXPECT_TRUE(foreign >> v && v == FVector(2000).set(0.125));
}

TEST(FMatrix, TextThatIsNotAMatrix) {
    const FMatrix before = Random(2, 2);
    for (const char* text :
         {"", "x", "2", "2 2 1 2 3", "2 2 1 2 x 4", "-1 2 1 2", "2 -2 1", "2000000000 2000000000 1 2 3",
          "99999999999 1 1", "65536 65536 1 2", "# only a comment", "#", "1 1 1e99"}) {
        FMatrix m(before);
        std::istringstream in(text);
        m.load(in);
        EXPECT_TRUE(in.fail()) << text;
        EXPECT_EQ(E(m), E(before)) << text;
    }
    for (const char* text : {"", "-3 1 2 3", "2000000000 1 2 3", "3 1 2", "2147483648 1"}) {
        FVector v(before.row(0));
        std::istringstream in(text);
        in.exceptions(std::ios_base::failbit);
        EXPECT_THROW(in >> v, std::ios_base::failure) << text;
        EXPECT_EQ(v, before.row(0)) << text;
    }
    FMatrix m;
    std::istringstream in("2000000000 0");
    EXPECT_TRUE(in >> m);
    EXPECT_EQ(m.nrows(), 2000000000);
}
