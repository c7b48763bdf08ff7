// What operations allocate, and that they survive where they cannot. The whole program's allocation functions are
// replaced, the module's included.
#include <Korvane/Korvane.h>

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <sstream>

namespace {

long g_allocations = 0;
long g_alive = 0;
long g_failAt = -1;

}  // namespace

void* operator new(std::size_t size) {
    if (g_allocations++ == g_failAt) throw std::bad_alloc();
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    ++g_alive;
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) --g_alive;
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}

namespace {

// Runs the operation again and again, its first, second, ... allocation failing, until it succeeds. Returns how many
// there are. Nothing may stay behind, and nothing but a `MemException` may come out.
long CountFailures(const std::function<void()>& operation) {
    for (long failure = 0;; ++failure) {
        const long alive = g_alive;
        bool failed = false;
        g_allocations = 0;
        g_failAt = failure;
        try {
            operation();
        } catch (const MemException&) {
            failed = true;
        }
        g_failAt = -1;
        EXPECT_EQ(g_alive, alive) << "after failure " << failure;
        if (!failed) return g_allocations;
    }
}

// Sanitizers bring allocation functions of their own, which the module then uses.
bool IsCounting() {
    const long before = g_allocations;
    return FVector(5).dim() == 5 && g_allocations == before + 1;
}

FMatrix Make(int n) {
    FMatrix m(n, n);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) m[i][j] = static_cast<float>((i * 7 + j * j * 3) % 11) + (i == j ? 20.0F : 0.0F);
    }
    return m;
}

}  // namespace

TEST(Allocation, SmallOnesDoWithout) {
    if (!IsCounting()) GTEST_SKIP() << "the module has other allocation functions";
    for (const int n : {2, 3, 4}) {
        const FMatrix a = Make(n), b = a.transpose();
        const FVector v = a.row(0), w = a.row(1);
        g_allocations = 0;
        FMatrix c = a * b / a + inv(b) * 2.0;
        c.append(a, a).resize(n, n);
        FVector u = (v + w) * 2.0 + a * v - w * b;
        if (n < 4) u = v ^ w;
        u /= u.normalize() + determinant(c.transpose()) * (v * w);
        EXPECT_EQ(g_allocations, n * 2 * n > 16 ? 2 : 0) << n << ": of the appended matrix alone";
    }
}

TEST(Allocation, FailuresAreMemExceptionsAndLoseNothing) {
    if (!IsCounting()) GTEST_SKIP() << "the module has other allocation functions";
    const FMatrix a = Make(9);
    const FVector v = a.row(0);
    EXPECT_GT(CountFailures([&] { FVector(v).resize(20); }), 1);
    EXPECT_GT(CountFailures([&] { FMatrix(a).append(a).append(a, a); }), 4);
    EXPECT_GT(CountFailures([&] { inv(a * a / a); }), 4);
    EXPECT_GT(CountFailures([&] { d_PseudoInv(a.transpose()); }), 2);
    EXPECT_GT(CountFailures([&] {
                  double* w = nullptr;
                  double** rows = nullptr;
                  double** const u = d_SVD(a, w, rows, true);
                  for (int i = 0; i < 9; ++i) {  // as a caller may release them
                      delete[] u[i];
                      delete[] rows[i];
                  }
                  delete[] u;
                  delete[] rows;
                  delete[] w;
              }),
              20);
    FMatrix nan = Make(9);
    nan[4][4] = std::numeric_limits<float>::quiet_NaN();
    CountFailures([&] {
        double* w = nullptr;
        double** rows = nullptr;
        EXPECT_EQ(d_SVD(nan, w, rows, true), nullptr);
    });

    FVector kept(v);
    g_allocations = g_failAt = 0;
    EXPECT_THROW(kept.resize(1000), MemException);
    EXPECT_EQ(kept, v);
    g_allocations = g_failAt = 0;
    EXPECT_THROW(kept = FVector(1000), MemException);
    EXPECT_EQ(kept, v);
    g_allocations = g_failAt = 0;
    EXPECT_THROW(kept.size(1000), MemException);
    EXPECT_TRUE(kept.dim() == 0 && !kept.IsVectorCreated() && kept.GetPointer() == nullptr);
    FMatrix matrix(a);
    g_allocations = 0;
    g_failAt = 1;  // the row table, behind the elements
    EXPECT_THROW(matrix.size(30, 30), MemException);
    g_failAt = -1;
    EXPECT_TRUE(matrix.nrows() == 0 && !matrix.IsMatrixCreated() && matrix.GetPointer() == nullptr);
}

TEST(Allocation, OfATextGrowsWithWhatIsThere) {
    std::istringstream vector("2000000000 1 2 3");
    std::istringstream matrix("2000000000 2000000000 1 2 3");
    FVector v;
    FMatrix m;
    g_allocations = 0;
    g_failAt = 8;
    vector >> v;
    matrix >> m;
    g_failAt = -1;
    EXPECT_TRUE(vector.fail() && matrix.fail());
}
