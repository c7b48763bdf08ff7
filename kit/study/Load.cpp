#include "Load.h"

#include "../core/Error.h"
#include "PlaceRescale.h"
#include "VolumeData.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace korvane {

namespace {

constexpr double kSamePlace = 0.01;  // millimetres: positions are rounded in files

/// The geometries that a caller may refuse.
void CheckRegular(const Series& series) {
    for (const Finding& finding : series.GetFindings()) {
        switch (finding.kind) {
        case FindingKind::NoPositions:
        case FindingKind::FramesUnplaced:
        case FindingKind::PositionMissing:
        case FindingKind::MissingSlices:
        case FindingKind::UnevenGaps:
        case FindingKind::ShiftedSideways:
        case FindingKind::SpacingDiffers:
        case FindingKind::Tilt: throw Error(ErrorKind::Irregular, finding.text);
        default: break;
        }
    }
}

int ChooseVolume(const Series& series, int asked) {
    const std::vector<VolumeInfo> volumes = series.GetVolumes();
    if (asked != LoadOptions::kOnly) return asked;
    if (volumes.size() == 1) return 1;
    std::string choices;
    for (const VolumeInfo& volume : volumes) choices += volume.key + "\n";
    throw Error(ErrorKind::Irregular, "the series makes " + std::to_string(volumes.size()) +
                                          " volumes, told apart by " + series.GetVolumeOrder() + ": choose one")
        .WithChoices(choices);
}

}  // namespace

void VolumeData::TakeGeometry() {
    CVolume& volume = m_pSeries->GetVolume();
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    for (std::size_t i = 0; i < 3; ++i) size[i] = static_cast<std::size_t>(dim[i]);
    size[3] = 1;
    type = m_pSeries->GetType();
    distance = static_cast<double>(space[2]);
    inModule = m_pSeries->IsInModule();
    const FramePlaces placed = m_pSeries->GetPlanePlaces();
    for (std::size_t k = 0; k < placed.GetCount(); ++k) positions.push_back(placed.GetPosition(k));
}

/// Those of the volume that is loaded, behind those of the times before.
void VolumeData::TakePlanes() {
    const FramePlaces placed = m_pSeries->GetPlanePlaces();
    for (std::size_t k = 0; k < placed.GetCount(); ++k) {
        if (!places.empty() && placed.GetPlane(k).unit != unit) unit.clear();
        if (places.empty()) unit = placed.GetPlane(k).unit;
        places.push_back(placed.Get(k));
        rescales.push_back(RealRescaleOf(placed.GetPlane(k)));
    }
}

/// Of the series, and of the reading.
void VolumeData::TakeFindings() {
    findings = m_pSeries->GetSeries().findings;
    const std::vector<Finding>& read = m_pSeries->GetReadFindings();
    findings.insert(findings.end(), read.begin(), read.end());
}

void VolumeData::Load(bool oneScale) {
    m_pSeries->Load(std::vector<SliceRef>(m_pSeries->GetSlices()));
    if (oneScale && m_pSeries->RescalesDiffer()) m_pSeries->BringToOneScale(false);
    TakeGeometry();
    TakePlanes();
    timeKeys = {m_pSeries->GetSets().keys.at(static_cast<std::size_t>(m_pSeries->GetVolumeNumber()) - 1)};
    voxels = m_pSeries->GetVoxels();
    TakeFindings();
}

void VolumeData::CheckPlaces() const {
    const FramePlaces now = m_pSeries->GetPlanePlaces();
    bool same = now.GetCount() == positions.size();
    for (std::size_t k = 0; same && k < now.GetCount(); ++k) {
        const Volume::Vector& place = now.GetPosition(k);
        same =
            std::hypot(place[0] - positions[k][0], place[1] - positions[k][1], place[2] - positions[k][2]) < kSamePlace;
    }
    if (same) return;
    const std::size_t time = places.size() / positions.size() + 1;
    throw Error(ErrorKind::Irregular,
                "volume " + std::to_string(time) + " of " + std::to_string(m_pSeries->GetSets().volumes.size()) +
                    " has " + std::to_string(now.GetCount()) + " slices that do not lie where the " +
                    std::to_string(positions.size()) +
                    " of the first do: volumes of one series are times only where they lie alike");
}

void VolumeData::LoadTimes(const Watch& watch) {
    const std::vector<std::vector<SliceRef>>& volumes = m_pSeries->GetSets().volumes;
    TaskProgress progress(watch, "reading volumes", static_cast<std::int64_t>(volumes.size()));
    std::size_t done = 0;
    for (const std::vector<SliceRef>& volume : volumes) {
        m_pSeries->Load(volume);
        if (places.empty()) TakeGeometry();
        CheckPlaces();
        TakePlanes();
        const std::span<const std::byte> read = m_pSeries->GetVoxels();
        if (m_Times.IsEmpty()) m_Times = VoxelBlock(read.size() * volumes.size());
        const std::span<std::byte> all = m_Times.GetBytes();
        if (read.size() * volumes.size() != all.size())
            throw Error(ErrorKind::Irregular, "the slices do not make a volume");
        std::memcpy(all.data() + done, read.data(), read.size());
        done += read.size();
        progress.Step();
    }
    size[3] = volumes.size();
    timeKeys = m_pSeries->GetSets().keys;
    voxels = m_Times.GetBytes();
    TakeFindings();
    inModule = false;
}

Volume Load(const Series& series, const LoadOptions& options) {
    const Watch watch(options.watcher);
    if (options.refuseIrregular) CheckRegular(series);
    if (options.volume == LoadOptions::kEvery && options.oneScale) {
        throw Error(ErrorKind::WrongArgument, "several times are not brought to one scale: load them one by one");
    }
    const bool every = options.volume == LoadOptions::kEvery && series.GetVolumes().size() > 1;
    const int number = options.volume == LoadOptions::kEvery ? 1 : ChooseVolume(series, options.volume);
    if (number < 1) throw Error(ErrorKind::WrongArgument, "there is no volume " + std::to_string(number));
    auto data = std::make_unique<VolumeData>(std::make_unique<SeriesVolume>(series, number, watch));
    data->GetSeriesVolume().SetJobs(options.jobs);
    if (options.uptake) data->GetSeriesVolume().TakeUptake();
    if (every) {
        data->LoadTimes(watch);
    } else {
        data->Load(options.oneScale);
    }
    return Volume(std::move(data));
}

}  // namespace korvane
