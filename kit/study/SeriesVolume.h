// The volume of one series: what every verb that works on volumes begins with.
#pragma once

#include "SeriesFinder.h"
#include "SeriesLoader.h"
#include "VolumeSets.h"

#include "../../series/CDicomVolume.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// What the user says about it.
struct SeriesChoice {
    std::vector<std::string> paths;
    std::string series;
    int volume = 0;  ///< 0: not asked for
};

class SeriesVolume {
public:
    /// Finds and chooses the series by its headers. Throws `HostError`, `UsageError`.
    explicit SeriesVolume(const SeriesChoice& choice);

    const ImageHeader& GetHeader() const { return m_Found.FirstFile(*m_pSeries); }
    const FramePlace& GetPlace() const { return m_Found.PlaceOf(m_Slices.front()); }
    std::size_t GetSliceCount() const;

    const FoundFiles& GetFound() const { return m_Found; }
    const FoundSeries& GetSeries() const { return *m_pSeries; }
    /// Where positions repeat the series makes several volumes.
    const VolumeSets& GetSets() const { return m_Sets; }
    bool IsVolumeChosen() const { return m_nVolume != 0; }
    int GetVolumeNumber() const { return m_nVolume != 0 ? m_nVolume : 1; }

    /// Whether the voxels are grey values, not colours or palette entries.
    bool IsGrey() const;
    /// What they are, for a message, when they are not.
    std::string DescribeColours() const;

    /// Warns of what is odd about the series, reads the volume asked for, or the first.
    /// Throws `HostError`, `Interrupted`.
    void Load();

    /// Messages about what is odd about the series.
    void TellWarnings() const;
    /// Reads slices and makes the volume of them, with its true minimum and maximum, in place of the one before.
    /// Throws `HostError`, `Interrupted`.
    void Load(const std::vector<SliceRef>& slices);

    // After Load:
    CDicomVolume& GetAssembled() { return m_Assembled; }
    CVolume& GetVolume() { return *m_Assembled.GetVolume(); }
    DICOMDataObject& GetFirstDataSet() { return *m_Loaded->GetDataSets().front(); }

private:
    void Assemble();

    FoundFiles m_Found;
    const FoundSeries* m_pSeries;
    VolumeSets m_Sets;
    int m_nVolume;
    std::vector<SliceRef> m_Slices;
    std::optional<LoadedSlices> m_Loaded;
    CDicomVolume m_Assembled;
};

}  // namespace korvane
