// The phantom's data sets.
#pragma once

#include "Phantom.h"

#include "../../Dicom/Lib/dataset/DICOMObject.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// Makes the data sets one by one. Image 0 is the first instance; images run through a volume, then to the next one.
class PhantomSeries {
public:
    explicit PhantomSeries(const PhantomOptions& options);

    int GetCount() const { return m_Options.slices * m_Options.volumes; }

    /// A complete CT image (PS3.3 A.3). Throws `std::bad_alloc`.
    std::unique_ptr<DICOMDataObject> MakeImage(int image) const;

    /// The file name of an image. The order of the names is not that of the slices.
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
