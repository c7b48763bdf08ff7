// A slice of any plane through a volume.
#pragma once

#include "../base/Export.h"
#include "../math/FPlane.h"
#include "../volume/CVolume.h"
#include "SlabLayers.h"

#include <array>
#include <cstddef>
#include <string>

/// Samples a volume on a grid of points in any plane.
///
///     DcmObliqueSlice slice(volume);
///     slice.SetOrthogonal(VP_XZ, 256);             // or SetPlane, SetPixelSize and SetSize
///     std::vector<std::int16_t> pixels(slice.GetPixelCount());
///     if (!slice.GetPixels(pixels.data(), pixels.size() * sizeof pixels[0])) std::cerr << slice.GetError();
///
/// FRAME. Points are in the volume frame, in millimetres: x is column index * spacing[0], y is row index * spacing[1], z is
/// that of a plane less that of plane 0. Where the planes' z falls, z is negative. Directions are along the volume's axes:
/// rows, columns, and the normal of the planes. `VolToDicom` and `DicomToVol` lead to the patient and back, by the
/// volume's origin and orientation and by each plane's own sideways offset (`CImagePlane::m_Org`; a tilted gantry, a patient
/// who moved). Between two planes the offset changes in proportion, beyond the last it goes on as before it. So the
/// frame of a tilted stack is sheared, and `CDicomVolume::VolToDicom`, which leaves the offsets out, is no map of it;
/// without offsets (less than a thousandth of a pixel is none) both are the same.
///
/// GRID. Pictures are straight in the patient, whatever the stack is. Pixel (i, j) of a picture of width * height is sampled
/// at the patient point of the centre, moved along the directions by
///
///     (i - (width - 1) / 2) * pixel size[0] * row + (j - (height - 1) / 2) * pixel size[1] * column
///
/// row is the picture's direction to the right, column the one down. There is no filter unless one is asked for: pixels far
/// larger than voxels skip voxels (`SetAreaAverage`), and a slab averages across the plane only.
///
/// SAMPLES. The volume reaches from the first voxel centre to the last one along each axis, borders included; up to
/// 1e-4 of a voxel beyond a border is taken as on it, since positions are told in rounded millimetres. Elsewhere a pixel
/// is the background value. A single plane, row or column has no extent: only samples on it count. Along z the true
/// positions of the planes hold, in whatever order and at whatever distances they are; planes that coincide count once.
/// Linear interpolation goes along x, y and z of the volume frame, so that planes with offsets are mixed along the tilt; values between two integers are rounded to the nearest. Shaped is linear
/// in x and y and weighs the planes by the smoothed curve of the volume's z-interpolation table, S(t). Cubic goes through four
/// voxels along each axis (Catmull-Rom; the planes' true distances count): sharper than linear, exact where values are
/// quadratic in x, y and z, at borders too. It overshoots at edges; integers are then held within the range of their type.
/// It takes some ten times as long as linear. The result is the
/// same to the bit on every processor. It costs by the pixels asked for, and a little for each plane of the volume.
///
/// FAILURE. Operations that can fail return false, change no setting and leave a text in `GetError`. A plane beside the
/// volume is no failure: the picture is all background.
///
/// The volume is held by a reference of this object's own, and is read whenever pixels are asked for: it must not be
/// changed meanwhile. A copy holds a reference too.
class KORVANE_API DcmObliqueSlice {
public:
    enum Interpolation : int {
        IP_NEAREST = 0,
        IP_LINEAR = 1,
        IP_SHAPED = 2,
        IP_CUBIC = 3,
    };
    /// What becomes of the samples across a slab.
    enum SlabMode : int {
        SM_NONE = 0,  ///< no slab: one sample
        SM_MEAN = 1,
        SM_MAXIMUM = 2,
        SM_MINIMUM = 3,
    };
    using Vector = std::array<double, 3>;

    static constexpr int kLargestSize = 65536;       ///< pixels of a picture's side
    static constexpr int kLargestSlab = 4096;        ///< samples across a slab
    static constexpr double kLargestLength = 1e9;    ///< millimetres, of every coordinate and size
    static constexpr double kSmallestLength = 1e-6;  ///< millimetres, of pixel sizes and slab steps

    /// No volume; centre (0, 0, 0), row along x, column along y, pixels of 1 mm, 512 x 512, linear, background 0.
    DcmObliqueSlice();
    explicit DcmObliqueSlice(CVolume* volume);
    DcmObliqueSlice(const DcmObliqueSlice& other);
    DcmObliqueSlice& operator=(const DcmObliqueSlice& other);
    virtual ~DcmObliqueSlice();

