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

/// Calls `take(index, plane, stored value)` for each voxel.
template <class T, class Take>
void ForEachOf(std::span<const std::byte> voxels, std::size_t planes, Take take) {
    const std::size_t count = voxels.size() / sizeof(T);
    const std::size_t inPlane = count / planes;
    for (std::size_t i = 0; i < count; ++i) {
        T stored;
        std::memcpy(&stored, voxels.data() + i * sizeof(T), sizeof stored);
        take(i, i / inPlane, static_cast<double>(stored));
    }
}

template <class Take>
void ForEachVoxel(VoxelType type, std::span<const std::byte> voxels, std::size_t planes, Take take) {
    WithVoxelType(type, [&](auto zero) { ForEachOf<decltype(zero)>(voxels, planes, take); });
}

template <class T>
void Put(std::vector<std::byte>& voxels, std::size_t index, T value) {
    std::memcpy(voxels.data() + index * sizeof value, &value, sizeof value);
}

double RealOf(double stored, const Rescale& rescale) {
    return stored * rescale.slope + rescale.intercept;
}

template <class T>
bool FitsInto(double value) {
    return value >= static_cast<double>(std::numeric_limits<T>::min()) &&
           value <= static_cast<double>(std::numeric_limits<T>::max());
}

/// False where a value at the common scale is no whole number, or is beyond the range of the type.
template <class T>
bool TryIntegers(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales,
                 CommonScale& common) {
    bool exact = true;
    ForEachVoxel(type, voxels, rescales.size(), [&](std::size_t i, std::size_t plane, double stored) {
        const double value = (RealOf(stored, rescales[plane]) - common.rescale.intercept) / common.rescale.slope;
        exact = exact && std::fabs(value - std::round(value)) < kRounding && FitsInto<T>(std::round(value));
        if (exact) Put(common.voxels, i, static_cast<T>(std::round(value)));
    });
    return exact;
}

bool TryIntegers(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales,
                 CommonScale& common) {
    switch (type) {
    case VoxelType::Int8: return TryIntegers<std::int8_t>(type, voxels, rescales, common);
    case VoxelType::UInt8: return TryIntegers<std::uint8_t>(type, voxels, rescales, common);
    case VoxelType::Int16: return TryIntegers<std::int16_t>(type, voxels, rescales, common);
    case VoxelType::UInt16: return TryIntegers<std::uint16_t>(type, voxels, rescales, common);
    default: return false;  // of 32 bits and floats: 32-bit floats do as well
    }
}

}  // namespace

CommonScale ToCommonIntegers(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales) {
    double smallest = 0;
    double largest = 0;
    ForEachVoxel(type, voxels, rescales.size(), [&](std::size_t, std::size_t plane, double stored) {
        const double real = RealOf(stored, rescales[plane]);
        if (!std::isfinite(real)) return;
        smallest = std::min(smallest, real);
        largest = std::max(largest, real);
    });
    constexpr double kLowest = std::numeric_limits<std::int16_t>::min();
    constexpr double kHighest = std::numeric_limits<std::int16_t>::max();
    CommonScale common;
    common.rescale.slope = std::max(smallest / kLowest, largest / kHighest);
    if (!(common.rescale.slope > 0)) common.rescale.slope = 1;
    common.voxels.resize(voxels.size() / SizeOf(type) * sizeof(std::int16_t));
    ForEachVoxel(type, voxels, rescales.size(), [&](std::size_t i, std::size_t plane, double stored) {
        const double real = RealOf(stored, rescales[plane]);
        const double value =
            std::isnan(real) ? 0 : std::clamp(std::round(real / common.rescale.slope), kLowest, kHighest);
        if (std::isfinite(real)) common.error = std::max(common.error, std::fabs(value * common.rescale.slope - real));
        Put(common.voxels, i, static_cast<std::int16_t>(value));
    });
    return common;
}

CommonScale ToCommonScale(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales) {
    CommonScale common{.type = type, .rescale = rescales.front()};
    for (const Rescale& rescale : rescales) {
        if (std::fabs(rescale.slope) > std::fabs(common.rescale.slope)) common.rescale = rescale;
    }
    common.voxels.resize(voxels.size());
    if (TryIntegers(type, voxels, rescales, common)) return common;
    common = {.type = VoxelType::Float32};
    common.voxels.resize(voxels.size() / SizeOf(type) * sizeof(float));
    ForEachVoxel(type, voxels, rescales.size(), [&](std::size_t i, std::size_t plane, double stored) {
        const double real = RealOf(stored, rescales[plane]);
        const auto value = static_cast<float>(real);
        if (std::isfinite(real)) common.error = std::max(common.error, std::fabs(static_cast<double>(value) - real));
        Put(common.voxels, i, value);
    });
    return common;
}

}  // namespace korvane
