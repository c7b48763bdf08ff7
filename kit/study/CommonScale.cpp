#include "CommonScale.h"

#include "VoxelDispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace korvane {

namespace {

constexpr double kRounding = 1e-7;  // of a step: slopes are decimal texts
constexpr double kHighest = std::numeric_limits<std::int16_t>::max();

/// Calls `take(index, real value, whether it is measured)` for each voxel.
template <class Take>
void ForEachReal(const ScaledPlane& plane, Take take) {
    WithVoxelType(plane.type, [&](auto zero) {
        auto stored = zero;
        // Copies: what `take` writes might be these otherwise, for all that the compiler knows.
        const Rescale rescale = plane.rescale;
        const Padding padding = plane.padding;
        const std::size_t count = plane.voxels.size() / sizeof stored;
        const std::byte* at = plane.voxels.data();
        for (std::size_t index = 0; index < count; ++index, at += sizeof stored) {
            std::memcpy(&stored, at, sizeof stored);
            const auto value = static_cast<double>(stored);
            const bool isPadding = value >= padding.first && value <= padding.second;
            take(index, value * rescale.slope + rescale.intercept, !isPadding);
        }
    });
}

ScaledPlane PlaneOf(const ScaledPlanes& from, std::size_t plane) {
    const std::size_t bytes = from.voxels.size() / from.rescales.size();
    return {from.type, from.voxels.subspan(plane * bytes, bytes), from.rescales[plane],
            from.paddings.empty() ? kNoPadding : from.paddings[plane]};
}

template <class T>
bool FitsInto(double value) {
    return value >= static_cast<double>(std::numeric_limits<T>::min()) &&
           value <= static_cast<double>(std::numeric_limits<T>::max());
}

MeasuredReals Measure(const ScaledPlanes& from) {
    MeasuredReals measured;
    for (std::size_t plane = 0; plane < from.rescales.size(); ++plane) measured.Add(MeasureReals(PlaneOf(from, plane)));
    return measured;
}

/// Below, or where that does not fit above, all that is measured: whole numbers of the common scale.
template <class T>
std::optional<double> PaddingBeside(const MeasuredReals& measured, const Rescale& common) {
    if (!(measured.lowest <= measured.highest)) return 0;
    const auto [low, high] = std::minmax(
        {(measured.lowest - common.intercept) / common.slope, (measured.highest - common.intercept) / common.slope});
    for (const double value : {std::floor(low + kRounding) - 1, std::ceil(high - kRounding) + 1}) {
        if (FitsInto<T>(value)) return value;
    }
    return std::nullopt;
}

float PaddingBelow(const MeasuredReals& measured) {
    if (!(measured.lowest <= measured.highest)) return 0;
    const auto lowest = static_cast<float>(measured.lowest);
    return std::min(static_cast<float>(std::floor(measured.lowest) - 1),
                    std::nextafter(lowest, -std::numeric_limits<float>::infinity()));
}

/// Calls `work` with a zero of the type, of those whose integers may stay: of 32 bits and floats 32-bit floats do as well.
template <class Work>
void WithSmallType(VoxelType type, Work work) {
    WithVoxelType(type, [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_integral_v<T> && sizeof(T) <= 2) work(zero);
    });
}

CommonScale Convert(const ScaledPlanes& from, const MeasuredReals& measured, const ScaleTarget& target) {
    CommonScale common{.type = target.GetType(),
                       .rescale = target.GetRescale(),
                       .padding = target.GetPadding(),
                       .paddingVoxels = measured.padding};
    common.voxels = VoxelBlock(from.voxels.size() / SizeOf(from.type) * SizeOf(common.type));
    const std::size_t bytes = common.voxels.GetBytes().size() / from.rescales.size();
    for (std::size_t plane = 0; plane < from.rescales.size(); ++plane) {
        const double error =
            target.Convert(PlaneOf(from, plane), common.voxels.GetBytes().subspan(plane * bytes, bytes));
        common.error = std::max(common.error, error);
    }
    return common;
}

}  // namespace

void MeasuredReals::Add(const MeasuredReals& other) {
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
    padding += other.padding;
    finite = finite && other.finite;
}

MeasuredReals MeasureReals(const ScaledPlane& plane) {
    MeasuredReals measured;
    ForEachReal(plane, [&](std::size_t, double real, bool isMeasured) {
        measured.padding += isMeasured ? 0 : 1;
        if (!isMeasured) return;
        if (!std::isfinite(real)) {
            measured.finite = false;
            return;
        }
        measured.lowest = std::min(measured.lowest, real);
        measured.highest = std::max(measured.highest, real);
    });
    return measured;
}

