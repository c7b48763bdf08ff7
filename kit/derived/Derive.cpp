#include "Derive.h"

#include "../core/Error.h"
#include "../core/ExportFiles.h"
#include "../core/Paths.h"
#include "../core/TemporaryFolder.h"
#include "../core/Watch.h"
#include "../study/Find.h"
#include "../study/Load.h"
#include "../study/SeriesFinder.h"
#include "../study/VolumeData.h"
#include "DerivedImages.h"
#include "DerivedSeries.h"

#include "export/CFileWriter.h"

#include <limits>
#include <utility>

namespace korvane {

namespace {

/// Throws `Error` of kind `WrongArgument` where the members do not go together.
DerivedPlanes PlanesOf(const VoxelArray& array) {
    const auto& [columns, rows, planes, times] = array.size;
    std::size_t bytes = SizeOf(array.type);
    for (const std::size_t side : array.size) {
        if (side == 0 || bytes > std::numeric_limits<std::size_t>::max() / side) {
            throw Error(ErrorKind::WrongArgument, "an array without voxels, or of more than memory holds");
        }
        bytes *= side;
    }
    if (array.voxels.size() != bytes || array.positions.size() != planes) {
        throw Error(ErrorKind::WrongArgument, "an array of " + std::to_string(array.voxels.size()) + " bytes with " +
                                                  std::to_string(array.positions.size()) +
                                                  " planes in their places, for " + std::to_string(bytes) +
                                                  " bytes in " + std::to_string(planes) + " planes");
    }
    const std::size_t planeBytes = bytes / (planes * times);
    DerivedPlanes made;
    made.type = array.type;
    made.columns = columns;
    made.rows = rows;
    made.times = times;
    made.orientation = array.orientation;
    made.spacing = array.spacing;
    made.thickness = array.thickness;
    made.positions = array.positions;
    made.rescales = {array.rescale};
    made.unit = array.unit;
    made.planeOf = [voxels = array.voxels, planeBytes](std::size_t plane) {
        return voxels.subspan(plane * planeBytes, planeBytes);
    };
    return made;
}

DerivedPlanes PlanesOf(const Volume& volume) {
    const auto [columns, rows, planes, times] = volume.GetSize();
    const VolumeData& data = volume.GetData();
    DerivedPlanes made;
    made.type = volume.GetType();
    made.columns = columns;
    made.rows = rows;
    made.times = times;
    const FramePlace& place = data.places.front();
    made.orientation = place.orientation;
    made.spacing = {volume.GetSpacing()[0], volume.GetSpacing()[1]};
    made.isSized = volume.HasSpacing();
    made.isPlaced = volume.HasPositions();
    made.thickness = volume.GetSpacing()[2];
    made.positions = volume.GetPositions();
    made.rescales = data.rescales;
    made.unit = volume.GetUnit();
    made.isAsRead = !data.made;
    if (times == 1) made.padding = data.GetSeriesVolume().GetPadding();
    made.isInverted = data.GetSeriesVolume().GetHeader().form.photometric == "MONOCHROME1";
    made.planeOf = [&volume, count = planes](std::size_t plane) {
        return volume.GetPlane(plane % count, plane / count);
    };
    return made;
}

DerivedReport Write(DerivedPlanes planes, const std::string& folder, const DeriveOptions& options) {
    if (folder.empty()) throw Error(ErrorKind::WrongArgument, "no folder for the series");
    const Watch watch(options.watcher);
    DerivedSeries series(std::move(planes), options);
    ExportFiles files(Destination{}, watch);
    files.SetMakeFolders();
    if (!options.replace) files.SetKeepExisting();
    const auto writer = files.MakeWriter();
    WriteImages(series, *writer, folder + "/", watch, "writing");
    if (!files.GetFailure().empty() || watch.IsStopped()) files.ThrowFailure();
    files.Commit();
    DerivedReport report;
    report.seriesUid = series.GetUid();
    report.sopClass = series.GetSopClass();
    report.error = series.GetError();
    report.replaced = series.CountReplaced();
    report.files = files.GetOutputs();
    report.findings = series.ListFindings();
    for (const Finding& finding : report.findings) watch.Tell(finding);
    return report;
}

}  // namespace

DerivedReport WriteSeries(const VoxelArray& array, const std::string& folder, const DeriveOptions& options) {
    return Write(PlanesOf(array), folder, options);
}

DerivedReport WriteSeries(const Volume& volume, const std::string& folder, const DeriveOptions& options) {
    const VolumeData& data = volume.GetData();
    DeriveOptions own = options;
    own.source = SourceOf(volume);
    if (data.made) {
        if (own.description.empty()) own.description = data.made->description;
        if (own.derivation.empty()) own.derivation = data.made->derivation;
    }
    return Write(PlanesOf(volume), folder, own);
}

std::optional<Series> SourceOf(const Volume& volume) {
    const VolumeData& data = volume.GetData();
    return data.made ? data.made->source : volume.GetSeries();
}

Volume MakeVolume(const VoxelArray& array, const DeriveOptions& options) {
    const Watch watch(options.watcher);
    DerivedSeries series(PlanesOf(array), options, true);
    const auto folder = std::make_shared<TemporaryFolder>("");
    std::vector<std::string> paths;
    TaskProgress progress(watch, "making a volume", static_cast<std::int64_t>(series.Count()));
    for (std::size_t plane = 0; plane < series.Count(); ++plane) {
        paths.push_back(folder->NewFile());
        series.MakeImage(plane).Save(paths.back(), {{}, options.watcher});
        progress.Step();
    }
    FoundFiles found = FindSeries(paths, {}, 0, watch);
    found.unpacked = folder;
    const Found all(std::make_shared<const FoundFiles>(std::move(found)));
    Volume volume = Load(all.Only(), {.volume = LoadOptions::kEvery, .watcher = options.watcher});
    volume.GetData().made = {options.source, options.description, options.derivation};
    return volume;
}

}  // namespace korvane
