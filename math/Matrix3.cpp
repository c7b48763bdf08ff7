#include "Matrix3.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace korvane_detail {

Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
    Matrix3 product;
    for (int j = 0; j < 3; ++j) product.SetColumn(j, a * b.Column(j));
    return product;
}

Matrix3 Transpose(const Matrix3& a) {
    Matrix3 transposed;
    for (int i = 0; i < 3; ++i) transposed.SetColumn(i, a.Row(i));
    return transposed;
}

double Determinant(const Matrix3& a) {
    return Dot(a.Row(0), Cross(a.Row(1), a.Row(2)));
}

namespace {

// Makes columns i and j perpendicular; false where they are.
bool Rotate(Matrix3& a, Matrix3& v, int i, int j) {
    const Double3 p = a.Column(i);
    const Double3 q = a.Column(j);
    const double product = Dot(p, q);
    if (!(std::fabs(product) > std::numeric_limits<double>::epsilon() * Length(p) * Length(q))) return false;
    const double zeta = (Dot(q, q) - Dot(p, p)) / (2.0 * product);
    const double tangent = std::copysign(1.0, zeta) / (std::fabs(zeta) + std::sqrt(1.0 + zeta * zeta));
    const double cosine = 1.0 / std::sqrt(1.0 + tangent * tangent);
    const double sine = cosine * tangent;
    for (Matrix3* const both : {&a, &v}) {
        const Double3 first = both->Column(i);
        const Double3 second = both->Column(j);
        both->SetColumn(i, first * cosine - second * sine);
        both->SetColumn(j, first * sine + second * cosine);
    }
    return true;
}

// The largest element becomes 1: squares neither overflow nor vanish.
double Scale(Matrix3& a) {
    double largest = 0.0;
    for (const auto& row : a.m) {
        for (const double element : row) largest = std::max(largest, std::fabs(element));
    }
    for (auto& row : a.m) {
        for (double& element : row) element = largest > 0.0 ? element / largest : 0.0;
    }
    return largest;
}

}  // namespace

Decomposition3::Decomposition3(const Matrix3& a) {
    constexpr int kMostSweeps = 30;  // six are many
    Matrix3 g = a;
    const double scale = Scale(g);
    bool changed = true;
    for (int sweep = 0; changed && sweep < kMostSweeps; ++sweep) {
        changed = Rotate(g, m_V, 0, 1);
        changed = Rotate(g, m_V, 0, 2) || changed;
        changed = Rotate(g, m_V, 1, 2) || changed;
    }
    std::pair<double, int> order[3];
    for (int j = 0; j < 3; ++j) order[j] = {-Length(g.Column(j)), j};
    std::sort(order, order + 3);
    const Matrix3 v = m_V;
    for (int k = 0; k < 3; ++k) {
        const double value = -order[k].first;
        m_Values[k] = value * scale;
        m_V.SetColumn(k, v.Column(order[k].second));
        if (k < 2) m_U[k] = g.Column(order[k].second) * (value > 0.0 ? 1.0 / value : 0.0);
    }
}

// The rotation nearest to the matrix is U V', unless one of U and V mirrors. Third columns made by cross products see
// to that: if the matrix mirrors, it is then the direction of the smallest singular value that is turned over.
Matrix3 Decomposition3::GetRotation() const {
    Matrix3 u;
    u.SetColumn(0, m_U[0]);
    u.SetColumn(1, m_U[1]);
    u.SetColumn(2, Cross(m_U[0], m_U[1]));
    Matrix3 v = m_V;
    v.SetColumn(2, Cross(m_V.Column(0), m_V.Column(1)));
    return u * Transpose(v);
}

}  // namespace korvane_detail
