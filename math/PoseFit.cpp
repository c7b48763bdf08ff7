#include "PoseFit.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace korvane_detail {

namespace {

// Weight times the 3 x 3 matrix of products a[i] * b[j].
void AddProduct(Matrix3& sum, const Double3& a, const Double3& b, double weight) {
    sum.SetColumn(0, sum.Column(0) + a * (b.x * weight));
    sum.SetColumn(1, sum.Column(1) + a * (b.y * weight));
    sum.SetColumn(2, sum.Column(2) + a * (b.z * weight));
}

constexpr Matrix3 kZero = {{{0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}}};

}  // namespace

PoseFit::PoseFit(const PointPairs& pairs) : m_Pairs(pairs) {
    double largest = 0.0;
    for (int i = 0; i < pairs.Count(); ++i) {
        for (const Double3& p : {pairs.From(i), pairs.To(i)}) {
            largest = std::max({largest, std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)});
        }
    }
    m_Rounding = largest * std::numeric_limits<float>::epsilon();
}

// The sum of squares of the points' places along their longest axis; 0 for points on one line, which leave the turn
// about it open.
double PoseFit::GetSpread(const Matrix3& scatter, double weight) const {
    constexpr double kLine = 1e-5;
    const Decomposition3 axes(scatter);
    const double along = std::sqrt(axes.m_Values[0] / weight);
    const double across = std::sqrt(axes.m_Values[1] / weight);
    return across > kLine * along && across > 2.0 * m_Rounding ? axes.m_Values[0] : 0.0;
}

bool PoseFit::Solve(const float* weights, const int* index, int n) {
    constexpr double kUndetermined = 1e-12;
    const auto pick = [index](int i) { return index != nullptr ? index[i] : i; };
    const auto weigh = [weights](int i) { return weights != nullptr ? static_cast<double>(weights[i]) : 1.0; };
    double weight = 0.0;
    Double3 from;
    Double3 to;
    for (int i = 0; i < n; ++i) {
        const int k = pick(i);
        weight += weigh(k);
        from = from + m_Pairs.From(k) * weigh(k);
        to = to + m_Pairs.To(k) * weigh(k);
    }
    from = from * (1.0 / weight);
    to = to * (1.0 / weight);
    Matrix3 correlation = kZero;
    Matrix3 fromScatter = kZero;
    Matrix3 toScatter = kZero;
    for (int i = 0; i < n; ++i) {
        const int k = pick(i);
        const Double3 a = m_Pairs.From(k) - from;
        const Double3 b = m_Pairs.To(k) - to;
        AddProduct(correlation, b, a, weigh(k));
        AddProduct(fromScatter, a, a, weigh(k));
        AddProduct(toScatter, b, b, weigh(k));
    }
    const double norm = std::sqrt(GetSpread(fromScatter, weight) * GetSpread(toScatter, weight));
    const Decomposition3 axes(correlation);
    if (!(norm > 0.0) || !(axes.m_Values[1] > kUndetermined * norm)) return false;
    m_Pose.m_Rotation = axes.GetRotation();
    m_Pose.m_Translation = to - m_Pose.m_Rotation * from;
    m_bMirrored = Determinant(correlation) < 0.0 && axes.m_Values[2] > 1e-6 * axes.m_Values[1];
    return true;
}

}  // namespace korvane_detail
