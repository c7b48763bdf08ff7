// A synthetic CT series: ellipsoids in patient geometry, the same bytes in every run.
#pragma once

#include <Korvane/Dicom.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

struct PhantomOptions {
    int slices = 120;
    int columns = 256;
    int rows = 256;
    int volumes = 1;          ///< more than 1: a time series, all volumes at the same positions
    std::uint32_t seed = 1;   ///< other seeds give other UIDs and another noise
    bool oblique = false;     ///< planes turned about two patient axes
    bool uneven = false;      ///< distances between planes differ
    bool isSigned = false;    ///< signed pixels with intercept 0 instead of unsigned ones with -1024
    bool descending = false;  ///< instance numbers run from head to feet
};

/// Makes the data sets one by one. Image 0 is the first instance; images run through a volume, then to the next one.
///
/// The object, in patient millimetres (x to the left, y to the back, z to the head), fits 240 x 240 x 200 around the
/// origin: an ellipsoidal head with skull, brain and ventricles, and three balls that tell left (300 HU), front (600 HU)
/// and top (900 HU), so that no mirror image looks like it. Voxels are Hounsfield values with a little noise.
class PhantomSeries {
public:
    explicit PhantomSeries(const PhantomOptions& options);

    int GetCount() const { return m_Options.slices * m_Options.volumes; }

    /// A complete CT image (PS3.3 A.3). Throws `std::bad_alloc`.
    std::unique_ptr<DICOMDataObject> MakeImage(int image) const;

    /// A file name for it; the names' order says nothing about that of the slices.
    std::string FileName(int image) const;

private:
    struct Place {
        double position[3];  // centre of the first voxel
        double gap;          // nominal distance of planes
    };

    Place PlaceOf(int slice) const;
    int SliceOf(int image) const;
    std::string Uid(std::uint32_t number) const;
    void PutIdentity(DICOMDataObject& dataSet, int image) const;
    void PutGeometry(DICOMDataObject& dataSet, int slice) const;
    void PutPixels(DICOMDataObject& dataSet, int image) const;
    void Paint(std::int16_t* row, const double (&start)[3], int volume) const;

    PhantomOptions m_Options;
    double m_Row[3] = {1, 0, 0};
    double m_Col[3] = {0, 1, 0};
    double m_Normal[3] = {0, 0, 1};
    double m_Pixel;                 // millimetres
    std::vector<double> m_Offsets;  // of the planes from the first, in nominal gaps
    std::uint64_t m_Key;
};

}  // namespace korvane
