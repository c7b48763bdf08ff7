// A whole volume in another view plane.
#pragma once

#include "../base/Export.h"
#include "../volume/CVolume.h"

#include <functional>
#include <string>

class CPercent;

/// Makes a new volume whose planes are the pictures of a view plane, evenly spaced along every axis:
///
///     CVolumeReformatter reformatter;
///     RawView view;
///     RadiologicalView(volume, DcmOrientation::OP_CORONAL, view);
///     CVolume* coronal = reformatter.Reformat(volume, view.m_Plane, view.m_bFlip1, view.m_bFlip2);
///     if (coronal == nullptr) std::cerr << reformatter.GetError();
///     ...
///     coronal->Delete();
///
/// AXES. The source's axes go to the result's columns, rows and planes as `VolumePlane` names them (x,y;z  y,z;x  x,z;y
/// z,x;y  z,y;x  y,x;z); flip1 reverses the result's horizontal axis, flip2 its vertical one.
///
/// GEOMETRY. Spacing, origin, orientation and plane positions of the result say of every voxel the patient point that
/// the source says of it, by the rule that assembly follows: a plane's z is measured against row x column. Row, column
/// and planes always make a right-handed picture of the patient, never a mirrored one: where axes and flips would
/// mirror it, the planes come in reverse order of the slice axis, so that z of the result's planes runs as the source's
/// does, ascending or descending. The origin is the first voxel of plane 0. Directions of the result have unit length.
///
/// TILTED STACKS, whose planes have sideways offsets of their own. View planes 0 and 5 keep them, in the plane origins of the
/// result. The others, whose pictures cross planes, are straightened: voxels are moved within their planes by linear
/// interpolation, onto a grid that has room for all of them, so that the result has more columns, rows or planes than the
/// source. Voxels that no plane has data for have the source's lowest value. `StraightenStack` does the same and leaves
/// the axes as they are.
///
/// ALONG Z. `ZS_UNEVEN` takes the planes as they are where they lie evenly (to within a hundredth of their distance), and
/// else samples them by the volume's z-interpolation table (`CVolume::UpdateZInterpArray`, which is called on the
/// source): about one voxel size apart, weighed by its smoothed curve S(t) between the two planes around each sample.
/// Integers are rounded to the nearest. A voxel of an upright stack that comes of one plane alone is that plane's, bit for
/// bit, and so the whole volume is a permutation where nothing is resampled.
///
/// FAILURE. Null, with a text in `GetError`: a plane value outside 0 to 5; a source without planes, pixels, a known type
/// or one component; spacing in x or y that is not positive and finite; positions or cosines that are not finite or are
/// no directions; planes whose z goes to and fro; a table too long; too little memory. The source keeps its voxels.
class KORVANE_API CVolumeReformatter {
public:
    enum ZSampling : int {
        ZS_UNEVEN = 0,  ///< resample where the planes are not even
        ZS_NEVER = 1,   ///< each plane as it is, at the mean distance; planes 0 and 5 keep the true positions
        ZS_ALWAYS = 2,  ///< resample to about the in-plane voxel size
    };

    /// No callback, ZS_UNEVEN, contiguous results.
    CVolumeReformatter();
    CVolumeReformatter(const CVolumeReformatter& other);
    CVolumeReformatter& operator=(const CVolumeReformatter& other);
    virtual ~CVolumeReformatter();

    /// Told of the work, one unit for each plane of the result; `SetTotElab` (see `GetPlaneCount`) and `StartProgress`
    /// are the caller's, as is the object. Null for none. When it asks to stop, the volume made so far is destroyed and
    /// `Reformat` returns null.
    void SetCallback(CPercent* callback) { m_pCallback = callback; }

    void SetZSampling(ZSampling sampling) { m_ZSampling = sampling; }
    ZSampling GetZSampling() const { return m_ZSampling; }

    /// One block of voxels for the result, or one block for each plane.
    void SetContig(bool contig) { m_bContig = contig; }
    bool GetContig() const { return m_bContig; }

    /// Wide vector units of the processor are used where it has them. Switching them off changes the speed only.
    void AllowWideVectors(bool allow) { m_bWide = allow; }

    /// How many planes the result will have; 0, with a text in `GetError`, where `Reformat` would refuse the source.
    int GetPlaneCount(CVolume& source, VolumePlane plane);

    /// A new volume with a count of 1, for the caller to end with `Delete`, of the source's voxel type, with its minimum
    /// and maximum and an up-to-date z-interpolation table. Null on failure and when it was stopped.
    CVolume* Reformat(CVolume& source, VolumePlane plane, bool flip1, bool flip2);

    /// The same by threads of the caller's, without the callback. `run` calls `work` for ranges of blocks, from the first to before the
    /// end, that are all of 0 to `blocks` and each of them once, from any threads at the same time; it returns when all are done, or
    /// false where it was told to stop. The result is that of one thread, to the bit.
    using Work = std::function<void(int first, int end)>;
    using Run = std::function<bool(int blocks, const Work& work)>;
    CVolume* ReformatInBlocks(CVolume& source, VolumePlane plane, bool flip1, bool flip2, const Run& run);

    /// What the last operation that failed had to say; "" after one that did not.
    const std::string& GetError() const { return m_Error; }

private:
    template <typename Move>
    CVolume* Make(CVolume& source, VolumePlane plane, bool flip1, bool flip2, Move move);

    CPercent* m_pCallback = nullptr;
    ZSampling m_ZSampling = ZS_UNEVEN;
    bool m_bContig = true;
    bool m_bWide = true;
    std::string m_Error;
};
