#include "Haralick3d.h"

#include "Exception.h"
#include "PoseFit.h"

#include <algorithm>
#include <cmath>
#include <utility>

using korvane_detail::GetElement;
using korvane_detail::PointPairs;
using korvane_detail::PoseFit;

namespace {

constexpr const char* kOperation = "Haralick3d::Init";

}  // namespace

Haralick3d::Haralick3d() = default;

Haralick3d::Haralick3d(const FPoint* from, const FPoint* to, int n) {
    Init(from, to, n);
}

Haralick3d::Haralick3d(const FMatrix& from, const FMatrix& to) {
    Init(from, to);
}

Haralick3d::Haralick3d(const Haralick3d& other) = default;

Haralick3d::~Haralick3d() = default;

Haralick3d& Haralick3d::operator=(const Haralick3d& other) = default;

void Haralick3d::Init(const FPoint* from, const FPoint* to, int n) {
    fit(toMatrix(from, n), toMatrix(to, n), nullptr);
}

void Haralick3d::Init(const FMatrix& from, const FMatrix& to) {
    fit(from, to, nullptr);
}

FMatrix Haralick3d::GetRotation() const {
    return m_Transform.GetRotation();
}

FVector Haralick3d::GetTranslation() const {
    return m_Transform.GetTranslation();
}

FMatrix Haralick3d::toMatrix(const FPoint* points, int n) {
    if (points == nullptr || n < 0) throw DimException(kOperation);
    FMatrix matrix(n, 3);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < 3; ++j) matrix[i][j] = GetElement(points[i], j);
    }
    return matrix;
}

void Haralick3d::requirePairs(const FMatrix& from, const FMatrix& to) {
    if (to.nrows() != from.nrows() || from.ncols() != 3 || to.ncols() != 3) throw DimException(kOperation);
}

void Haralick3d::fit(const FMatrix& from, const FMatrix& to, const float* weights) {
    requirePairs(from, to);
    const int n = from.nrows();
    const int used = weights == nullptr ? n : n - static_cast<int>(std::count(weights, weights + n, 0.0F));
    if (used < 3) throw DimException(kOperation);
    const PointPairs pairs(from, to);
    PoseFit fit(pairs);
    if (!fit.Solve(weights, nullptr, n)) throw ZeroException(kOperation);

    FVector errors(n);
    double squares = 0.0;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        const double error = pairs.Error(fit.GetPose(), i);
        const double weight = weights != nullptr ? weights[i] : 1.0;
        errors[i] = static_cast<float>(error);
        squares += weight * error * error;
        sum += weight;
    }
    m_Transform = FTransform(fit.GetPose().m_Rotation, fit.GetPose().m_Translation, true);
    m_Errors = std::move(errors);
    m_Residual = std::sqrt(squares / sum);
    m_bMirrored = fit.IsMirrored();
}
