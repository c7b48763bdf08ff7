#include "Slice.h"

#include "../core/Error.h"
#include "../study/Volume.h"
#include "ImageJob.h"
#include "PictureFile.h"
#include "SliceJob.h"
#include "SliceableVolume.h"

#include <string>

namespace korvane {

namespace {

/// Before anything is read and drawn. Several pictures go into a folder, by names of their own.
void CheckOutput(const std::string& output, const SliceOptions& options) {
    const bool isStack = !options.view && !options.stored && options.count > 1;
    const bool isSheet = options.pictures == SliceOptions::Pictures::Sheet;
    if (isSheet || (options.pictures == SliceOptions::Pictures::One && !isStack)) CheckPictureName(output, options);
}

}  // namespace

const char* WordOf(View view) {
    switch (view) {
    case View::Coronal: return "coronal";
    case View::Sagittal: return "sagittal";
    case View::Axial: break;
    }
    return "axial";
}

const std::map<std::string, View>& ViewWords() {
    static const std::map<std::string, View> kWords = {
        {"axial", View::Axial}, {"coronal", View::Coronal}, {"sagittal", View::Sagittal}};
    return kWords;
}

const std::map<std::string, Interpolation>& InterpolationWords() {
    static const std::map<std::string, Interpolation> kWords = {
        {"nearest", Interpolation::Nearest}, {"linear", Interpolation::Linear}, {"shaped", Interpolation::Shaped}};
    return kWords;
}

const std::map<std::string, SlabMode>& SlabModeWords() {
    static const std::map<std::string, SlabMode> kWords = {{"mean", SlabMode::Mean},
                                                           {"max", SlabMode::Maximum},
                                                           {"maximum", SlabMode::Maximum},
                                                           {"min", SlabMode::Minimum},
                                                           {"minimum", SlabMode::Minimum}};
    return kWords;
}

SlicePicture Slice(const Volume& volume, const SliceOptions& options) {
    if (options.stored) return ImageJob(volume.GetSeries(), 0, options, "").Draw();
    SliceableVolume sliceable(volume, options);
    return SliceJob(sliceable.Get(), options, "").Draw();
}

std::vector<SlicePicture> SliceStack(const Volume& volume, const SliceOptions& options) {
    if (options.stored) throw Error(ErrorKind::WrongArgument, "a stack is of planes through a volume");
    SliceableVolume sliceable(volume, options);
    return SliceJob(sliceable.Get(), options, "").DrawAll();
}

SliceReport SaveSlices(const Volume& volume, const std::string& output, const SliceOptions& options) {
    CheckOutput(output, options);
    if (options.stored) return ImageJob(volume.GetSeries(), 0, options, output).Run();
    SliceableVolume sliceable(volume, options);
    return SliceJob(sliceable.Get(), options, output).Run();
}

SliceReport SaveSlices(const Series& series, int volume, const std::string& output, const SliceOptions& options) {
    CheckOutput(output, options);
    if (options.stored) return ImageJob(series, volume, options, output).Run();
    SeriesVolume loaded(series, volume, Watch(options.watcher));
    CheckSlicing(loaded, options);
    loaded.TellChoice();
    SliceableVolume::MakeComparable(loaded, options);
    return SliceJob(loaded, options, output).Run();
}

void SavePicture(const Picture& picture, const std::string& path, double pixelSize) {
    const Watch watch;
    ExportFiles files(Destination{}, watch);
    PictureFile(files, path, pixelSize, watch).Write(picture);
    files.Commit();
}

}  // namespace korvane
