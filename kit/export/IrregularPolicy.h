// What is exported of a series whose planes are not even or whose positions repeat.
#pragma once

#include "../core/Watch.h"
#include "../study/FoundFiles.h"
#include "Export.h"

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

struct ExportPlan {
    std::vector<ExportPart> parts;   ///< at least one
    std::vector<std::string> found;  ///< what is irregular, one line each; none for what is regular
    std::string done;                ///< what the policy makes of it; "" where nothing was found
    bool resample = false;
};

/// A volume that `--volume` chooses is judged alone. Throws `Error`, which names the gaps, when the policy rejects.
/// `times`: a file may hold several volumes. Those that were told apart by time, and have a slice at each position, then are
/// kept together.
ExportPlan MakePlan(const SeriesVolume& series, Irregular policy, bool times);

/// A volume's planes resampled evenly along z (CVolumeReformatter).
class EvenPlanes {
public:
    EvenPlanes() = default;
    ~EvenPlanes();
    EvenPlanes(const EvenPlanes&) = delete;
    EvenPlanes& operator=(const EvenPlanes&) = delete;

    /// Puts new planes into the volume of `assembled`, whose voxels then belong to this object, and as many data sets
    /// behind them, with the new distance for their Slice Thickness. Once only. Throws `Error`.
    void PutInto(CDicomVolume& assembled, const Watch& watch);

private:
    CVolume* m_pEven = nullptr;
};

}  // namespace korvane
