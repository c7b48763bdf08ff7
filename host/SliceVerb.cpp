// korvane slice: pictures of planes through the volume of a series.
#include "Console.h"
#include "SeriesOptions.h"
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/pictures/SliceJob.h>
#include <Korvane/kit/study/SeriesVolume.h>

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <string_view>

using namespace korvane;

namespace {

/// Texts of options that hold several numbers.
struct Arguments {
    SeriesChoice choice;
    SliceRequest request;
    std::string point;
    std::string normal;
    std::string up;
    std::string window;
    std::string pixelSize;
    std::string slab;
    std::string slabMode = "mean";
    std::string interpolation = "linear";
};

const std::map<std::string, DcmOrientation::OrthoPlane> kViews = {{"axial", DcmOrientation::OP_AXIAL},
                                                                  {"coronal", DcmOrientation::OP_CORONAL},
                                                                  {"sagittal", DcmOrientation::OP_SAGITTAL}};
const std::map<std::string, DcmObliqueSlice::Interpolation> kInterpolations = {{"nearest", DcmObliqueSlice::IP_NEAREST},
                                                                               {"linear", DcmObliqueSlice::IP_LINEAR},
                                                                               {"shaped", DcmObliqueSlice::IP_SHAPED}};
const std::map<std::string, DcmObliqueSlice::SlabMode> kSlabModes = {
    {"mean", DcmObliqueSlice::SM_MEAN}, {"max", DcmObliqueSlice::SM_MAXIMUM}, {"min", DcmObliqueSlice::SM_MINIMUM}};

/// Numbers with commas between them, all of the text.
template <std::size_t kCount>
std::array<double, kCount> ParseNumbers(const std::string& option, std::string_view text) {
    std::array<double, kCount> values{};
    const char* at = text.data();
    const char* const end = at + text.size();
    bool good = true;
    for (std::size_t i = 0; i < kCount && good; ++i) {
        if (i > 0) good = at != end && *at++ == ',';
        const auto result = std::from_chars(at, end, values[i]);
        good = good && result.ec == std::errc() && std::isfinite(values[i]);
        at = result.ptr;
    }
    if (!good || at != end) {
        throw UsageError(option + " takes " +
                         (kCount == 1 ? "a number" : std::to_string(kCount) + " numbers, such as ") +
                         (kCount == 3   ? "10,-20.5,30"
                          : kCount == 2 ? "40,400"
                                        : "") +
                         ", not \"" + std::string(text) + '"');
    }
    return values;
}

double ParsePositive(const std::string& option, const std::string& text) {
    const double value = ParseNumbers<1>(option, text)[0];
    if (value < DcmObliqueSlice::kSmallestLength || value > DcmObliqueSlice::kLargestLength) {
        throw UsageError(option + " takes millimetres above 0");
    }
    return value;
}

SliceRequest ParseRequest(const Arguments& arguments) {
    SliceRequest request = arguments.request;
    if (!request.viewName.empty()) request.view = kViews.at(request.viewName);
    request.all = request.all || request.sheet;
    if (!request.view) {
        if (arguments.normal.empty()) throw UsageError("either --view or --point and --normal are needed");
        if (!arguments.point.empty()) request.plane.point = ParseNumbers<3>("--point", arguments.point);
        request.plane.normal = ParseNumbers<3>("--normal", arguments.normal);
        if (!arguments.up.empty()) request.plane.up = ParseNumbers<3>("--up", arguments.up);
    }
    if (!arguments.window.empty()) {
        const auto window = ParseNumbers<2>("--window", arguments.window);
        if (window[1] < 1) throw UsageError("a window is at least 1 wide");
        request.window = Window{window[0], window[1]};
    }
    if (!arguments.pixelSize.empty()) request.pixelSize = ParsePositive("--pixel", arguments.pixelSize);
    request.interpolation = kInterpolations.at(arguments.interpolation);
    if (!arguments.slab.empty()) {
        request.slab = ParsePositive("--slab", arguments.slab);
        request.slabMode = kSlabModes.at(arguments.slabMode);
    }
    return request;
}

/// Pixels that are no grey values, that the volume would hold as something else, or that 16 bits do not hold.
void CheckPixels(const SeriesVolume& series, const SliceRequest& request) {
    const PixelForm& form = series.GetHeader().form;
    const std::string bits = std::to_string(form.allocated) + "-bit pixels";
    std::string what;
    if (!series.IsGrey()) {
        what = series.DescribeColours() + " make no grey picture";
    } else if ((form.allocated != 8 && form.allocated != 16 && form.allocated != 32) ||
               (form.allocated == 8 && form.isSigned)) {
        what = (form.isSigned ? "signed " : "") + bits + " cannot be sliced";
    } else if (request.raw16 && form.allocated > 16) {
        what = bits + " do not fit into 16 bits";
    }
    if (!what.empty()) throw HostError(series.GetHeader().path + ": " + what);
}

void MakeSlices(const Arguments& arguments) {
    const SliceRequest request = ParseRequest(arguments);
    ConsoleWatcher watcher;
    SeriesChoice choice = arguments.choice;
    choice.watcher = &watcher;
    SeriesVolume series(choice);
    CheckPixels(series, request);
    series.Load();
    SliceJob(request, series).Run();
}

void AddPlaneOptions(CLI::App& verb, Arguments& arguments) {
    SliceRequest& request = arguments.request;
    CLI::Option* const view = verb.add_option("--view", request.viewName,
                                              "axial, coronal or sagittal: the patient's right on the left, head up; "
                                              "front up in axial, left in sagittal pictures");
    view->check(CLI::IsMember(kViews));
    CLI::Option* const index =
        verb.add_option("--index", request.index, "Which one, counted from 0 along the volume's axis (the middle one)");
    CLI::Option* const all = verb.add_flag("--all", request.all, "All of the view: FILE is a folder for them");
    CLI::Option* const sheet = verb.add_flag("--sheet", request.sheet, "All of the view, small, on one picture");
    CLI::Option* const point = verb.add_option(
        "--point", arguments.point, "x,y,z in patient millimetres (LPS): the picture's middle (that of the volume)");
    CLI::Option* const normal =
        verb.add_option("--normal", arguments.normal, "a,b,c across the plane; its sign does not matter");
    CLI::Option* const up =
        verb.add_option("--up", arguments.up, "a,b,c that is up in the picture (the front or the head)");
    index->needs(view)->excludes(all)->excludes(sheet);
    all->needs(view);
    sheet->needs(view);
    normal->excludes(view);
    point->needs(normal);
    up->needs(normal);
}

void AddPictureOptions(CLI::App& verb, Arguments& arguments) {
    SliceRequest& request = arguments.request;
    CLI::Option* const window = verb.add_option("--window", arguments.window,
                                                "CENTRE,WIDTH in rescaled values (that of the series, else its 1st to "
                                                "99th percentile)");
    verb.add_option("--interp", arguments.interpolation, "nearest, linear or shaped")
        ->check(CLI::IsMember(kInterpolations))
        ->capture_default_str();
    CLI::Option* const slab =
        verb.add_option("--slab", arguments.slab, "Millimetres across the plane to take together");
    verb.add_option("--slab-mode", arguments.slabMode, "mean, max or min of them")
        ->check(CLI::IsMember(kSlabModes))
        ->capture_default_str()
        ->needs(slab);
    verb.add_option("--pixel", arguments.pixelSize, "Millimetres of a pixel (the smaller of the voxel's two sides)");
    CLI::Option* const annotate =
        verb.add_flag("--annotate", request.annotate, "Directions at the edges, and a scale bar");
    verb.add_flag("--raw16", request.raw16, "Stored values in 16 bits, signed ones + 32768; not windowed")
        ->excludes(window)
        ->excludes(annotate)
        ->excludes("--sheet");
    verb.add_option("-o,--output", request.output, "FILE.png, or the folder for --all")->required();
}

}  // namespace

void AddSliceVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("slice", "Write pictures of planes through the volume");
    const auto arguments = std::make_shared<Arguments>();
    AddSeriesOptions(*verb, arguments->choice);
    AddPlaneOptions(*verb, *arguments);
    AddPictureOptions(*verb, *arguments);
    verb->callback([arguments] { MakeSlices(*arguments); });
}
