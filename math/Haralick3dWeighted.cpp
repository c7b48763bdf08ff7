#include "Haralick3dWeighted.h"

#include "Exception.h"
#include "PoseFit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>
#include <vector>

using korvane_detail::PointPairs;
using korvane_detail::Pose;
using korvane_detail::PoseFit;

namespace {

constexpr const char* kOperation = "Haralick3dWeighted::Init";

FVector GetUsable(const float* weights, int n) {
    FVector usable(std::max(n, 0));
    for (int i = 0; i < usable.dim(); ++i) {
        const float weight = weights != nullptr ? weights[i] : 1.0F;
        usable[i] = weight > 0.0F && std::isfinite(weight) ? weight : 0.0F;
    }
    return usable;
}

// Fits that outliers do not spoil. Errors are multiplied with the square root of the given weight, so that those of
// points of different worth compare.
class RobustFit {
public:
    RobustFit(const PointPairs& pairs, const FVector& given);

    // The best of many triplets.
    void Begin();
    // Computes weights from the pose's errors and a new pose from the weights, in turn, until the weights no longer
    // change.
    void Converge();

    const FVector& GetWeights() const { return m_Weights; }
    double GetDeviation() const { return m_Deviation; }
    int GetIterations() const { return m_nIterations; }

private:
    double GetMedianError(const Pose& pose);
    void TryTriplet(const int (&triplet)[3]);
    void TryAllTriplets();
    void TrySomeTriplets();
    double Weigh();

    const PointPairs& m_Pairs;
    const FVector& m_Given;
    PoseFit m_Fit;
    FVector m_Weights;
    std::vector<int> m_Used;  ///< the points that have a weight
    std::vector<double> m_Errors;
    Pose m_Pose;
    double m_Median = std::numeric_limits<double>::infinity();
    double m_Deviation = 0.0;
    double m_Least = 0.0;  ///< deviation that single precision alone explains
    int m_nIterations = 0;
};

constexpr int kTriplets = 300;  // with a third of outliers, one of ten at random has none

RobustFit::RobustFit(const PointPairs& pairs, const FVector& given)
    : m_Pairs(pairs), m_Given(given), m_Fit(pairs), m_Weights(given) {
    for (int i = 0; i < given.dim(); ++i) {
        if (given[i] > 0.0F) m_Used.push_back(i);
    }
    if (m_Used.size() < 3) throw DimException(kOperation);
    m_Errors.resize(m_Used.size());
    m_Least = m_Fit.GetRounding() * std::sqrt(given.max());
}

double RobustFit::GetMedianError(const Pose& pose) {
    const auto error = [this, &pose](int i) { return m_Pairs.Error(pose, i) * std::sqrt(double{m_Given[i]}); };
    std::transform(m_Used.begin(), m_Used.end(), m_Errors.begin(), error);
    const auto middle = m_Errors.begin() + static_cast<std::ptrdiff_t>(m_Errors.size() / 2);
    std::nth_element(m_Errors.begin(), middle, m_Errors.end());
    return *middle;
}

void RobustFit::TryTriplet(const int (&triplet)[3]) {
    if (!m_Fit.Solve(m_Given, triplet, 3)) return;
    const double median = GetMedianError(m_Fit.GetPose());
    if (!(median < m_Median)) return;
    m_Median = median;
    m_Pose = m_Fit.GetPose();
}

void RobustFit::TryAllTriplets() {
    const std::size_t n = m_Used.size();
    for (std::size_t a = 2; a < n; ++a) {
        for (std::size_t b = 1; b < a; ++b) {
            for (std::size_t c = 0; c < b; ++c) TryTriplet({m_Used[a], m_Used[b], m_Used[c]});
        }
    }
}

// The triplets are drawn by a generator of its own: those of the standard library may differ from system to system, and
// the result must not.
void RobustFit::TrySomeTriplets() {
    std::uint64_t state = 1;
    const auto draw = [this, &state] {
        state = state * 6364136223846793005U + 1442695040888963407U;
        return m_Used[static_cast<std::size_t>((state >> 33U) % m_Used.size())];
    };
    for (int i = 0; i < kTriplets; ++i) {
        const int a = draw();
        const int b = draw();
        const int c = draw();
        if (a != b && b != c && a != c) TryTriplet({a, b, c});
    }
}

void RobustFit::Begin() {
    const std::size_t n = m_Used.size();
    if (n * (n - 1) / 2 * (n - 2) / 3 <= kTriplets) {
        TryAllTriplets();
    } else {
        TrySomeTriplets();
    }
    if (std::isfinite(m_Median)) return;
    if (!m_Fit.Solve(m_Given, nullptr, m_Given.dim())) throw ZeroException(kOperation);
    m_Pose = m_Fit.GetPose();
}

// Returns the largest change of a weight. An error is the length of a difference of three coordinates: where each of
// them is normally distributed, the median length is 1.538 standard deviations. The root makes up for the six unknowns
// of the pose, which 3n coordinates were fitted with.
double RobustFit::Weigh() {
    constexpr double kMedian = 1.5381722544550522;
    constexpr double kCutoff = 6.0;
    const auto n = static_cast<double>(m_Used.size());
    m_Deviation = std::max(GetMedianError(m_Pose) / kMedian * std::sqrt(n / (n - 2.0)), m_Least);
    double change = 0.0;
    for (const int i : m_Used) {
        const double given = m_Given[i];
        const double u = m_Pairs.Error(m_Pose, i) * std::sqrt(given) / (kCutoff * m_Deviation);
        const double biweight = u < 1.0 ? (1.0 - u * u) * (1.0 - u * u) : 0.0;
        change = std::max(change, std::fabs(biweight - m_Weights[i] / given));
        m_Weights[i] = static_cast<float>(given * biweight);
    }
    return change;
}

void RobustFit::Converge() {
    constexpr int kMostIterations = 100;
    constexpr double kSame = 1e-6;
    while (Weigh() > kSame && m_nIterations < kMostIterations) {
        if (!m_Fit.Solve(m_Weights, nullptr, m_Weights.dim())) throw ZeroException(kOperation);
        m_Pose = m_Fit.GetPose();
        ++m_nIterations;
    }
}

}  // namespace

