#include "SeriesGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

namespace korvane {

namespace {

constexpr double kCosineTolerance = 1e-3;
constexpr double kSmallestDistance = 1e-4;  // closer positions are one: they are rounded in files
constexpr double kUneven = 0.01;            // of the usual distance
constexpr double kSmallestUneven = 1e-3;
constexpr double kOffEven = 0.05;  // of the usual distance
constexpr double kSheared = 0.1;   // of a pixel, or millimetres; rounded positions stay below
constexpr std::size_t kMostOutliers = 4;
constexpr double kDwarfing = 20;  // times the next smaller distance
constexpr double kDegrees = 180 / 3.14159265358979323846;

using Vector = std::array<double, 3>;
using Positions = std::vector<std::optional<Vector>>;

double Dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

double Length(const Vector& a) {
    return std::sqrt(Dot(a, a));
}

Vector NormalOf(const std::array<double, 6>& o) {
    Vector normal{o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
    const double length = Length(normal);
    if (!(length > 0) || !std::isfinite(length)) return {0, 0, 1};
    for (double& component : normal) component /= length;
    return normal;
}

/// Of ascending positions. Distances that dwarf all others count as the next smaller one: a slice that lies far away must
/// not make neighbours of the others seem one.
double ExtentOf(const std::vector<std::pair<double, std::size_t>>& order) {
    std::vector<double> gaps;
    for (std::size_t i = 1; i < order.size(); ++i) gaps.push_back(order[i].first - order[i - 1].first);
    std::sort(gaps.begin(), gaps.end());
    std::size_t kept = gaps.size();
    for (; kept > 1 && kept + kMostOutliers > gaps.size(); --kept) {
        if (gaps[kept - 2] < kSmallestUneven * 2 || gaps[kept - 1] < kDwarfing * gaps[kept - 2]) break;
    }
    double extent = 0;
    for (std::size_t i = 0; i < gaps.size(); ++i) extent += gaps[std::min(i, kept - 1)];
    return extent;
}

void BuildStacks(const Positions& slices, SeriesGeometry& geometry) {
    std::vector<double>& along = geometry.along;
    std::vector<std::pair<double, std::size_t>> order;
    for (std::size_t i = 0; i < slices.size(); ++i) {
        if (slices[i]) {
            order.emplace_back(Dot(*slices[i], geometry.normal), i);
        } else {
            geometry.unplaced.push_back(i);
        }
    }
    if (order.empty()) return;
    std::sort(order.begin(), order.end());
    // Many volumes at the same positions make the mean distance small, but not by so much.
    const double apart = std::max(kSmallestDistance, 0.01 * ExtentOf(order) / static_cast<double>(order.size()));
    for (const auto& [position, index] : order) {
        if (along.empty() || position - along.back() > apart) {
            along.push_back(position);
            geometry.stacks.emplace_back();
        }
        geometry.stacks.back().push_back(index);
    }
    for (auto& stack : geometry.stacks) std::sort(stack.begin(), stack.end());
}

void CountVolumes(SeriesGeometry& geometry) {
    for (const auto& stack : geometry.stacks) geometry.volumes = std::max(geometry.volumes, stack.size());
    geometry.complete = std::all_of(geometry.stacks.begin(), geometry.stacks.end(),
                                    [&](const auto& stack) { return stack.size() == geometry.volumes; });
}

double ToleranceOf(double gap) {
    return std::max(kSmallestUneven, kUneven * gap);
}

void MeasureGaps(SeriesGeometry& geometry) {
    const std::vector<double>& along = geometry.along;
    if (along.size() < 2) return;
    std::vector<double> gaps;
    for (std::size_t i = 1; i < along.size(); ++i) gaps.push_back(along[i] - along[i - 1]);
    std::vector<double> sorted = gaps;
    std::sort(sorted.begin(), sorted.end());
    geometry.smallestGap = sorted.front();
    geometry.largestGap = sorted.back();
    geometry.usualGap = sorted[(sorted.size() - 1) / 2];
    const double tolerance = ToleranceOf(geometry.usualGap);
    for (std::size_t i = 0; i < gaps.size(); ++i) {
        if (std::fabs(gaps[i] - geometry.usualGap) <= tolerance) continue;
        const double ratio = std::round(gaps[i] / geometry.usualGap);
        const bool multiple = ratio >= 2 && ratio < 1e6 && std::fabs(gaps[i] - ratio * geometry.usualGap) <= tolerance;
        geometry.uneven.push_back({i, gaps[i], multiple ? static_cast<int>(ratio) - 1 : 0});
    }
    const double mean = (along.back() - along.front()) / static_cast<double>(gaps.size());
    for (std::size_t i = 0; i < along.size(); ++i) {
        const double even = along.front() + mean * static_cast<double>(i);
        geometry.offEven = std::max(geometry.offEven, std::fabs(along[i] - even));
    }
}

/// The diagonal of the box of the positions in the planes: exact where they lie on a line.
void MeasureSideways(const std::array<double, 6>& o, const Positions& slices, SeriesGeometry& geometry) {
    const Vector row{o[0], o[1], o[2]};
    const Vector& n = geometry.normal;
    const Vector column{n[1] * row[2] - n[2] * row[1], n[2] * row[0] - n[0] * row[2], n[0] * row[1] - n[1] * row[0]};
    double extents[2] = {0, 0};
    for (int axis = 0; axis < 2; ++axis) {
        double low = HUGE_VAL;
        double high = -HUGE_VAL;
        for (const auto& stack : geometry.stacks) {
            for (const std::size_t index : stack) {
                const double at = Dot(*slices[index], axis == 0 ? row : column);
                low = std::min(low, at);
                high = std::max(high, at);
            }
        }
        if (low < high) extents[axis] = high - low;
    }
    geometry.sideways = std::hypot(extents[0], extents[1]);
}

void MeasureTilt(const Positions& slices, SeriesGeometry& geometry) {
    if (geometry.stacks.size() < 2) return;
    const Vector& first = *slices[geometry.stacks.front().front()];
    const Vector& last = *slices[geometry.stacks.back().front()];
    const Vector line{last[0] - first[0], last[1] - first[1], last[2] - first[2]};
    const double cosine = Dot(line, geometry.normal) / Length(line);
    geometry.tilt = std::acos(std::clamp(cosine, -1.0, 1.0)) * kDegrees;
    for (const auto& stack : geometry.stacks) {
        for (const std::size_t index : stack) {
            const Vector& p = *slices[index];
            const Vector q{p[0] - first[0], p[1] - first[1], p[2] - first[2]};
            const double along = Dot(q, geometry.normal) / Dot(line, geometry.normal);
            const Vector off{q[0] - along * line[0], q[1] - along * line[1], q[2] - along * line[2]};
            if (Length(off) > geometry.shift) {
                geometry.shift = Length(off);
                geometry.shifted = index;
            }
        }
    }
}

}  // namespace

SeriesGeometry StudyGeometry(const std::vector<FramePlace>& slices) {
    if (slices.empty()) return {};
    Positions positions;
    positions.reserve(slices.size());
    for (const FramePlace& slice : slices)
        positions.push_back(slice.hasPosition ? std::optional(slice.position) : std::nullopt);
    return StudyGeometry(slices.front().orientation, positions);
}

SeriesGeometry StudyGeometry(const std::array<double, 6>& orientation,
                             const std::vector<std::optional<std::array<double, 3>>>& positions) {
    SeriesGeometry geometry;
    geometry.normal = NormalOf(orientation);
    BuildStacks(positions, geometry);
    CountVolumes(geometry);
    MeasureGaps(geometry);
    MeasureTilt(positions, geometry);
    MeasureSideways(orientation, positions, geometry);
    return geometry;
}

bool IsSheared(const SeriesGeometry& geometry, double pixel) {
    return geometry.sideways > kSheared * std::min(pixel, 1.0);
}

bool IsUneven(const SeriesGeometry& geometry) {
    return !geometry.uneven.empty() || geometry.offEven > std::max(kSmallestUneven, kOffEven * geometry.usualGap);
}

std::vector<std::pair<std::size_t, std::size_t>> EvenRuns(const std::vector<double>& along) {
    // The best cut of the first n positions ends with a run that begins where `start` says.
    struct Cut {
        std::size_t runs = 0;
        std::uint64_t squares = 0;  // of the runs' lengths: larger where one of two is long
        std::size_t start = 0;
    };
    std::vector<Cut> best(along.size() + 1);
    for (std::size_t end = 1; end <= along.size(); ++end) {
        double smallest = 0;
        double largest = 0;
        for (std::size_t start = end; start-- > 0;) {
            const std::uint64_t length = end - start;
            if (length > 1) {
                const double gap = along[start + 1] - along[start];
                smallest = length == 2 ? gap : std::min(smallest, gap);
                largest = std::max(largest, gap);
                if (largest - smallest > ToleranceOf(smallest)) break;
            }
            const Cut cut{best[start].runs + 1, best[start].squares + length * length, start};
            const bool better = length == 1 || cut.runs < best[end].runs ||
                                (cut.runs == best[end].runs && cut.squares > best[end].squares);
            if (better) best[end] = cut;
        }
    }
    std::vector<std::pair<std::size_t, std::size_t>> runs;
    for (std::size_t end = along.size(); end > 0; end = best[end].start) runs.emplace_back(best[end].start, end - 1);
    std::reverse(runs.begin(), runs.end());
    return runs;
}

bool SameOrientation(const FramePlace& a, const FramePlace& b) {
    if (a.hasOrientation != b.hasOrientation) return false;
    for (std::size_t i = 0; i < a.orientation.size(); ++i) {
        if (std::fabs(a.orientation[i] - b.orientation[i]) > kCosineTolerance) return false;
    }
    return true;
}

std::string DirectionLabel(double x, double y, double z) {
    std::pair<double, char> parts[] = {
        {std::fabs(x), x < 0 ? 'R' : 'L'}, {std::fabs(y), y < 0 ? 'A' : 'P'}, {std::fabs(z), z < 0 ? 'F' : 'H'}};
    std::stable_sort(std::begin(parts), std::end(parts),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const double least = 0.1 * std::sqrt(x * x + y * y + z * z);
    std::string label;
    for (const auto& [size, letter] : parts) {
        if (size > 0 && size >= least) label += letter;
    }
    return label;
}

}  // namespace korvane
