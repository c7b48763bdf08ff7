// What a volume of the Kit holds.
#pragma once

#include "SeriesVolume.h"
#include "Volume.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// What a volume that was made of an array tells about itself.
struct MadeOf {
    std::optional<Series> source;
    std::string description;
    std::string derivation;
};

/// Voxels are the module's, where it has a form for them, else this object's own.
class VolumeData {
public:
    explicit VolumeData(std::unique_ptr<SeriesVolume> series) : m_pSeries(std::move(series)) {}

    /// For the rooms that work on what the module holds.
    SeriesVolume& GetSeriesVolume() const { return *m_pSeries; }

    /// Reads the volume chosen. Throws `Error`.
    void Load(bool oneScale);
    /// Reads all volumes, as times. Throws `Error` when they do not lie in the same places.
    void LoadTimes(const Watch& watch);

    VoxelType type = VoxelType::UInt8;
    std::array<std::size_t, 4> size{};
    std::vector<FramePlace> places;         ///< of each plane, time after time
    std::vector<Volume::Vector> positions;  ///< of each plane
    std::vector<Rescale> rescales;          ///< of each plane, time after time
    double distance = 0;                    ///< of planes, the usual one
    std::vector<std::string> timeKeys;
    std::string unit;
    std::vector<Finding> findings;
    std::span<const std::byte> voxels;
    bool inModule = true;
    std::optional<MadeOf> made;  ///< else it was read

private:
    void TakeGeometry();
    void TakePlanes();
    void TakeFindings();
    void CheckPlaces() const;

    std::unique_ptr<SeriesVolume> m_pSeries;
    VoxelBlock m_Times;  // the voxels of all volumes, where there are several
};

}  // namespace korvane
