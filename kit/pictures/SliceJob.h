// The pictures of one call.
#pragma once

#include "../core/Error.h"
#include "../core/ExportFiles.h"
#include "../core/Watch.h"
#include "../study/SeriesVolume.h"
#include "Annotation.h"
#include "PictureFile.h"
#include "Slice.h"
#include "SliceGrid.h"
#include "Slicer.h"
#include "WindowChoice.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

class StandingThreads;

/// What stays from job to job.
struct KeptForSlices {
    const WindowChoice* window = nullptr;  ///< one that was found for the series
    SlabLayers* layers = nullptr;          ///< of slabs
    StandingThreads* threads = nullptr;
    CVolume* volume = nullptr;  ///< a copy of the series' one, whose count no other thread touches
    bool tells = true;          ///< what pictures leave out; it is the same for all of them
};

/// Of a loaded series, whose spacing it sets to the true one.
class SliceJob {
public:
    /// `output`: a file, or a folder for all pictures of a view. Throws `Error`.
    SliceJob(SeriesVolume& series, const SliceOptions& options, const std::string& output,
             const KeptForSlices& kept = {});

    /// Writes all pictures or none. Throws `Error`.
    SliceReport Run();
    /// The one picture, or the sheet, without a file. Throws `Error`.
    SlicePicture Draw();
    /// The values of the one picture. Throws `Error`.
    SliceValues TakeValues();
    /// All pictures. Throws `Error`.
    std::vector<SlicePicture> DrawAll();

private:
    using Cut = DcmObliqueSlice;

    void SetPadding();
    void TellPadding();
    void TellOtherTables();
    void TellNotApplied();
    int CountPlanes() const { return m_Options.view ? m_View.count : m_Options.count; }
    void Place(int index);
    std::string WhatIs(int index) const;
    void PlaceOne();
    bool SampleRows(Cut& part, int first, int count, void* values, std::size_t bytes) const;
    void WriteFolder();
    Picture DrawSheet();
    void SetSize();

    // What follows runs on several threads, each with a cut of its own:
    /// `make` of each cut on several threads, `take` of one after the other.
    void ForCuts(std::vector<Cut>& cuts, const std::function<void(std::size_t)>& make,
                 const std::function<void(std::size_t)>& take) const;
    int CountRowsOfPiece(const Cut& cut) const;
    void ForRows(Cut& cut, const std::function<bool(Cut& part, int first, int count)>& sample) const;
    Picture DrawSlice(Cut& cut) const;
    void WriteSlice(Cut& cut, PictureFile& file) const;
    double GetPixelSize(const Cut& cut) const;
    std::vector<std::uint16_t> TakeStored(Cut& cut) const;
    std::vector<float> TakeValues(Cut& cut) const;
    template <class Take>
    void ForSamples(Cut& cut, Take take) const;
    Picture MakePicture(Cut& cut) const;
    std::pair<std::string, std::string> FindEdges(const Cut& cut) const;
    Annotation MakeAnnotation(const Cut& cut, double pixelSize) const;

    int ChooseIndex() const;
    void Describe(const std::string& what, int factor = 1);  // how many times smaller the pictures became
    const char* GetViewName() const { return m_Options.view ? WordOf(*m_Options.view) : "oblique"; }

    const SliceOptions& m_Options;
    const std::string m_Output;
    Watch m_Watch;
    SeriesVolume& m_Series;
    std::optional<CVolume> m_Borrowed;  // where no copy is kept: the series' own may be in use by another thread
    DcmObliqueSlice m_Slice;
    VolumeView m_View;
    DcmObliqueSlice m_First;  ///< of a stack
    double m_Step = 0;        ///< along its normal
    KeptForSlices m_Kept;
    WindowChoice m_Window;
    std::optional<ModalityTransform> m_Modality;  // of pictures of values
    ExportFiles m_Files;
    SliceReport m_Report;
};

/// Throws `Error` for pixels that are no grey values, that the volume would hold as something else, or that 16 bits do not
/// hold where those are asked for.
void CheckSlicing(const SeriesVolume& series, const SliceOptions& options);

}  // namespace korvane