Haralick3dWeighted::Haralick3dWeighted() = default;

Haralick3dWeighted::Haralick3dWeighted(const FPoint* from, const FPoint* to, const float* weights, int n) {
    Init(from, to, weights, n);
}

Haralick3dWeighted::Haralick3dWeighted(const FMatrix& from, const FMatrix& to, const FVector& weights) {
    Init(from, to, weights);
}

Haralick3dWeighted::Haralick3dWeighted(const Haralick3dWeighted& other) = default;

Haralick3dWeighted::~Haralick3dWeighted() = default;

Haralick3dWeighted& Haralick3dWeighted::operator=(const Haralick3dWeighted& other) = default;

void Haralick3dWeighted::Init(const FPoint* from, const FPoint* to, const float* weights, int n) {
    Init(toMatrix(from, n), toMatrix(to, n), GetUsable(weights, n));
}

void Haralick3dWeighted::Init(const FMatrix& from, const FMatrix& to, const FVector& weights) {
    if (weights.dim() != from.nrows()) throw DimException(kOperation);
    FVector usable = GetUsable(weights, weights.dim());
    fit(from, to, usable);
    m_Weights = std::move(usable);
    m_Deviation = 0.0;
    m_nIterations = 0;
}

void Haralick3dWeighted::InitRobust(const FPoint* from, const FPoint* to, int n, const float* weights) {
    robust(toMatrix(from, n), toMatrix(to, n), GetUsable(weights, n));
}

void Haralick3dWeighted::InitRobust(const FMatrix& from, const FMatrix& to) {
    robust(from, to, GetUsable(nullptr, from.nrows()));
}

void Haralick3dWeighted::InitRobust(const FMatrix& from, const FMatrix& to, const FVector& weights) {
    if (weights.dim() != from.nrows()) throw DimException(kOperation);
    robust(from, to, GetUsable(weights, weights.dim()));
}

void Haralick3dWeighted::robust(const FMatrix& from, const FMatrix& to, const FVector& given) try {
    requirePairs(from, to);
    const PointPairs pairs(from, to);
    RobustFit search(pairs, given);
    search.Begin();
    search.Converge();
    FVector weights = search.GetWeights();
    fit(from, to, weights);
    m_Weights = std::move(weights);
    m_Deviation = search.GetDeviation();
    m_nIterations = search.GetIterations();
} catch (const std::bad_alloc&) {
    throw MemException(kOperation);
}
