// A volume as the sampling loops see it: addresses, strides, and where the planes lie.
#pragma once

#include "../volume/CVolume.h"
#include "PlaneOffsets.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane_detail {

/// Positions are fixed point: 31 bits of fraction, so that a fraction is a 32-bit integer that converts to float, and
/// the sum of two fractions carries into the sign bit.
constexpr int kFractionBits = 31;
constexpr std::int64_t kOne = std::int64_t{1} << kFractionBits;
constexpr std::int64_t kFractionMask = kOne - 1;

/// Unevenly spaced planes: z counts in ticks, so many from the first plane to the last.
constexpr std::int32_t kTicks = 1 << 30;

/// Planes are in ascending z here, whatever order the volume has them in.
struct SliceView {
    CVolume::PixelType m_Type;
    int m_Size;  ///< bytes of a voxel
    int m_Columns;
    int m_Rows;
    int m_Planes;
    std::size_t m_RowBytes;
    const unsigned char* const* m_pPlanes;  ///< one more than there are: the last one twice

    /// For gathers with 32-bit offsets: plane k begins m_pOffsets[k] bytes from m_pBase. Null where the planes lie too
    /// far apart for that, or are too small.
    const unsigned char* m_pBase;
    const std::int32_t* m_pOffsets;
    /// Bytes from plane to plane where they are evenly spaced both in memory and along z; 0 elsewhere.
    std::int32_t m_PlaneStep;

    /// Even: the integer part of a z position is the plane. Else it is a tick, in cell tick >> m_CellShift; m_pCells names
    /// the plane at or below where the cell begins, and m_bOneStep says that no cell holds more than one further plane.
    bool m_bEven;
    bool m_bOneStep;
    int m_CellShift;
    const std::int32_t* m_pTicks;  ///< of each plane
    const std::int32_t* m_pCells;
};

/// The tables behind a view, made for one picture. Nothing of the volume is copied but the planes' places.
class SliceTables {
public:
    /// Null, or why the volume cannot be sliced.
    const char* Read(CVolume& volume);

    const SliceView& GetView() const { return m_View; }
    /// Positions per millimetre, along x, y, z.
    const double (&GetScale() const)[3] { return m_Scale; }
    /// The lowest plane's z in millimetres, from plane 0.
    double GetFirstZ() const { return m_FirstZ; }
    /// Position of the last voxel centre along each axis; that of the first is 0.
    const double (&GetTop() const)[3] { return m_Top; }
    /// What a voxel measures in positions, for tolerances.
    const double (&GetVoxel() const)[3] { return m_Voxel; }
    /// Where the planes lie sideways.
    const PlaneOffsets& GetOffsets() const { return m_Offsets; }
    /// Smallest distance of voxels along an axis, millimetres.
    double GetSmallestSpacing() const { return m_SmallestSpacing; }

private:
    struct Plane {
        double m_Z;  // from plane 0
        const unsigned char* m_pData;
    };

    const char* ReadShape(CVolume& volume);
    const char* ReadPlanes(CVolume& volume, int count);
    void MakeOffsets();
    bool IsEven() const;
    std::int32_t FindPlaneStep() const;
    void MakeTicks();
    void MakeCells(std::int32_t smallestGap);

    SliceView m_View = {};
    double m_Scale[3] = {1, 1, 1};
    double m_Top[3] = {0, 0, 0};
    double m_Voxel[3] = {1, 1, 1};
    double m_FirstZ = 0;
    double m_SmallestSpacing = 0;
    std::vector<Plane> m_Sorted;
    std::vector<const unsigned char*> m_Data;
    PlaneOffsets m_Offsets;
    std::vector<std::int32_t> m_Bytes;  // from m_pBase
    std::vector<std::int32_t> m_Ticks;
    std::vector<std::int32_t> m_Cells;
};

}  // namespace korvane_detail
