#include "CommonScale.h"

#include "VoxelDispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

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

/// Plane after plane.
template <class Take>
void ForEachReal(const ScaledPlanes& from, Take take) {
    const std::size_t inPlane = from.voxels.size() / SizeOf(from.type) / from.rescales.size();
    for (std::size_t plane = 0; plane < from.rescales.size(); ++plane) {
        ForEachReal(PlaneOf(from, plane), [&, first = plane * inPlane](std::size_t i, double real, bool isMeasured) {
            take(first + i, real, isMeasured);
        });
    }
}

template <class T>
void Put(VoxelBlock& voxels, std::size_t index, T value) {
    std::memcpy(voxels.GetBytes().data() + index * sizeof value, &value, sizeof value);
}

template <class T>
bool FitsInto(double value) {
    return value >= static_cast<double>(std::numeric_limits<T>::min()) &&
           value <= static_cast<double>(std::numeric_limits<T>::max());
}

using Measured = MeasuredReals;

Measured Measure(const ScaledPlanes& from) {
    Measured measured;
    for (std::size_t plane = 0; plane < from.rescales.size(); ++plane) measured.Add(MeasureReals(PlaneOf(from, plane)));
    return measured;
}

/// Below, or where that does not fit above, all that is measured: whole numbers of the common scale.
template <class T>
std::optional<double> PaddingBeside(const Measured& measured, const Rescale& common) {
    if (!(measured.lowest <= measured.highest)) return 0;
    const auto [low, high] = std::minmax(
        {(measured.lowest - common.intercept) / common.slope, (measured.highest - common.intercept) / common.slope});
    for (const double value : {std::floor(low + kRounding) - 1, std::ceil(high - kRounding) + 1}) {
        if (FitsInto<T>(value)) return value;
    }
    return std::nullopt;
}

float PaddingBelow(const Measured& measured) {
    if (!(measured.lowest <= measured.highest)) return 0;
    const auto lowest = static_cast<float>(measured.lowest);
    return std::min(static_cast<float>(std::floor(measured.lowest) - 1),
                    std::nextafter(lowest, -std::numeric_limits<float>::infinity()));
}

/// False where a value at the common scale is no whole number, or is beyond the range of the type.
template <class T>
bool TryIntegersOf(const ScaledPlanes& from, const Measured& measured, CommonScale& common) {
    if (measured.padding > 0) common.padding = PaddingBeside<T>(measured, common.rescale);
    bool exact = measured.padding == 0 || common.padding;
    const double padding = common.padding.value_or(0);
    // A slope far below the common one would make a small part of a step of what is a step of its own.
    double least = std::fabs(common.rescale.slope);
    for (const Rescale& rescale : from.rescales) least = std::min(least, std::fabs(rescale.slope));
    const double most = kRounding * least / std::fabs(common.rescale.slope);
    ForEachReal(from, [&](std::size_t i, double real, bool isMeasured) {
        if (!exact) return;
        const double value = isMeasured ? (real - common.rescale.intercept) / common.rescale.slope : padding;
        exact = std::fabs(value - std::round(value)) < most && FitsInto<T>(std::round(value));
        if (exact) Put(common.voxels, i, static_cast<T>(std::round(value)));
    });
    return exact;
}

bool TryIntegers(const ScaledPlanes& from, const Measured& measured, CommonScale& common) {
    switch (from.type) {
    case VoxelType::Int8: return TryIntegersOf<std::int8_t>(from, measured, common);
    case VoxelType::UInt8: return TryIntegersOf<std::uint8_t>(from, measured, common);
    case VoxelType::Int16: return TryIntegersOf<std::int16_t>(from, measured, common);
    case VoxelType::UInt16: return TryIntegersOf<std::uint16_t>(from, measured, common);
    default: return false;  // of 32 bits and floats: 32-bit floats do as well
    }
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

CommonScale ToCommonIntegers(const ScaledPlanes& from) {
    const Measured measured = Measure(from);
    const IntegerScale scale(measured);
    CommonScale common{.rescale = scale.GetRescale(), .padding = scale.GetPadding(), .paddingVoxels = measured.padding};
    common.voxels = VoxelBlock(from.voxels.size() / SizeOf(from.type) * sizeof(std::int16_t));
    const std::size_t bytes = common.voxels.GetBytes().size() / from.rescales.size();
    for (std::size_t plane = 0; plane < from.rescales.size(); ++plane) {
        const double error =
            scale.Convert(PlaneOf(from, plane), common.voxels.GetBytes().subspan(plane * bytes, bytes));
        common.error = std::max(common.error, error);
    }
    return common;
}

CommonScale ToCommonScale(const ScaledPlanes& from) {
    const Measured measured = Measure(from);
    CommonScale common{.type = from.type, .rescale = from.rescales.front()};
    for (const Rescale& rescale : from.rescales) {
        if (std::fabs(rescale.slope) > std::fabs(common.rescale.slope)) common.rescale = rescale;
    }
    common.paddingVoxels = measured.padding;
    common.voxels = VoxelBlock(from.voxels.size());
    if (TryIntegers(from, measured, common)) return common;
    common = {.type = VoxelType::Float32, .paddingVoxels = measured.padding};
    const float padding = PaddingBelow(measured);
    if (measured.padding > 0) common.padding = static_cast<double>(padding);
    common.voxels = VoxelBlock(from.voxels.size() / SizeOf(from.type) * sizeof(float));
    ForEachReal(from, [&](std::size_t i, double real, bool isMeasured) {
        const float value = isMeasured ? static_cast<float>(real) : padding;
        if (isMeasured && std::isfinite(real))
            common.error = std::max(common.error, std::fabs(static_cast<double>(value) - real));
        Put(common.voxels, i, value);
    });
    return common;
}

}  // namespace korvane
