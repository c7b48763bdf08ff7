#include "Preview.h"

#include "../pictures/PngWriter.h"
#include "../pictures/SliceJob.h"
#include "../study/SeriesVolume.h"

#include <algorithm>
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

}  // namespace

std::string MakePreview(SeriesVolume& series, const Watch& watch) {
    SliceOptions options;
    options.size = kSide;
    CheckSlicing(series, options);
    if (series.RescalesDiffer()) series.BringToOneScale(false, false);  // the file holds values at another one
    series.MakeSliceable();
    const WindowChoice window = FindWindow(series, options);
    std::vector<Picture> pictures;
    for (const View view : {View::Axial, View::Coronal, View::Sagittal}) {
        watch.StopIfAsked();
        options.view = view;
        pictures.push_back(SliceJob(series, options, "", {.window = &window}).Draw().picture);
    }
    return PngWriter::Encode(SideBySide(pictures), watch);
}

}  // namespace korvane
