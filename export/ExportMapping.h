// What an exporter does to voxel values.
#pragma once

#include <cstdint>
#include <limits>

/// How the numbers in an exporter's file come from the voxels in memory:
///
///     number = trunc(voxel * scale + shift) + offset, then held within lowest .. highest
///
/// The file keeps the low `bits` bits of that, so a number that does not fit wraps around. Each exporter's `GetMapping`
/// gives the one that its `Save` uses.
struct ExportMapping {
    /// Why a voxel is not stored as it is; several may apply. The numbers are for reports and do not change.
    enum Reason : unsigned {
        Halved = 1,         ///< unsigned voxels of Modality XA, halved so that they fit into signed numbers
        MovedToSigned = 2,  ///< unsigned voxels less 32767, so that they fit into signed numbers
        Rescaled = 4,       ///< in modality units, shifted or halved for some modalities where the format does so
        FromMinimum = 8,    ///< less the smallest voxel, so that the numbers begin at 0
        ReducedTo12 = 16,   ///< divided by 16, so that 12 bits are enough
        Cleared = 32,       ///< zeros are written in place of all voxels
    };

    double scale = 1;
    double shift = 0;  ///< added before truncation
    int offset = 0;    ///< added after truncation
    std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    int bits = 0;           ///< size of a number in the file; 0 where the file holds no voxels of the volume
    bool isSigned = false;  ///< readers take the bits for a signed number
    unsigned reasons = 0;   ///< `Reason`s added up; 0 where every number is its voxel's value
};
