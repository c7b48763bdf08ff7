#include "Slice.h"

#include "../study/Volume.h"
#include "../study/VolumeData.h"
#include "PngWriter.h"
#include "SliceJob.h"

namespace korvane {

SlicePicture Slice(const Volume& volume, const SliceOptions& options) {
    SeriesVolume& series = volume.GetData().GetSeriesVolume();
    CheckSlicing(series, options);
    return SliceJob(series, options, "").Draw();
}

SliceReport SaveSlices(const Volume& volume, const std::string& output, const SliceOptions& options) {
    SeriesVolume& series = volume.GetData().GetSeriesVolume();
    CheckSlicing(series, options);
    return SliceJob(series, options, output).Run();
}

SliceReport SaveSlices(const Series& series, int volume, const std::string& output, const SliceOptions& options) {
    SeriesVolume loaded(series, volume, Watch(options.watcher));
    CheckSlicing(loaded, options);
    loaded.Load();
    if (!options.raw16 && loaded.RescalesDiffer()) loaded.BringToOneScale(true);
    return SliceJob(loaded, options, output).Run();
}

void SavePng(const Picture& picture, const std::string& path, double pixelSize) {
    ExportFiles files(Destination{}, Watch());
    const std::string target = files.Begin(path);
    if (target.empty()) files.ThrowFailure();
    PngWriter png(target, Watch());
    if (pixelSize > 0) png.SetPixelSize(pixelSize);
    png.Write(picture.GetPixels(), picture.GetWidth(), picture.GetHeight());
    files.Commit();
}

}  // namespace korvane
