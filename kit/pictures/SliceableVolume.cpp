#include "SliceableVolume.h"

#include "../core/Error.h"
#include "../study/Volume.h"
#include "../study/VolumeData.h"
#include "SliceJob.h"

#include <string>
#include <vector>

namespace korvane {

SliceableVolume::SliceableVolume(const Volume& volume, const SliceOptions& options)
    : m_pSeries(&volume.GetData().GetSeriesVolume()) {
    if (volume.GetSize()[3] > 1) {
        throw Error(ErrorKind::WrongArgument, "a volume of " + std::to_string(volume.GetSize()[3]) +
                                                  " times has no plane of its own: load the time that is meant");
    }
    CheckSlicing(*m_pSeries, options);
    const bool isSampled = m_pSeries->GetVolume().GetPlane(0)->m_pData != nullptr;
    const bool isUptake = m_pSeries->HasUptake();
    if (isSampled && (isUptake || !options.uptake) && (options.raw16 || !m_pSeries->RescalesDiffer())) {
        return;
    }
    m_Read.emplace(volume.GetSeries(), m_pSeries->GetVolumeNumber(), Watch(options.watcher));
    m_pSeries = &*m_Read;
    if (isUptake) m_pSeries->TakeUptake();
    MakeComparable(*m_pSeries, options);
}

void SliceableVolume::MakeComparable(SeriesVolume& series, const SliceOptions& options) {
    if (options.uptake) series.TakeUptake();
    series.SetJobs(options.jobs);
    series.Load(std::vector<SliceRef>(series.GetSlices()));
    if (!options.raw16 && series.RescalesDiffer()) series.BringToOneScale(false);
    series.MakeSliceable();
}

}  // namespace korvane
