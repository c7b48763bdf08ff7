#include "Exception.h"
#include "FVector.h"

#include <algorithm>

namespace {

void RequireSameDim(const FVector& a, const FVector& b, const char* operation) {
    if (a.dim() != b.dim()) throw DimException(operation);
}

template <typename Operation>
FVector Map(const FVector& a, Operation operation) {
    const int n = a.dim();
    FVector result(n);
    const float* const from = a.GetPointer();
    float* const to = result.GetPointer();
    for (int i = 0; i < n; ++i) to[i] = static_cast<float>(operation(static_cast<double>(from[i])));
    return result;
}

bool HasZero(const FVector& v) {
    const float* const elements = v.GetPointer();
    return std::any_of(elements, elements + v.dim(), [](float element) { return element == 0.0F; });
}

}  // namespace

FVector operator+(const FVector& a, const FVector& b) {
    FVector result(a);
    const int common = std::min(a.dim(), b.dim());
    for (int i = 0; i < common; ++i) result[i] += b[i];
    return result;
}

FVector operator-(const FVector& a, const FVector& b) {
    RequireSameDim(a, b, "operator/(FVector,Fvector)");
    FVector result(a);
    for (int i = 0; i < a.dim(); ++i) result[i] -= b[i];
    return result;
}

FVector operator/(const FVector& a, const FVector& b) {
    RequireSameDim(a, b, "operator/(FVector,Fvector)");
    if (HasZero(b)) throw ZeroException("operator/(FVector,Fvector)");
    FVector result(a);
    for (int i = 0; i < a.dim(); ++i) result[i] /= b[i];
    return result;
}

FVector operator+(const FVector& a, double s) {
    return Map(a, [s](double element) { return element + s; });
}

FVector operator+(double s, const FVector& a) {
    return a + s;
}

FVector operator-(const FVector& a, double s) {
    return Map(a, [s](double element) { return element - s; });
}

FVector operator-(double s, const FVector& a) {
    return Map(a, [s](double element) { return s - element; });
}

FVector operator*(const FVector& a, double s) {
    return Map(a, [s](double element) { return element * s; });
}

FVector operator*(double s, const FVector& a) {
    return a * s;
}

// The vector divisions refuse an exact zero only; the matrix divisions refuse whatever is below 1e-7.
FVector operator/(const FVector& a, double s) {
    if (s == 0.0) throw ZeroException("operator/( FVector, double )");
    return Map(a, [s](double element) { return element / s; });
}

FVector operator/(double s, const FVector& a) {
    if (HasZero(a)) throw DimException("operator/( double, FVector )");
    return Map(a, [s](double element) { return s / element; });
}

float operator*(const FVector& a, const FVector& b) {
    RequireSameDim(a, b, "operator*(FVector, FVector)");
    double sum = 0.0;
    for (int i = 0; i < a.dim(); ++i) sum += static_cast<double>(a[i]) * b[i];
    return static_cast<float>(sum);
}

FVector operator^(const FVector& a, const FVector& b) {
    const int n = a.dim();
    if (n != b.dim() || (n != 2 && n != 3)) throw DimException("operator^(FVector, FVector)");
    const auto minor = [&a, &b](int i, int j) {
        return static_cast<float>(static_cast<double>(a[i]) * b[j] - static_cast<double>(a[j]) * b[i]);
    };
    FVector result(3);
    result[0] = n == 3 ? minor(1, 2) : 0.0F;
    result[1] = n == 3 ? minor(2, 0) : 0.0F;
    result[2] = minor(0, 1);
    return result;
}

bool operator==(const FVector& a, const FVector& b) {
    return a.dim() == b.dim() && std::equal(a.GetPointer(), a.GetPointer() + a.dim(), b.GetPointer());
}

bool operator!=(const FVector& a, const FVector& b) {
    return !(a == b);
}

bool operator<(const FVector& a, const FVector& b) {
    return a.mod() < b.mod();
}

bool operator>(const FVector& a, const FVector& b) {
    return a.mod() > b.mod();
}

bool operator<=(const FVector& a, const FVector& b) {
    return !(a > b);
}

bool operator>=(const FVector& a, const FVector& b) {
    return !(a < b);
}
