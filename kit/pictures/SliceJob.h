// The pictures of one run of `korvane slice`.
#pragma once

#include "../core/ExportFiles.h"
#include "../study/SeriesVolume.h"
#include "Annotation.h"
#include "SliceGrid.h"
#include "WindowChoice.h"

#include <optional>
#include <string>

namespace korvane {

struct SliceRequest {
    std::optional<DcmOrientation::OrthoPlane> view;  ///< else a plane
    std::string viewName;
    std::optional<int> index;  ///< of one picture; the middle one without
    bool all = false;
    bool sheet = false;
    PatientPlane plane;
    std::optional<Window> window;
    DcmObliqueSlice::Interpolation interpolation = DcmObliqueSlice::IP_LINEAR;
    DcmObliqueSlice::SlabMode slabMode = DcmObliqueSlice::SM_NONE;
    double slab = 0;       ///< millimetres
    double pixelSize = 0;  ///< millimetres; 0: by the volume
    bool annotate = false;
    bool raw16 = false;
    std::string output;  ///< a file, or a folder for all pictures of a view
};

class SliceJob {
public:
    SliceJob(const SliceRequest& request, SeriesVolume& series);

    /// Writes all pictures or none, and tells on standard output what they are. Throws `HostError`, `UsageError`.
    void Run();

private:
    void WriteOne();
    void WriteFolder();
    void WriteSheet();
    void WriteSlice(const std::string& path);
    void WriteRaw(const std::string& path);
    void WritePicture(const std::string& path, const Picture& picture, double pixelSize);
    Picture MakePicture();
    Annotation MakeAnnotation(double pixelSize) const;
    int ChooseIndex() const;
    void Report(const std::string& what, int factor = 1) const;  // how many times smaller the pictures became

    const SliceRequest& m_Request;
    SeriesVolume& m_Series;
    DcmObliqueSlice m_Slice;
    VolumeView m_View;
    WindowChoice m_Window;
    ExportFiles m_Files;
};

}  // namespace korvane
