#include "math/MessageBuffer.h"

#include <Korvane/Korvane.h>

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <type_traits>
#include <vector>

namespace {

static_assert(std::is_polymorphic_v<Exception> && std::has_virtual_destructor_v<Exception>);
static_assert(sizeof(DimException) == sizeof(void*) && sizeof(Exception) == sizeof(void*));

constexpr int kHuge = std::numeric_limits<int>::max();

struct Failure {
    const char* message;
    std::function<void()> operation;
};

// Each operation throws the type, by value; where the buffer can be read, its name stands there, and nothing else.
template <typename Type>
void ExpectFailures(const char* prefix, const std::vector<Failure>& failures) {
    Messages messages(prefix);
    for (const Failure& failure : failures) {
        EXPECT_THROW(failure.operation(), Type) << failure.message;
        if (messages.IsFound()) {
            EXPECT_EQ(messages.Take(), failure.message);
        }
    }
}

}  // namespace

TEST(Exception, DimensionsThatDoNotMatch) {
    FVector v2(2), v3(3), v4(4), none;
    v2.unity(), v3.unity(), v4.unity();
    FMatrix m22(2, 2), m23(2, 3), m32(3, 2);
    m22.unity(), m23.unity(), m32.unity();
    FVector zero(2);
    zero.zero();
    ExpectFailures<DimException>("Errore di dimensioni - ",
                                 {{"FVector::Add(FVector, scale)", [&] { v2.add(v3, 1); }},
                                  {"FVector::operator+(FVector)", [&] { v2 += v3; }},
                                  {"FVector::operator+=(FVector)", [&] { v2 -= v3; }},
                                  {"FVector::max()", [&] { none.max(); }},
                                  {"FVector::min()", [&] { FVector(0).min(); }},
                                  {"operator/(FVector,Fvector)", [&] { v2 - v3; }},
                                  {"operator/(FVector,Fvector)", [&] { v2 / v3; }},
                                  {"operator/( double, FVector )", [&] { 1.0 / zero; }},
                                  {"operator*(FVector, FVector)", [&] { static_cast<void>(v2 * v3); }},
                                  {"operator^(FVector, FVector)", [&] { v4 ^ v4; }},
                                  {"operator^(FVector, FVector)", [&] { v2 ^ v3; }},
                                  {"determinant(FMatrix)", [&] { determinant(m23); }},
                                  {"inv(FMatrix)", [&] { inv(m23); }},
                                  {"operator*(FMatrix, FMatrix)", [&] { m22* m32; }},
                                  {"operator*(FVector, FMatrix)", [&] { v3* m22; }},
                                  {"operator*(FMatrix, FVector)", [&] { m22* v3; }},
                                  {"operator/(FMatrix, FMatrix)", [&] { m22 / m23; }},
                                  {"operator/(FMatrix, FMatrix)", [&] { m23 / m22; }},
                                  {"operator+(FMatrix, FMatrix)", [&] { m22 + m23; }},
                                  {"operator+(FMatrix, FMatrix)", [&] { m22 - m23; }},
                                  {"FMatrix::balanc()", [&] { m23.balanc(); }},
                                  {"FMatrix::elmhes()", [&] { m23.elmhes(); }},
                                  {"FMatrix::elmhes()", [&] { m23.hgr(); }},
                                  {"append( FMatrix, FMatrix ) rows don't correspond", [&] { m22.append(m23, m32); }},
                                  {"append( FMatrix, FMatrix ), the rows don't correspond", [&] { m22.append(m32); }}});
}

// The vector divisions refuse an exact 0 only.
TEST(Exception, DivisionByZero) {
    FVector v(2), zero(2);
    v.unity(), zero.zero();
    FMatrix m(2, 2), small(2, 2), singular(3, 3);
    m.unity(), small.diag(3e-4), singular.set(1);
    ExpectFailures<ZeroException>("Divisione per zero - ", {{"FVector::operator/(FVector) ", [&] { v /= 0.0; }},
                                                            {"operator/(FVector,Fvector)", [&] { v / zero; }},
                                                            {"operator/( FVector, double )", [&] { v / -0.0; }},
                                                            {"inv(FMatrix)", [&] { inv(small); }},
                                                            {"inv(FMatrix)", [&] { inv(singular); }},
                                                            {"operator/(FMatrix, FMatrix)", [&] { m / small; }},
                                                            {"operator/(FMatrix, double)", [&] { m / -0.9e-7; }},
                                                            {"operator/(FMatrix, double)", [&] { m /= 0.9e-7; }}});
    EXPECT_NO_THROW(v / 1e-30);
    EXPECT_NO_THROW(v /= 1e-30);
    EXPECT_NO_THROW(m / 1e-7);
    EXPECT_NO_THROW(inv(small.diag(3.2e-4)));
}

TEST(Exception, MemoryThatCannotBeHad) {
    FVector v(3);
    FMatrix m(3, 3);
    FMatrix nan(2, 2);
    nan.set(std::numeric_limits<float>::quiet_NaN());
    ExpectFailures<MemException>("Errore di memoria - ", {{"FVector::init", [&] { v.size(-1); }},
                                                          {"FVector::resize(int)", [&] { v.resize(-5); }},
                                                          {"FMatrix::init", [&] { m.size(kHuge, kHuge); }},
                                                          {"FMatrix::init", [&] { m.size(-1, 3); }},
                                                          {"FMatrix::init", [&] { m.resize(kHuge, kHuge); }},
                                                          {"d_PseudoInv(FMatrix)", [&] { d_PseudoInv(nan); }}});
    EXPECT_EQ(v.dim(), 0);
    EXPECT_EQ(m.nrows(), 0);
    EXPECT_FALSE(m.IsMatrixCreated());
    EXPECT_EQ(m.append(nan).ncols(), 2) << "still usable";
    if constexpr (sizeof(std::size_t) == 4) {
        EXPECT_THROW(FVector{kHuge}, MemException);
    }
}

TEST(Exception, BuffersGrowAndAreBounded) {
    Messages dimension("Errore di dimensioni - ");
    Messages memory("Errore di memoria - ");
    Messages zero("Divisione per zero - ");
    if (!dimension.IsFound() || !memory.IsFound() || !zero.IsFound()) GTEST_SKIP() << "no list of the process' memory";
    const DimException first("first,");
    const DimException copy(first);
    DimException second("second");
    second = copy;
    EXPECT_EQ(dimension.Peek(), "first,second");
    for (int i = 0; i < 100000; ++i) ZeroException("0123456789");
    ZeroException("");
    const char* const null = nullptr;
    const MemException nothing(null);
    EXPECT_EQ(memory.Peek(), "");
    EXPECT_EQ(dimension.Peek(), "first,second") << "a full buffer runs into no other";
    EXPECT_EQ(zero.Peek().rfind("0123456789012", 0), 0U);
    EXPECT_GT(zero.Peek().size(), 1000U);
    EXPECT_LT(zero.Take().size(), 100000U);
}

TEST(Exception, IsCaughtByItsBase) {
    EXPECT_THROW(FVector().max(), Exception);
    try {
        throw ZeroException("x");
    } catch (const DimException&) {
        FAIL();
    } catch (const Exception& exception) {
        EXPECT_NE(dynamic_cast<const ZeroException*>(&exception), nullptr);
    }
}
