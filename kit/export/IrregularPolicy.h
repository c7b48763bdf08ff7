// What is exported of a series whose planes are not even or whose positions repeat.
#pragma once

#include "../core/Watch.h"
#include "../study/FoundFiles.h"
#include "Export.h"
#include "ExportFormat.h"

#include <optional>
#include <string>
#include <vector>

class CDicomVolume;
class CVolume;

namespace korvane {

class SeriesVolume;

/// One volume of an export.
struct ExportPart {
    std::string suffix;  ///< of the name: "" or "-1", "-2" ...
    std::string what;    ///< "volume 2 of 10", "planes 1 to 7 of 20"; "" for all
    std::vector<SliceRef> slices;
    std::vector<std::vector<SliceRef>> later{};  ///< the volumes behind it, as times of the same file
};

/// What is made of a volume before it is written.
struct Resampling {
    bool along = false;     ///< planes at even distances in place of uneven ones
    bool sideways = false;  ///< planes that lie beside each other are moved onto one straight grid

    explicit operator bool() const { return along || sideways; }
};

struct ExportPlan {
    std::vector<ExportPart> parts;   ///< at least one
    std::vector<std::string> found;  ///< what is irregular, one line each; none for what is regular
    std::string done;                ///< what the policy makes of it; "" where nothing was found
    std::vector<Finding> errors;     ///< what is not where the file says, with the size of the error
    Resampling resample;
};

/// A volume that `--volume` chooses is judged alone. Throws `Error`, which names the gaps, when the policy rejects.
/// `every`: all volumes, grouped as `GroupVolumes` does, unless one is chosen.
/// Where a file of the format may hold several volumes, those that were told apart by time, and have a slice at each
/// position, are kept together.
ExportPlan MakePlan(const SeriesVolume& series, Irregular policy, const ExportFormat& format, bool every = false);

/// A volume's planes resampled evenly along z (CVolumeReformatter), or straightened too (StraightenStack).
class EvenPlanes {
public:
    EvenPlanes() = default;
    ~EvenPlanes();
    EvenPlanes(const EvenPlanes&) = delete;
    EvenPlanes& operator=(const EvenPlanes&) = delete;

    /// Puts new planes into the volume of a loaded series, whose voxels then belong to this object, and as many data sets
    /// behind them, with the new distance for their Slice Thickness. `fill`: for voxels that straightening has no data for,
    /// else the lowest value, and for those that padding would be mixed into. Once only. Throws `Error`.
    void PutInto(SeriesVolume& series, Resampling how, std::optional<double> fill, const Watch& watch);

    unsigned long long CountFilled() const { return m_Filled; }
    double GetFill() const { return m_Fill; }

private:
    void Resample(SeriesVolume& series, const Watch& watch);
    void Straighten(SeriesVolume& series, bool along, std::optional<double> fill, const Watch& watch);
    void Replace(CDicomVolume& assembled) const;

    CVolume* m_pEven = nullptr;
    unsigned long long m_Filled = 0;
    double m_Fill = 0;
};

}  // namespace korvane
