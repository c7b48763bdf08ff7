#include "NumericalRoutines.h"

#include "Exception.h"
#include "LUDecomposition.h"

#include <algorithm>
#include <cmath>
#include <limits>

float determinant(const FMatrix& a) {
    if (a.nrows() != a.ncols()) throw DimException("determinant(FMatrix)");
    return korvane_detail::LUDecomposition(a, "determinant(FMatrix)").GetDeterminant();
}

FMatrix inv(const FMatrix& a) {
    if (a.nrows() != a.ncols()) throw DimException("inv(FMatrix)");
    const korvane_detail::LUDecomposition lu(a, "inv(FMatrix)");
    if (lu.IsSingular() || std::fabs(lu.GetDeterminant()) < 1e-7) throw ZeroException("inv(FMatrix)");
    return lu.Invert();
}

int rank(const FMatrix& /*a*/) {
    return 0;
}

float pythag(float a, float b) {
    const double absA = std::fabs(a);
    const double absB = std::fabs(b);
    if (absA >= absB && absA != 0.0) return static_cast<float>(absA * std::sqrt(absB * absB / (absA * absA) + 1.0));
    if (absB != 0.0) return static_cast<float>(absB * std::sqrt(absA * absA / (absB * absB) + 1.0));
    return static_cast<float>(absA);  // 0, or NaN
}

namespace {

// f(x) - target at abscissas that are floats, as f takes them.
class Difference {
public:
    Difference(float (*f)(float, int*), int* context, float target) : m_f(f), m_Context(context), m_Target(target) {}
    double operator()(double x) const { return static_cast<double>(m_f(static_cast<float>(x), m_Context)) - m_Target; }

private:
    float (*m_f)(float, int*);
    int* m_Context;
    double m_Target;
};

struct Point {
    double x;
    double y;
};

bool HaveSameSign(double a, double b) {
    return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0);
}

// False where no change of sign shows up.
bool Bracket(const Difference& g, double x0, Point& low, Point& high) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    // A step of 0 never grows; one of a subnormal reaches the end of the range in less than 300 steps.
    for (double h = 0.05 * x0; h != 0.0 && std::fabs(x0) + std::fabs(h) <= kLargest; h *= 2.0) {
        const double left = static_cast<float>(x0 - h);
        const double right = static_cast<float>(x0 + h);
        low = {left, g(left)};
        high = {right, g(right)};
        if (std::isnan(low.y) || std::isnan(high.y)) return false;
        if (!HaveSameSign(low.y, high.y)) return true;
    }
    return false;
}

// The step from b by the inverse parabola through the three points, or by the secant where a and c are the same. False
// where it leads too far, or shrinks too slowly beside the step before the last.
bool Interpolate(const Point& a, const Point& b, const Point& c, double tolerance, double beforeLast, double& step) {
    const double half = 0.5 * (c.x - b.x);
    const double s = b.y / a.y;
    double p = 2.0 * half * s;
    double q = 1.0 - s;
    if (a.x != c.x) {
        const double t = a.y / c.y;
        const double r = b.y / c.y;
        p = s * (2.0 * half * t * (t - r) - (b.x - a.x) * (r - 1.0));
        q = (t - 1.0) * (r - 1.0) * (s - 1.0);
    }
    if (p > 0.0) q = -q;
    p = std::fabs(p);
    if (!(2.0 * p < std::min(3.0 * half * q - std::fabs(tolerance * q), std::fabs(beforeLast * q)))) return false;
    step = p / q;
    return true;
}

}  // namespace

float findzero(float (*f)(float, int*), float x0, int* context, float target) {
    constexpr double kTolerance = 2.384185791015625e-07;  // 2^-22
    constexpr int kMostSteps = 100;
    const Difference g(f, context, target);
    Point a{};
    Point b{};
    if (!Bracket(g, x0, a, b)) return x0;
    Point c = b;  // across the root from b
    double step = b.x - a.x;
    double beforeLast = step;
    for (int i = 0; i < kMostSteps; ++i) {
        if (HaveSameSign(b.y, c.y)) {
            c = a;
            step = beforeLast = b.x - a.x;
        }
        if (std::fabs(c.y) < std::fabs(b.y)) {
            a = b;
            b = c;
            c = a;
        }
        const double tolerance = kTolerance * std::max(std::fabs(b.x), 1.0);
        const double half = 0.5 * (c.x - b.x);
        if (std::fabs(half) <= tolerance || b.y == 0.0) break;
        double next = half;
        if (std::fabs(beforeLast) >= tolerance && std::fabs(a.y) > std::fabs(b.y) &&
            Interpolate(a, b, c, tolerance, beforeLast, next)) {
            beforeLast = step;
        } else {
            beforeLast = half;
        }
        step = next;
        a = b;
        const double x = b.x + (std::fabs(step) > tolerance ? step : std::copysign(tolerance, half));
        b.x = static_cast<float>(x);
        b.y = g(b.x);
        if (std::isnan(b.y)) break;
    }
    return static_cast<float>(b.x);
}
