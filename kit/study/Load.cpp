#include "Load.h"

#include "../core/Error.h"
#include "PlaceRescale.h"
#include "VolumeData.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

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

VoxelType TypeOf(CVolume::PixelType type) {
    switch (type) {
    case CVolume::PT_SHORT: return VoxelType::Int16;
    case CVolume::PT_USHORT: return VoxelType::UInt16;
    case CVolume::PT_BYTE: return VoxelType::UInt8;
    case CVolume::PT_FLOAT: return VoxelType::Float32;
    case CVolume::PT_LONG: return VoxelType::Int32;
    case CVolume::PT_ULONG: return VoxelType::UInt32;
    }
    return VoxelType::UInt8;
}

void VolumeData::Load(const Watch&) {
    m_pSeries->Load(std::vector<SliceRef>(m_pSeries->GetSlices()));
    CVolume& volume = m_pSeries->GetVolume();
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    for (std::size_t i = 0; i < 3; ++i) size[i] = static_cast<std::size_t>(dim[i]);
    size[3] = 1;
    type = TypeOf(volume.GetType());
    distance = static_cast<double>(space[2]);
    places = m_pSeries->GetPlanePlaces();
    for (const FramePlace& place : places) {
        positions.push_back(place.position);
        rescales.push_back(RescaleOf(place));
    }
    timeKeys = {m_pSeries->GetSets().keys.at(static_cast<std::size_t>(m_pSeries->GetVolumeNumber()) - 1)};
    findings = m_pSeries->GetSeries().findings;
    const auto* const first = static_cast<const std::byte*>(volume.GetPlane(0)->m_pData);
    voxels = {first, size[0] * size[1] * size[2] * SizeOf(type)};
}

Volume Load(const Series& series, const LoadOptions& options) {
    const Watch watch(options.watcher);
    if (options.refuseIrregular) CheckRegular(series);
    const int number = ChooseVolume(series, options.volume);
    if (number < 1) throw Error(ErrorKind::Unsupported, "several times in one volume");
    auto data = std::make_unique<VolumeData>(std::make_unique<SeriesVolume>(series, number, watch));
    data->Load(watch);
    return Volume(std::move(data));
}

}  // namespace korvane
