// The voxel volume.
#pragma once

#include "../base/Export.h"
#include "CImagePlane.h"
#include "VolumePlane.h"
#include "ZInterpVector.h"

#include <vector>

/// A stack of z-planes of one voxel type, with the geometry that slicers and exporters need.
///
/// Axes. x runs along a row (column index), y down a column (row index), z across the planes. Four-element arrays are
/// (x, y, z, fourth), the fourth being the component count or a value that is stored only. Lengths are millimetres.
/// Each plane has its own z (`CImagePlane::m_Org[2]`), rising or falling, at any distances; the z-interpolation table
/// lets a consumer sample the stack as if it were even.
///
/// Life. `Init` gives dimensions and planes without pixels, `Alloc` pixels, then the planes' origins are set and
/// `UpdateZInterpArray` is called. The table names planes by address: after `Init`, `SetDimensions`, `Free`, `Reset` or
/// a change of origins or spacing, call it again before using the table.
///
/// Sharing. `New` gives a count of 1; each further holder calls `AddRef` and every one ends with `Delete`. The count is
/// not atomic: one thread at a time.
///
/// Copying is shallow: a copy takes every field over as it is, the count included, and points into the pixels and the
/// planes of its source, so it must not be used after the source has gone or has been given other storage. A copy is a
/// borrower: its end, `Free` or `Init` frees nothing that is the source's.
class KORVANE_API CVolume {
public:
    enum PixelType : int {
        PT_SHORT = 0,   ///< signed 16-bit
        PT_USHORT = 1,  ///< unsigned 16-bit
        PT_BYTE = 2,    ///< unsigned 8-bit
        PT_FLOAT = 3,   ///< 32-bit float
        PT_LONG = 4,    ///< signed 32-bit
        PT_ULONG = 5,   ///< unsigned 32-bit
    };

    /// No pixels, count 1, spacing (1, 1, 1, 0), orientation ((1, 0, 0), (0, 1, 0)), everything else zero.
    CVolume();
    CVolume(const CVolume& other);
    CVolume& operator=(const CVolume& other);
    virtual ~CVolume();

    // ---- Creation and sharing

    /// A volume on the heap with a count of 1; end it with `Delete`.
    static CVolume* New();
    void AddRef();
    /// Drops one reference; the last one destroys the object.
    void Delete();
    int GetNRefs() const;

    // ---- Shape and storage

    /// Dimensions and voxel type: nx columns, ny rows, nz planes, nc components (1 everywhere in this library).
    /// Resets first; minimum and maximum become 0. Leaves nz planes without pixels.
    void Init(PixelType type, int nx, int ny, int nz, int nc);

    /// Pixel memory, not cleared: one contiguous block, or one block for each plane. Contiguous storage stays when
    /// separate planes are asked for; separate planes are given up for a contiguous block, pixels lost, origins kept.
    /// Throws the `int` 1 before `Init`, `std::bad_alloc` when memory is short or the sizes are negative or too large.
    void Alloc(bool contig);

    /// Gives up pixels and planes; nothing happens to a volume without pixel memory.
    void Free();
    /// `Free`, then dimensions 0, not initialised, table empty. Geometry and voxel type stay.
    void Reset();

    bool GetContig() const;  ///< Whether there is one contiguous block.
    void* GetVolumePt();     ///< That block; null for separate planes.
    /// Plane k of 0 to nz - 1, not checked.
    CImagePlane* GetPlane(int k);
    /// Planes that are there: nz, or 0 after `Free`.
    int GetPlaneCount() const;
    /// Bytes of a voxel; -1 for a value that is no `PixelType`.
    int GetTypeSize();
    /// For use before `Alloc`: pixels that are there are neither converted nor given more room.
    void SetType(PixelType type);
    PixelType GetType();

    /// Resets the volume, then stores four dimensions. `Init` must follow before `Alloc`.
    void SetDimensions(int* const d);
    void GetDimensions(int* const d) const;

    /// Bytes from one voxel to the next column, row, plane, and a fourth value. Contiguous: that of the whole volume.
    /// Separate planes: no plane increment (-1), and the bytes of a plane. The component count is not in them, though
    /// plane addresses allow for it. They are plain ints and wrap beyond 2 GB: address by `GetPlane` there.
    void GetIncrements(int* const inc) const;

    void SetOrigin(float* const org);  ///< Four values.
    void GetOrigin(float* const org) const;
    void SetSpacing(float* const space);  ///< Four values: column distance, row distance, plane distance, fourth.
    void GetSpacing(float* const space) const;
    /// Direction cosines of the row direction (along x), then of the column direction (along y).
    void SetOrientation(float (*const orient)[3]);
    void GetOrientation(float (*const orient)[3]) const;

