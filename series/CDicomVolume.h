// A series of data sets made into a volume.
#pragma once

#include "../base/Export.h"
#include "../volume/CVolume.h"

#include <array>
#include <cstddef>
#include <vector>

class CDicomPixelStream;
class CPercent;
class DICOMDataObject;

/// Turns the data sets of one series (one data set a slice, or a single multi-frame object) into a CVolume.
///
///     CDicomVolume series;
///     series.SetIODList(dataSets, nullptr);     // geometry and an empty volume
///     series.Alloc(true);                       // pixel memory and pixels
///     CVolume* volume = series.GetVolume();     // AddRef() it to keep it longer than `series`
///
/// GEOMETRY. Let R be the position of the reference data set, row and col the unit direction cosines, N = row x col, and
/// Q the position of a slice, all in patient millimetres (PS3.3 C.7.6.2.1.1; x to the left, y to the back, z to the
/// head). With P = Q - R, the slice's plane gets the origin
///
///     x = P . row + R.x        y = P . col + R.y        z = -(P . N + R.z)
///
/// The minus sign is part of the contract, and so is that R is added unrotated. Axial slices (row 1,0,0; col 0,1,0) with
/// positions z = 10, 0, 5, the first being the reference, have plane z -10, 0, -5; sorted ascending the planes hold the
/// data sets 0, 2, 1. The volume's orientation holds the six cosines as read, its origin is R, its spacing is x, y (first
/// and second value of Pixel Spacing) and the mean gap between planes. VolToDicom is the way back.
///
/// OWNERSHIP. The data sets stay the caller's and must live as long as this object is used. The volume is held by one
/// reference of its own; copies of this object share the volume and hold a reference each.
///
/// FAILURE. A slice without a position in a series that has positions: SetIODList throws the char* "Cannor find Image
/// Plane", and the volume has no planes. What cannot become a volume - an empty list, slices of another matrix or pixel
/// form than the reference, pixel data that is missing, compressed or shorter than the image, more frames claimed than
/// the pixel data holds - leaves the volume empty (dimensions 0, no planes), and Alloc then does nothing.
/// std::length_error and std::bad_alloc pass through.
class KORVANE_API CDicomVolume {
public:
    CDicomVolume();
    CDicomVolume(const CDicomVolume& other);
    CDicomVolume& operator=(const CDicomVolume& other);
    virtual ~CDicomVolume();

    /// Builds the geometry and a new volume without pixels; the previous volume is released. `mask`, which may be null,
    /// has an entry for each data set (or for each frame of a multi-frame object): only true entries take part, entries
    /// that it lacks count as false. A first data set that has Number of Frames (0028,0008) makes the series a
    /// multi-frame object, and the others are ignored: drop that element where it says "1" on every slice.
    ///
    /// The reference is the first data set, unless some selected one has an Instance Number below 1: then the lowest.
    /// The volume's minimum and maximum start at 4294967295 and 4026531839 and are changed by Alloc only.
    void SetIODList(std::vector<DICOMDataObject*>& list, std::vector<bool>* mask);

    /// The same for slices that are all as `first`, which is the reference, but for their positions (PS3.3 C.7.6.2.1.1), of
    /// which the first is its own. Without Image Position (Patient) in `first` their number alone counts. The list of data
    /// sets is then `first` alone, for each slice: many slices need no data sets of their own. The pixels are the caller's
    /// to put into the planes.
    void SetAlikeSlices(DICOMDataObject& first, const std::vector<std::array<float, 3>>& positions);

    /// Allocates the volume's pixels (one block, or one a plane) and reads them: the stored values with their sign, not
    /// rescaled. A colour image becomes 255 * hue. The callback advances by one unit before each slice; when it asks to
    /// stop, Alloc returns at once, and the planes that were not read hold what the allocation left. The caller sets the
    /// callback's total (GetNumFrames) and starts it.
    ///
    /// The volume's minimum is lowered and its maximum raised to value / slope - intercept of each slice's range. For
    /// ordinary images the maximum therefore stays where SetIODList set it: CVolume::Update finds the true one.
    void Alloc(bool contig);