    /// Takes a reference and lets the former volume go. Null is allowed. The plane and all settings stay.
    void SetVolume(CVolume* volume);
    CVolume* GetVolume() const { return m_pVolume; }

    // ---- The plane

    /// The directions may have any length; row keeps its direction, column is made perpendicular to it within their
    /// plane. False when one is shorter than 1e-9 or they are parallel to within a microradian, or for coordinates that
    /// are not finite or beyond kLargestLength.
    bool SetPlane(const Vector& centre, const Vector& row, const Vector& column);

    /// By the normal, which points away from the viewer, and a direction that is up in the picture, not parallel to it.
    /// Both hold in the volume frame, which is a mirror image of the patient where z runs against row x column: for a view
    /// that is told in patient coordinates, make row and column there and take them to `SetPlane`.
    bool SetPlaneByNormal(const Vector& centre, const Vector& normal, const Vector& up);

    bool SetCentre(const Vector& centre);

    /// Turns the plane about its centre: the directions go around `axis` by an angle counter-clockwise, seen from where
    /// the axis points to.
    bool Rotate(const Vector& axis, double degrees);

    /// Moves the plane along its normal.
    bool Move(double millimetres);

    /// Millimetres from pixel to pixel along row and column.
    bool SetPixelSize(double alongRow, double alongColumn);
    /// Pixels, 1 to kLargestSize each.
    bool SetSize(int width, int height);

    /// The picture of a view plane, voxel for voxel: plane, pixel size and matrix size. `index` counts voxels along the
    /// axis across (fractions allowed), from 0 to the last. Horizontal and vertical axis as `VolumePlane` names them,
    /// from low to high index; flip1 reverses the horizontal axis of the result, flip2 the vertical one. Where z lies in
    /// the picture it is sampled evenly as the volume's z-interpolation table has it, near the mean of the x and y
    /// spacing. Across planes with sideways offsets the index counts in the middle of the stack's height, and the picture
    /// is wide enough for all that the offsets move. Fails like `GetPixels` does for a volume that is not usable, and for
    /// an index outside.
    bool SetOrthogonal(VolumePlane plane, double index, bool flip1 = false, bool flip2 = false);

    const Vector& GetCentre() const { return m_Centre; }
    const Vector& GetRow() const { return m_Row; }        ///< unit length
    const Vector& GetColumn() const { return m_Column; }  ///< unit length, perpendicular to row
    Vector GetNormal() const;                             ///< row x column
    const std::array<double, 2>& GetPixelSize() const { return m_PixelSize; }
    int GetWidth() const { return m_Width; }
    int GetHeight() const { return m_Height; }
    /// width * height; in a 32-bit program the largest size_t where that does not fit (nor would the memory).
    std::size_t GetPixelCount() const;

    /// The plane, by its unit normal and its distance, in millimetres along the volume's axes: with sideways offsets the
    /// point that `PixelToVol` gives lies off it by the offset at its z.
    FPlane GetPlane() const;

    // ---- Points. The volume's origin, orientation and offsets lead to the patient; without a volume, or where the orientation
    //      is no pair of independent directions, they are taken as the zero point and the axes.

    /// Where a pixel is sampled, in the volume frame.
    Vector PixelToVol(double column, double row) const;
    /// Volume frame to patient millimetres (DICOM's: x to the left, y to the back, z to the head).
    Vector VolToDicom(const Vector& point) const;
    Vector DicomToVol(const Vector& point) const;
    /// The same for directions: no origin, lengths as they come.
    Vector DirectionToDicom(const Vector& direction) const;
    Vector DirectionToVol(const Vector& direction) const;

    // ---- Sampling

    bool SetInterpolation(Interpolation interpolation);
    Interpolation GetInterpolation() const { return m_Interpolation; }

    /// The value of pixels outside, rounded and held within the range of the volume's type.
    void SetBackground(double value) { m_Background = value; }
    double GetBackground() const { return m_Background; }

    /// Mean, maximum or minimum over a thickness, half of it on each side of the plane, of samples at equal distances no
    /// larger than `step`, both faces included; those outside the volume are left out. A step of 0 takes the smallest of
    /// the volume's spacings. SM_NONE and a thickness of 0 give the plain slice. False for a negative thickness and for
    /// more than kLargestSlab samples.
    bool SetSlab(SlabMode mode, double thickness, double step = 0);

