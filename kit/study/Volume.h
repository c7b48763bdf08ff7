// The voxels of a series, and where they lie.
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "Series.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

class CDicomVolume;

namespace korvane {

/// What one voxel is. Integers have the signs and bits that the files say; what stands above Bits Stored is masked out.
enum class VoxelType { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64, Rgb24 };

/// Such as "signed 16-bit".
KORVANE_KIT const char* WordOf(VoxelType type);
KORVANE_KIT std::size_t SizeOf(VoxelType type);

/// Three bytes.
struct Rgb {
    std::uint8_t red, green, blue;
};

/// real value = stored * slope + intercept.
struct Rescale {
    double slope = 1;
    double intercept = 0;

    bool operator==(const Rescale&) const = default;
};

class VolumeData;

/// A volume: planes of voxels, contiguous, columns fastest, then rows, planes, times. Planes are in the module's order,
/// which runs against the normal (row direction x column direction) in most series: `GetPositions` says where each lies,
/// nothing else does. Movable; owns what it holds; spans and references into it live until it goes. One that
/// was moved from has nothing: its functions throw `Error` of kind `WrongArgument`.
///
///     korvane::Volume volume = korvane::Load(korvane::Find({"ct"}).Only());
///     const auto [columns, rows, planes, times] = volume.GetSize();
///     for (const std::int16_t value : volume.GetVoxels<std::int16_t>()) ...
class KORVANE_KIT Volume {
public:
    using Vector = std::array<double, 3>;

    /// For the rooms of the Kit.
    explicit Volume(std::unique_ptr<VolumeData> data);
    Volume(Volume&& other) noexcept;
    Volume& operator=(Volume&& other) noexcept;
    Volume(const Volume&) = delete;
    Volume& operator=(const Volume&) = delete;
    ~Volume();

    const Series& GetSeries() const;

    VoxelType GetType() const;
    std::array<std::size_t, 4> GetSize() const;  ///< columns, rows, planes, times

    // Patient millimetres (x to the left, y to the back, z to the head).
    bool HasPositions() const;  ///< else planes are in the order of their instance numbers, and positions are a guess
    bool HasSpacing() const;    ///< else the first two of `GetSpacing` are 1 and mean nothing
    /// Between columns (along a row), between rows, between planes (the usual distance along the normal).
    Vector GetSpacing() const;
    Vector GetOrigin() const { return GetPositions().front(); }  ///< centre of the first voxel
    Vector GetRowDirection() const;
    Vector GetColumnDirection() const;
    Vector GetNormal() const;
    /// Centre of each plane's first voxel. The truth where planes are uneven or tilted.
    const std::vector<Vector>& GetPositions() const;

    /// What each time is, such as "echo number 2"; one "" where there is one.
    const std::vector<std::string>& GetTimeKeys() const;

    /// How stored values become real ones, in a plane: the rescale (0028,1053), the factor of a dose grid, or a Real World
    /// Value Mapping where there is neither. Colours have none.
    Rescale GetRescale(std::size_t plane, std::size_t time = 0) const;
    bool HasOneRescale() const;          ///< the same in all planes
    const std::string& GetUnit() const;  ///< of real values: "HU", "BQML" ...; "" where nothing tells

    /// Throws `Error` of kind `WrongArgument` for a plane that is not there, as `GetRescale` does.
    std::span<const std::byte> GetPlane(std::size_t plane, std::size_t time = 0) const;
    std::span<const std::byte> GetBytes() const;
    /// All voxels. Throws `Error` of kind `WrongArgument` when T is not what they are.
    template <class T>
    std::span<const T> GetVoxels() const {
        const std::span<const std::byte> bytes = GetBytesOf(TypeOf<T>());
        return {reinterpret_cast<const T*>(bytes.data()), bytes.size() / sizeof(T)};
    }

    /// What is odd about the series and about this volume of it.
    const std::vector<Finding>& GetFindings() const;

    /// The module's object, with the data sets of the slices, for hosts that go on with the module; null when it has no
    /// form for such voxels (colour, signed 8 or 32 bits, floating point, several times). It stays this object's. Pixel data of
    /// the data sets is where the voxels are, and not there any more where those were brought to one scale.
    CDicomVolume* Module() const;

    // For the rooms of the Kit.
    VolumeData& GetData() const;

private:
    template <class T>
    static constexpr VoxelType TypeOf() {
        using V = std::remove_cv_t<T>;
        if constexpr (std::is_same_v<V, std::int8_t>)
            return VoxelType::Int8;
        else if constexpr (std::is_same_v<V, std::uint8_t>)
            return VoxelType::UInt8;
        else if constexpr (std::is_same_v<V, std::int16_t>)
            return VoxelType::Int16;
        else if constexpr (std::is_same_v<V, std::uint16_t>)
            return VoxelType::UInt16;
        else if constexpr (std::is_same_v<V, std::int32_t>)
            return VoxelType::Int32;
        else if constexpr (std::is_same_v<V, std::uint32_t>)
            return VoxelType::UInt32;
        else if constexpr (std::is_same_v<V, float>)
            return VoxelType::Float32;
        else if constexpr (std::is_same_v<V, double>)
            return VoxelType::Float64;
        else {
            static_assert(std::is_same_v<V, Rgb>, "no voxel is of that type");
            return VoxelType::Rgb24;
        }
    }
    std::span<const std::byte> GetBytesOf(VoxelType type) const;
    std::size_t PlaneIndex(std::size_t plane, std::size_t time) const;

    std::unique_ptr<VolumeData> m_pData;
};

}  // namespace korvane
