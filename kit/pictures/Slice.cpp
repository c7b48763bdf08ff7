#include "Slice.h"

#include "../study/Volume.h"
#include "../study/VolumeData.h"
#include "ImageJob.h"
#include "PictureFile.h"
#include "SliceJob.h"

namespace korvane {

SlicePicture Slice(const Volume& volume, const SliceOptions& options) {
    if (options.stored) return ImageJob(volume.GetSeries(), 0, options, "").Draw();
    SeriesVolume& series = volume.GetData().GetSeriesVolume();
    CheckSlicing(series, options);
    return SliceJob(series, options, "").Draw();
}

SliceReport SaveSlices(const Volume& volume, const std::string& output, const SliceOptions& options) {
    if (options.stored) return ImageJob(volume.GetSeries(), 0, options, output).Run();
    SeriesVolume& series = volume.GetData().GetSeriesVolume();
    CheckSlicing(series, options);
    return SliceJob(series, options, output).Run();
}

SliceReport SaveSlices(const Series& series, int volume, const std::string& output, const SliceOptions& options) {
    if (options.stored) return ImageJob(series, volume, options, output).Run();
    SeriesVolume loaded(series, volume, Watch(options.watcher));
    CheckSlicing(loaded, options);
    loaded.Load();
    if (!options.raw16 && loaded.RescalesDiffer()) loaded.BringToOneScale(true);
    return SliceJob(loaded, options, output).Run();
}

void SavePicture(const Picture& picture, const std::string& path, double pixelSize) {
    const Watch watch;
    ExportFiles files(Destination{}, watch);
    PictureFile(files, path, pixelSize, watch).Write(picture);
    files.Commit();
}

}  // namespace korvane
