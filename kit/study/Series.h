// A series that was found: what it is, how its slices lie, and what is odd about it.
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "PixelForm.h"
#include "SeriesGeometry.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

struct FoundFiles;
struct FoundSeries;

/// One slice: a whole file, or a frame of one.
struct SeriesSlice {
    std::string path;
    int frame = -1;  ///< from 0; -1: the whole file, which may have several frames without places
    FramePlace place;
};

/// One of the volumes of a series: where positions repeat there are several.
struct VolumeInfo {
    std::string key;                  ///< what tells it from the others: "echo number 2"; "" for the only one
    std::vector<std::size_t> slices;  ///< indices in the series' list of slices
};

/// Images with one Series Instance UID, one orientation, one matrix and one pixel format; objects without pixels are
/// series too. A cheap value: copies share what was found, which lives as long as one of them.
///
///     for (const korvane::Series& series : korvane::Find({"study"}).GetSeries()) {
///         std::cout << series.GetModality() << ", " << series.GetSlices().size() << " slices\n";
///         for (const korvane::Finding& finding : series.GetFindings()) std::cout << finding.text << '\n';
///     }
///
/// Texts are UTF-8, without blanks at their ends, "" where the files have none; those of the first slice count.
class KORVANE_KIT Series {
public:
    /// For the rooms of the Kit: the series with this index among the files.
    Series(std::shared_ptr<const FoundFiles> found, std::size_t index);
    Series(const Series& other);
    Series(Series&& other) noexcept;
    Series& operator=(const Series& other);
    Series& operator=(Series&& other) noexcept;
    ~Series();

    std::size_t GetIndex() const { return m_Index; }  ///< in `Found::GetSeries`; lists for people count from 1

    const std::string& GetUid() const;
    int GetNumber() const;  ///< Series Number (0020,0011), 0 without one
    const std::string& GetModality() const;
    const std::string& GetDescription() const;
    const std::string& GetProtocol() const;
    std::vector<int> GetEchoNumbers() const;  ///< Echo Numbers (0018,0086) that occur, ascending
    const std::string& GetSopClass() const;
    const std::string& GetPatientName() const;  ///< as written, with its carets
    const std::string& GetPatientId() const;
    const std::string& GetStudyUid() const;
    const std::string& GetStudyDate() const;  ///< YYYYMMDD
    const std::string& GetStudyDescription() const;

    bool HasPixels() const;
    const PixelForm& GetPixelForm() const;
    /// Images: slices, or frames of objects whose frames have no places of their own.
    std::size_t CountImages() const;

    /// By instance number, acquisition number, UID, frame.
    std::vector<SeriesSlice> GetSlices() const;
    /// How they lie; its indices are those of `GetSlices`.
    const SeriesGeometry& GetGeometry() const;
    /// One entry for each volume that can be loaded, in their order.
    std::vector<VolumeInfo> GetVolumes() const;
    /// What the volumes are told apart by: "temporal position", "echo number" ...; "" for a single one.
    const std::string& GetVolumeOrder() const;

    /// What should be known before anything that is made of the series is trusted.
    const std::vector<Finding>& GetFindings() const;

    // For the rooms of the Kit.
    const FoundFiles& GetFiles() const { return *m_pFound; }
    const FoundSeries& GetFound() const;

private:
    std::shared_ptr<const FoundFiles> m_pFound;
    std::size_t m_Index;
};

/// Several lines for people, the first without a blank before it: title, UID, pixels, geometry, findings. Safe to print.
KORVANE_KIT std::string Describe(const Series& series);

}  // namespace korvane