    void SetMin(long long value);
    void SetMax(long long value);
    long long GetMin() const;
    long long GetMax() const;

    /// Widens minimum and maximum to hold every voxel of every plane, truncated toward zero; NaN is passed over. The
    /// stored values are the start and are never narrowed: after `Init` they are 0, so voxels of 100 to 200 give
    /// 0 and 200.
    void Update();

    /// Writes a description of the volume as text, the same in every locale. A file that cannot be opened or written is
    /// not reported. Type 3 (float) is called "byte", and the orientation lines show addresses: hosts depend on the
    /// text as it is.
    void Dump(const char* const path) const;

    // ---- Sampling along z

    /// Fills the z-interpolation table: samples at distances of about the voxel size, the mean of the x and y spacing,
    /// from plane 0 to the last plane. With N = trunc(|z extent| / voxel size) there are N + 1 records, i * extent / N
    /// apart. Each names its low and high plane, the linear fraction t between them and the smoothed weights
    /// S(t) and S(1 - t), S(x) = 0.1x + 2.7x^2 - 1.8x^3.
    ///
    /// The cursor moves one plane for each sample at most, so records fall behind where planes lie closer together than
    /// the voxel size (t is then above 1). This is deliberate, and hosts depend on it. For the true neighbours take
    /// `m_z` alone and search the planes.
    ///
    /// A single plane, an extent below one voxel, or a voxel size that is not positive and finite give one record at
    /// plane 0 with weights 1 (high) and 0 (low). No planes give an empty table. Above 1,048,576 records it throws
    /// `std::length_error` and the table is empty.
    void UpdateZInterpArray();

    /// Millimetres between samples, as of the last `UpdateZInterpArray`.
    float GetVoxelSize();
    /// Three values: the dimensions of the evenly resampled volume, columns, rows, records of the table.
    void GetVoxelDims(int* const d);

    /// Record i; null outside the table.
    const ZInterpVector* MapVoxToZInterp(int i) const;

    // The next four need a table with records. The record is found by truncating the distance in voxel sizes; a
    // negative one counts by its magnitude (the right thing where z falls), beyond the end the last record holds.

    /// The record for an absolute z.
    const ZInterpVector& MapVolToZInterp(float z) const;
    /// Millimetres (x and y from the volume's corner, z absolute) to the nearest plane of the record (an exact half
    /// goes to the low one), column u and row v, and the distance w from that plane.
    void MapVolToPlane(float x, float y, float z, short* plane, float* u, float* v, float* w) const;
    /// Column u and row v of a plane (not checked) to millimetres. Not the inverse of `MapVolToPlane`: here z is
    /// measured from plane 0. The difference is deliberate: hosts add the position of plane 0 themselves.
    void MapPlaneToVol(short plane, float u, float v, float* x, float* y, float* z) const;
    /// Millimetres, z measured from plane 0, to column, row and fractional plane index.
    void MapMMToNormVoxels(float x, float y, float z, float* nx, float* ny, float* nz) const;

    /// Half the gap to the next plane and to the previous one, and their sum; the first and the last plane have only
    /// one gap. k is not checked.
    float GetSliceThickness(short k, float* after, float* before);

    /// Three dimensions or increments reordered: plane 0 (x, y, z), 1 (y, z, x), 2 (y, x, z). Any other value leaves
    /// the output as it is.
    void GetPlaneDimensions(VolumePlane plane, int* const d);
    void GetPlaneIncrements(VolumePlane plane, int* const inc);

protected:
    int m_Dim[4] = {0, 0, 0, 0};
    int m_Inc[4] = {0, 0, 0, 0};
    float m_Org[4] = {0, 0, 0, 0};
    float m_Orient[2][3] = {{1, 0, 0}, {0, 1, 0}};
    float m_Space[4] = {1, 1, 1, 0};
    long long m_Min = 0;
    long long m_Max = 0;
    PixelType m_Type = PT_SHORT;
    bool m_bInit = false;
    void* m_pVolume = nullptr;
    float m_VoxelSize = 0;
    std::vector<ZInterpVector> m_ZInterp;
    std::vector<CImagePlane> m_Planes;
    int m_nRefs = 1;
    int m_AllocMode = 0;  // 0 no pixel memory, 1 one block, 2 one block for each plane

private:
    void AllocPlanes();
    void AllocContiguous();
    void ReleaseBlock() noexcept;
    float PlaneZ(int k) const;  // millimetres from plane 0
    ZInterpVector InterpolateAt(float z, int low, int high);
    const ZInterpVector& RecordAt(double z) const;

    bool m_bBorrowed = false;  // the volume that this one was copied from frees m_pVolume
};
