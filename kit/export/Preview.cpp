#include "Preview.h"

#include "../pictures/PngWriter.h"
#include "../pictures/SliceGrid.h"
#include "../pictures/SliceJob.h"
#include "../study/PlaneStream.h"
#include "../study/SeriesVolume.h"
#include "PreviewPlanes.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace korvane {

namespace {

constexpr int kSide = 256;  // pixels of the longer side of each view
constexpr int kGap = 4;

Picture SideBySide(const std::vector<Picture>& pictures) {
    int width = kGap;
    int height = 0;
    for (const Picture& one : pictures) {
        width += one.GetWidth() + kGap;
        height = std::max(height, one.GetHeight());
    }
    Picture all(width, height + 2 * kGap);
    int x = kGap;
    for (const Picture& one : pictures) {
        all.Paste(one, x, kGap + (height - one.GetHeight()) / 2);
        x += one.GetWidth() + kGap;
    }
    return all;
}

SliceOptions OptionsOfView(View view) {
    SliceOptions options;
    options.size = kSide;
    options.view = view;
    return options;
}

/// All planes of a volume that is in no memory, read once more.
PlanesOfValues ReadAgain(const SeriesVolume& series) {
    const VoxelType type = series.GetType();
    return [&series, type](const auto& take) {
        const std::unique_ptr<PlaneStream> stream = series.StreamPlanes(false);
        for (std::size_t i = series.GetPlanePlaces().GetCount(); i > 0; --i) take(type, stream->ReadNext());
    };
}

}  // namespace

void CheckPreview(const SeriesVolume& series) {
    CheckSlicing(series, OptionsOfView(View::Axial));
}

PreviewPlanes ReadForPreview(SeriesVolume& series) {
    series.ScalePlanes(false, [] {});
    PreviewPlanes planes(series);
    series.ReadPlanes([&](int plane, std::span<const std::byte> voxels) { planes.Take(plane, voxels); });
    planes.SetRange(series.GetWholeRange());
    return planes;
}

std::string MakePreview(SeriesVolume& series, PreviewPlanes* planes, const Watch& watch) {
    PlanesOfValues values;
    if (planes != nullptr) {
        values = ReadAgain(series);
        planes->Show(series, 2);
    } else {
        if (series.RescalesDiffer()) series.BringToOneScale(false, false);  // the file holds values at another one
        series.MakeSliceable();
    }
    const WindowChoice window = FindWindow(series, OptionsOfView(View::Axial), values);
    std::vector<Picture> pictures;
    for (const View view : {View::Axial, View::Coronal, View::Sagittal}) {
        watch.StopIfAsked();
        if (planes != nullptr) planes->Show(series, FindView(series.GetVolume(), view).axis);
        pictures.push_back(SliceJob(series, OptionsOfView(view), "", {.window = &window}).Draw().picture);
    }
    return PngWriter::Encode(SideBySide(pictures), watch);
}

}  // namespace korvane