    /// Where pixels are larger than voxels, take the mean over each pixel's area instead of its centre: samples no further
    /// apart than voxels (at most 256 along each side of a pixel), those outside the volume left out. A slab's samples are
    /// spread over the area likewise, and its mean, maximum or minimum is over all of them. Smaller pixels stay as they
    /// are. More than 1,048,576 samples of one pixel are refused when it comes to sampling. Off at first.
    void SetAreaAverage(bool average) { m_bAreaAverage = average; }
    bool GetAreaAverage() const { return m_bAreaAverage; }

    /// Voxels with values from `low` to `high`, ends included, stand for no measurement (Pixel Padding, PS3.3 C.7.5.1.1.2).
    /// Where several samples make a pixel, in slabs and means over areas, those that such a voxel has a weight in are left
    /// out; a pixel of which nothing is left is `value`, as voxels are stored. Single samples stay as they are. None when
    /// `low` is above `high`, as at first. Pixels of several samples take some times as long with it.
    void SetPadding(double low, double high, double value);

    /// The picture in the volume's own type, row after row without padding, `bytes` of memory in all. Fails without a
    /// volume, for a volume without planes, pixels or a known type, with a spacing that is not positive and finite or
    /// plane positions and offsets that are not finite, and for memory that is null or too small.
    bool GetPixels(void* pixels, std::size_t bytes);

    /// `count` parallel pictures, each `step` millimetres further along the normal (against it for a negative step), the
    /// first one on the plane, which stays where it is. They lie one after the other in `pixels`, each as `GetPixels` has
    /// it; `bytes` is for all of them. Fails as `GetPixels` does, for a count below 1, and where the centre would leave
    /// the range of `SetPlane`; pictures before the failing one are there.
    bool GetPixelStack(void* pixels, std::size_t bytes, int count, double step);

    /// The picture as 8-bit grey by a window over the volume's values: the linear function of PS3.3 C.11.2.1.2, 0 below
    /// and 255 above, rounded to the nearest. Stored values: a rescale slope or intercept is for the caller to take out
    /// of centre and width. Fails as `GetPixels` does, and for a width below 1 (0 for float volumes).
    bool GetPicture(unsigned char* pixels, std::size_t bytes, double centre, double width);

    /// Rows `first` to `first + count - 1` of what `GetPixels` and `GetPicture` give, to the bit: several threads, each with a
    /// copy of this object, share a picture. Copies are made and destroyed by one of them, for the volume's count is not
    /// atomic. Both fail as those do, and for rows that the picture does not have.
    bool GetPixelRows(int first, int count, void* pixels, std::size_t bytes);
    bool GetPictureRows(int first, int count, unsigned char* pixels, std::size_t bytes, double centre, double width);

    /// Before the rows of a slab are asked for with `layers`: turns them to the plane, or makes room for them. Nothing is kept, and
    /// all is sampled, without a slab, for means over areas, and where the layers would take more than they may. Fails as
    /// `GetPixels` does.
    bool PrepareLayers(SlabLayers& layers);
    /// The same rows, to the bit, by what `layers` has (see `SlabLayers`). Threads may share it that ask for different rows.
    bool GetPixelRows(int first, int count, void* pixels, std::size_t bytes, SlabLayers& layers);
    bool GetPictureRows(int first, int count, unsigned char* pixels, std::size_t bytes, double centre, double width,
                        SlabLayers& layers);

    /// Wide vector units of the processor are used where it has them. Switching them off changes the speed only.
    void AllowWideVectors(bool allow) { m_bWide = allow; }

    /// What the last operation that failed had to say.
    const std::string& GetError() const { return m_Error; }

private:
    bool Fail(const char* what);
    Vector StraightPixel(const Vector& centre, double column, double row) const;
    template <typename Sink>
    bool Sample(int firstRow, int rows, Sink sink, SlabLayers* layers);
    bool SampleRows(int first, int count, void* pixels, std::size_t bytes, SlabLayers* layers);
    bool SamplePicture(int first, int count, unsigned char* pixels, std::size_t bytes, double centre, double width,
                       SlabLayers* layers);

    CVolume* m_pVolume = nullptr;
    Vector m_Centre = {0, 0, 0};
    Vector m_Row = {1, 0, 0};
    Vector m_Column = {0, 1, 0};
    std::array<double, 2> m_PixelSize = {1, 1};
    int m_Width = 512;
    int m_Height = 512;
    Interpolation m_Interpolation = IP_LINEAR;
    SlabMode m_SlabMode = SM_NONE;
    double m_SlabThickness = 0;
    double m_SlabStep = 0;
    double m_Background = 0;
    bool m_bWide = true;
    bool m_bAreaAverage = false;
    std::array<double, 3> m_Padding = {1, 0, 0};  // low, high, value
    std::string m_Error;
};