    /// Maps a point in volume millimetres (x along the rows, y along the columns, z from the first plane) to patient
    /// millimetres. While the volume has no planes, its z counts from 0.
    ///
    /// The planes' sideways offsets, x and y above less the volume's origin, are left out: in a stack with a tilted gantry
    /// the point is off by as much. `DcmObliqueSlice::VolToDicom` takes them in.
    void VolToDicom(float* const vol, float* const patient) const;

    CVolume* GetVolume() const;          ///< null before SetIODList
    DICOMDataObject* GetRefDDO() const;  ///< null before SetIODList
    bool IsMultiframe() const;
    int GetNumFrames() const;                     ///< slices that take part
    std::vector<DICOMDataObject*>& GetDDOList();  ///< in plane order
    void SetCallback(CPercent* callback);         ///< not owned, may be null

    /// Settings, to be made before SetIODList; no operation changes them.
    bool m_bUseSliceLocation = false;  ///< take z from Slice Location (0020,1041) instead of Image Position (Patient)
    bool m_bReverse = false;           ///< planes by descending z

    /// Results of SetIODList: plane -> index in the caller's list (or frame number), and back (-1: takes no part).
    std::vector<int> m_SliceToIndex;
    std::vector<int> m_IndexToSlice;

private:
    /// One reference to a volume; a copy holds one of its own.
    class Reference {
    public:
        Reference() = default;
        Reference(const Reference& other);
        Reference& operator=(const Reference& other);
        ~Reference();
        void Renew();  // lets go, then holds a new volume
        CVolume* Get() const { return m_pVolume; }

    private:
        CVolume* m_pVolume = nullptr;
    };

    Reference m_pVolume;
    std::vector<DICOMDataObject*> m_DDOList;
    DICOMDataObject* m_pRefDDO = nullptr;
    CPercent* m_pCallback = nullptr;
    bool m_bMultiframe = false;
    int m_nFrames = 0;

public:
    /// More results of SetIODList: the list indices (or frame numbers) that take part, in list order, and the unit
    /// vectors of the geometry.
    std::vector<int> m_Selected;
    float m_Row[3] = {1, 0, 0};
    float m_Col[3] = {0, 1, 0};
    float m_Normal[3] = {0, 0, 1};

private:
    struct SliceRecord;
    struct Placement;

    void Restart();
    std::size_t Select(const std::vector<DICOMDataObject*>& list, const std::vector<bool>* mask);
    void FindReference(const std::vector<DICOMDataObject*>& list);
    Placement ReadPlacement(DICOMDataObject* first);
    bool ReadOrientation(DICOMDataObject* first);
    bool ReadPosition(DICOMDataObject* slice, float (&position)[3]) const;
    void ReadOffsets(Placement& placement) const;
    void ReadPitch(Placement& placement) const;
    void Arrange(const std::vector<DICOMDataObject*>& list, const std::vector<std::array<float, 3>>* positions,
                 std::size_t entries);
    std::vector<SliceRecord> MakeRecords(const std::vector<DICOMDataObject*>& list,
                                         const std::vector<std::array<float, 3>>* positions,
                                         const Placement& placement) const;
    SliceRecord Place(const double (&p)[3], const Placement& placement) const;
    void SetSpacing(const std::vector<SliceRecord>& records);
    void TakeOrder(const std::vector<SliceRecord>& records, std::size_t entries);
    void InitVolume(const std::vector<SliceRecord>& records);
    bool SlicesFit(const CDicomPixelStream& reference) const;
    void FillPlane(CDicomPixelStream& stream, int plane);
    void FillColourPlane(const CDicomPixelStream& stream, int plane);
    void TakeRange(const CDicomPixelStream& stream);
};