IntegerScale::IntegerScale(const MeasuredReals& measured)
    : m_Lowest(std::numeric_limits<std::int16_t>::min() + (measured.padding > 0 ? 1 : 0)) {  // for the value of padding
    m_Rescale.slope = std::max(std::min(measured.lowest, 0.0) / m_Lowest, std::max(measured.highest, 0.0) / kHighest);
    if (!(m_Rescale.slope > 0)) m_Rescale.slope = 1;
    if (measured.padding == 0) return;
    const double least = std::round(std::min(measured.lowest, measured.highest) / m_Rescale.slope);
    m_Padding = std::isfinite(least) ? std::max(least, m_Lowest) - 1 : 0;
}

std::int16_t IntegerScale::ValueOf(double real) const {
    return static_cast<std::int16_t>(
        std::isnan(real) ? 0 : std::clamp(std::round(real / m_Rescale.slope), m_Lowest, kHighest));
}

MeasuredRange IntegerScale::RangeOf(const MeasuredReals& measured) const {
    if (!(measured.lowest <= measured.highest)) return {};
    return {ValueOf(measured.lowest), ValueOf(measured.highest)};
}

double IntegerScale::Convert(const ScaledPlane& plane, std::span<std::byte> to) const {
    double error = 0;
    const auto padding = static_cast<std::int16_t>(m_Padding.value_or(0));
    ForEachReal(plane, [&](std::size_t i, double real, bool isMeasured) {
        const std::int16_t value = isMeasured ? ValueOf(real) : padding;
        if (isMeasured && std::isfinite(real))
            error = std::max(error, std::fabs(static_cast<double>(value) * m_Rescale.slope - real));
        std::memcpy(to.data() + i * sizeof value, &value, sizeof value);
    });
    return error;
}

ExactScale::ExactScale(VoxelType stored, const std::vector<Rescale>& rescales) : m_Type(stored) {
    m_Rescale = rescales.front();
    for (const Rescale& rescale : rescales) {
        if (std::fabs(rescale.slope) > std::fabs(m_Rescale.slope)) m_Rescale = rescale;
    }
    // A slope far below the common one would make a small part of a step of what is a step of its own.
    double least = std::fabs(m_Rescale.slope);
    for (const Rescale& rescale : rescales) least = std::min(least, std::fabs(rescale.slope));
    m_Most = kRounding * least / std::fabs(m_Rescale.slope);
}

bool ExactScale::IsExact(const ScaledPlane& plane) const {
    bool exact = false;
    WithSmallType(m_Type, [&](auto zero) {
        exact = true;
        ForEachReal(plane, [&](std::size_t, double real, bool isMeasured) {
            if (!exact || !isMeasured) return;
            const double value = (real - m_Rescale.intercept) / m_Rescale.slope;
            exact = std::fabs(value - std::round(value)) < m_Most && FitsInto<decltype(zero)>(std::round(value));
        });
    });
    return exact;
}

void ExactScale::Choose(const MeasuredReals& measured, bool exact) {
    if (exact && measured.padding > 0) {
        WithSmallType(m_Type, [&](auto zero) { m_Padding = PaddingBeside<decltype(zero)>(measured, m_Rescale); });
    }
    if (exact && (measured.padding == 0 || m_Padding)) return;
    m_Type = VoxelType::Float32;
    m_Rescale = {};
    m_RealPadding = PaddingBelow(measured);
    m_Padding = measured.padding > 0 ? std::optional(static_cast<double>(m_RealPadding)) : std::nullopt;
}

double ExactScale::Convert(const ScaledPlane& plane, std::span<std::byte> to) const {
    double error = 0;
    const auto put = [&](std::size_t i, auto value) {
        std::memcpy(to.data() + i * sizeof value, &value, sizeof value);
    };
    if (m_Type == VoxelType::Float32) {
        ForEachReal(plane, [&](std::size_t i, double real, bool isMeasured) {
            const float value = isMeasured ? static_cast<float>(real) : m_RealPadding;
            if (isMeasured && std::isfinite(real))
                error = std::max(error, std::fabs(static_cast<double>(value) - real));
            put(i, value);
        });
        return error;
    }
    WithSmallType(m_Type, [&](auto zero) {
        using T = decltype(zero);
        const auto padding = static_cast<T>(m_Padding.value_or(0));
        ForEachReal(plane, [&](std::size_t i, double real, bool isMeasured) {
            const double value = std::round((real - m_Rescale.intercept) / m_Rescale.slope);
            put(i, isMeasured ? static_cast<T>(value) : padding);
        });
    });
    return error;
}

CommonScale ToCommonIntegers(const ScaledPlanes& from) {
    const MeasuredReals measured = Measure(from);
    return Convert(from, measured, IntegerScale(measured));
}

CommonScale ToCommonScale(const ScaledPlanes& from) {
    const MeasuredReals measured = Measure(from);
    ExactScale scale(from.type, from.rescales);
    bool exact = true;
    for (std::size_t plane = 0; exact && plane < from.rescales.size(); ++plane)
        exact = scale.IsExact(PlaneOf(from, plane));
    scale.Choose(measured, exact);
    return Convert(from, measured, scale);
}

}  // namespace korvane
