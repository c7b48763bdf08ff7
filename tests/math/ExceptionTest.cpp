#include "math/MessageBuffer.h"
#include "math/Show.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

static_assert(sizeof(DimException) == sizeof(void*) && sizeof(Exception) == sizeof(void*));

// Each operation throws the type, by value; where the buffer can be read, its name stands there, and nothing else.
template <typename Type>
void ExpectFailures(const char* prefix, const char* names, const std::vector<std::function<void()>>& operations) {
    Messages messages(prefix);
    std::istringstream list(names);
    for (const auto& operation : operations) {
        std::string name;
        std::getline(list, name, '|');
        EXPECT_THROW(operation(), Type) << name;
        EXPECT_EQ(messages.IsFound() ? messages.Take() : name, name);
    }
}

}  // namespace

// The vector divisions refuse an exact 0 only.
TEST(Exception, EveryOperationsTypeAndName) {
    FVector v = V({1, 0}), v3(3), v4(4), none;
    FMatrix m(2, 2), m23(2, 3), m32(3, 2), small(2, 2), nan(2, 2);
    ExpectFailures<DimException>(
        "Errore di dimensioni - ",
        "FVector::Add(FVector, scale)|FVector::operator+(FVector)|FVector::operator+=(FVector)|FVector::max()|"
        "FVector::min()|operator/(FVector,Fvector)|operator/(FVector,Fvector)|operator/( double, FVector )|"
        "operator*(FVector, FVector)|operator^(FVector, FVector)|operator^(FVector, FVector)",
        {[&] { v.add(v3, 1); }, [&] { v += v3; }, [&] { v -= v3; }, [&] { none.max(); }, [&] { none.min(); },
         [&] { v - v3; }, [&] { v / v3; }, [&] { 1.0 / v; }, [&] { static_cast<void>(v * v3); },
         [&] { v4 ^ FVector(4); }, [&] { v ^ v3; }});
    ExpectFailures<DimException>(
        "Errore di dimensioni - ",
        "determinant(FMatrix)|inv(FMatrix)|operator*(FMatrix, FMatrix)|operator*(FVector, FMatrix)|"
        "operator*(FMatrix, FVector)|operator/(FMatrix, FMatrix)|operator/(FMatrix, FMatrix)|"
        "operator+(FMatrix, FMatrix)|operator+(FMatrix, FMatrix)|FMatrix::balanc()|FMatrix::elmhes()|"
        "FMatrix::elmhes()|append( FMatrix, FMatrix ) rows don't correspond|"
        "append( FMatrix, FMatrix ), the rows don't correspond",
        {[&] { determinant(m23); }, [&] { inv(m23); }, [&] { operator*(m, m32); }, [&] { operator*(v3, m); },
         [&] { operator*(m, v3); }, [&] { m / m23; }, [&] { m23 / m; }, [&] { m + m23; }, [&] { m - m32; },
         [&] { m23.balanc(); }, [&] { m23.elmhes(); }, [&] { m23.hgr(); }, [&] { m.append(m23, m32); },
         [&] { m.append(m32); }});
    m.unity(), small.diag(3e-4), nan.set(kNaN);
    ExpectFailures<ZeroException>(
        "Divisione per zero - ",
        "FVector::operator/(FVector) |operator/(FVector,Fvector)|operator/( FVector, double )|inv(FMatrix)|"
        "operator/(FMatrix, FMatrix)|operator/(FMatrix, double)|operator/(FMatrix, double)",
        {[&] { v /= 0.0; },
         [&] {
             v / V({1, 0});
         },
         [&] { v / -0.0; }, [&] { inv(small); }, [&] { m / small; }, [&] { m / -0.9e-7; }, [&] { m /= 0.9e-7; }});
    EXPECT_NO_THROW((v / 1e-30, v /= 1e-30, m / 1e-7, inv(small.diag(3.2e-4))));
    ExpectFailures<MemException>(
        "Errore di memoria - ",
        "FVector::init|FVector::resize(int)|FMatrix::init|FMatrix::init|FMatrix::init|d_PseudoInv(FMatrix)",
        {[&] { v.size(-1); }, [&] { v.resize(-5); }, [&] { m.size(kHuge, kHuge); }, [&] { m.size(-1, 3); },
         [&] { m.resize(kHuge, kHuge); }, [&] { d_PseudoInv(nan); }});
    EXPECT_TRUE(v.dim() == 0 && m.nrows() == 0 && !m.IsMatrixCreated() && m.append(nan).ncols() == 2);
    if constexpr (sizeof(std::size_t) == 4) {
        EXPECT_THROW(FVector{kHuge}, MemException);
    }
}

TEST(Exception, BuffersGrowAndAreBounded) {
    Messages dimension("Errore di dimensioni - "), zero("Divisione per zero - ");
    if (!dimension.IsFound() || !zero.IsFound()) GTEST_SKIP() << "no list of the process' memory";
    DimException first("first,"), second("second"), null(static_cast<const char*>(nullptr));
    second = DimException(first);
    ZeroException full;
    for (int i = 0; i < 100000; ++i) full = ZeroException("0123456789");
    EXPECT_EQ(dimension.Take(), "first,second") << "a full buffer runs into no other";
    const std::string text = zero.Take();
    EXPECT_TRUE(text.size() > 1000 && text.size() < 100000 && text.rfind("01234567890123") != text.npos) << text.size();
}
