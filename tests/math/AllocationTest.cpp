// Operations survive where memory cannot be had. The whole program's allocation functions are replaced, the module's
// included.
#include "math/Show.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <new>

namespace {

long g_allocations = 0;
long g_alive = 0;
long g_failAt = -1;

}  // namespace

void* operator new(std::size_t size) {
    if (g_allocations++ == g_failAt) throw std::bad_alloc();
    ++g_alive;
    return std::malloc(size > 0 ? size : 1);
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

}  // namespace

TEST(Allocation, FailuresAreMemExceptionsAndLoseNothing) {
    // Sanitizers bring allocation functions of their own, which the module then uses.
    if (CountFailures([] { FVector(5); }) != 1) GTEST_SKIP() << "the module has other allocation functions";
    FMatrix a(9, 9), nan = FMatrix(9, 9).set(kNaN), small = FMatrix(3, 3).diag(2);
    for (int i = 0; i < 81; ++i) a[0][i] = static_cast<float>(i * i % 17);
    EXPECT_GT(CountFailures([&] { FVector(a[0], 9).resize(20); }), 1);
    EXPECT_EQ(CountFailures([&] { (small * small / small).append(inv(small)).resize(2, 2); }), 2)
        << "small ones do without: of the appended matrix alone";
    EXPECT_GT(CountFailures([&] { FMatrix(a).append(a).append(a, a); }), 4);
    EXPECT_GT(CountFailures([&] { inv(a * a / a); }), 4);
    EXPECT_GT(CountFailures([&] { d_PseudoInv(a.transpose()); }), 2);
    for (const FMatrix* matrix : {&a, &nan}) {
        CountFailures([&] {
            double *w = nullptr, **rows = nullptr, **const u = d_SVD(*matrix, w, rows, true);
            EXPECT_TRUE((u == nullptr) == (matrix == &nan) && !u == !w && !u == !rows);
            d_FreeSVD(u, u != nullptr ? 9 : 0, w, rows, u != nullptr ? 9 : 0);
        });
    }
    FMatrix m(a);
    g_allocations = 0;
    g_failAt = 1;  // the row table, behind the elements
    EXPECT_THROW(m.size(30, 30), MemException);
    g_failAt = -1;
    EXPECT_TRUE(m.nrows() == 0 && !m.IsMatrixCreated());
}
