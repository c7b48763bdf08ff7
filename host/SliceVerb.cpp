// korvane slice: pictures of planes through the volume of a series, or of its images as they are stored.
#include "Console.h"
#include "SeriesOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <string_view>

using namespace korvane;

namespace {

// Texts of options that hold several numbers.
struct Arguments {
    PathOptions paths;
    SeriesChoice choice;
    SliceOptions options;
    std::string view;
    std::string output;
    bool all = false;
    bool sheet = false;
    std::string point;
    std::string normal;
    std::string up;
    std::string window;
    std::string pixelSize;
    std::string zoom;
    std::string step;
    std::string slab;
    std::string slabMode = "mean";
    std::string interpolation = "linear";
};

constexpr double kSmallestLength = 1e-6;  // millimetres
constexpr double kLargestLength = 1e9;

Error Wrong(const std::string& sentence) {
    return Error(ErrorKind::WrongArgument, sentence);
}

// Numbers with commas between them, all of the text.
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
        throw Wrong(option + " takes " + (kCount == 1 ? "a number" : std::to_string(kCount) + " numbers, such as ") +
                    (kCount == 3   ? "10,-20.5,30"
                     : kCount == 2 ? "40,400"
                                   : "") +
                    ", not \"" + std::string(text) + '"');
    }
    return values;
}

double ParsePositive(const std::string& option, const std::string& text, const char* what = "millimetres") {
    const double value = ParseNumbers<1>(option, text)[0];
    if (value < kSmallestLength || value > kLargestLength) {
        throw Wrong(option + " takes " + what + " above 0");
    }
    return value;
}

/// An explanation of a window, not its numbers.
bool IsName(const std::string& window) {
    return window.find_first_not_of("0123456789.,+-eE ") != std::string::npos && window.find(',') == std::string::npos;
}

SliceOptions ParseOptions(const Arguments& arguments) {
    SliceOptions options = arguments.options;
    options.view.reset();
    if (!arguments.view.empty()) options.view = ViewWords().at(arguments.view);
    options.pictures = arguments.sheet ? SliceOptions::Pictures::Sheet
                       : arguments.all ? SliceOptions::Pictures::All
                                       : SliceOptions::Pictures::One;
    options.stored = !options.view && arguments.normal.empty();
    if (!options.view && !options.stored) {
        if (!arguments.point.empty()) options.plane.point = ParseNumbers<3>("--point", arguments.point);
        options.plane.normal = ParseNumbers<3>("--normal", arguments.normal);
        if (!arguments.up.empty()) options.plane.up = ParseNumbers<3>("--up", arguments.up);
        if (!arguments.step.empty()) options.step = ParseNumbers<1>("--step", arguments.step)[0];
    }
    if (IsName(arguments.window)) {
        options.windowName = arguments.window;
    } else if (!arguments.window.empty()) {
        const auto window = ParseNumbers<2>("--window", arguments.window);
        if (window[1] < 1) throw Wrong("a window is at least 1 wide");
        options.window = Window{window[0], window[1]};
    }
    if (!arguments.pixelSize.empty()) options.pixelSize = ParsePositive("--pixel", arguments.pixelSize);
    if (!arguments.zoom.empty()) options.zoom = ParsePositive("--zoom", arguments.zoom, "a factor");
    options.interpolation = InterpolationWords().at(arguments.interpolation);
    if (!arguments.slab.empty()) options.slab = ParsePositive("--slab", arguments.slab);
    options.slabMode = SlabModeWords().at(arguments.slabMode);
    return options;
}

void MakeSlices(Arguments& arguments) {
    ConsoleWatcher watcher;
    SliceOptions options = ParseOptions(arguments);
    options.watcher = &watcher;
    arguments.choice.jobs = options.jobs;
    SeriesChoice choice = arguments.choice;
    arguments.paths.Fill(choice.paths, choice.input);
    choice.watcher = &watcher;
    const Series series = Choose(choice);
    const SliceReport report = SaveSlices(series, choice.volume, arguments.output, options);
    Print(Describe(report));
}

void AddPlaneOptions(CLI::App& verb, Arguments& arguments) {
    SliceOptions& options = arguments.options;
    CLI::Option* const view = verb.add_option("--view", arguments.view,
                                              "axial, coronal or sagittal: the patient's right on the left, head up; "
                                              "front up in axial, left in sagittal pictures");
    view->check(CLI::IsMember(ViewWords()));
    CLI::Option* const index = verb.add_option(
        "--index,--frame", options.index,
        "Which one, counted from 0 along the volume's axis, or in the order of the images (the middle one)");
    CLI::Option* const all = verb.add_flag("--all", arguments.all, "All of them: FILE is a folder for them");
    CLI::Option* const sheet = verb.add_flag("--sheet", arguments.sheet, "All of them, small, on one picture");
    CLI::Option* const point = verb.add_option(
        "--point", arguments.point, "x,y,z in patient millimetres (LPS): the picture's middle (that of the volume)");
    CLI::Option* const normal =
        verb.add_option("--normal", arguments.normal, "a,b,c across the plane; its sign does not matter");
    CLI::Option* const up =
        verb.add_option("--up", arguments.up, "a,b,c that is up in the picture (the front or the head)");
    CLI::Option* const count = verb.add_option("--count", options.count,
                                               "A stack of as many planes as that: FILE is a folder for them, or a "
                                               "sheet")
                                   ->check(CLI::Range(2, 4096));
    CLI::Option* const step =
        verb.add_option("--step", arguments.step, "Millimetres from plane to plane along --normal, as its sign says");
    index->excludes(all)->excludes(sheet);
    normal->excludes(view)->excludes(index)->excludes(all);
    for (CLI::Option* const option : {point, up, count}) option->needs(normal);
    count->needs(step);
    step->needs(count);
}

void AddPictureOptions(CLI::App& verb, Arguments& arguments) {
    SliceOptions& options = arguments.options;
    CLI::Option* const window = verb.add_option("--window", arguments.window,
                                                "CENTRE,WIDTH in rescaled values, or the explanation of one that the "
                                                "series has (its first, else its 1st to 99th percentile)");
    verb.add_option("--interp", arguments.interpolation, "nearest, linear or shaped")
        ->check(CLI::IsMember(InterpolationWords()))
        ->capture_default_str();
    CLI::Option* const slab =
        verb.add_option("--slab", arguments.slab, "Millimetres across the plane to take together");
    verb.add_option("--slab-mode", arguments.slabMode, "mean, max or min of them")
        ->check(CLI::IsMember(SlabModeWords()))
        ->capture_default_str()
        ->needs(slab);
    verb.add_option("--pixel", arguments.pixelSize, "Millimetres of a pixel (the smaller of the voxel's two sides)");
    CLI::Option* const size = verb.add_option("--size", options.size, "Pixels of the longer side (one for each voxel)")
                                  ->check(CLI::Range(1, 65536));
    verb.add_option("--zoom", arguments.zoom, "Times as large (1; small ones grow for --annotate)")->excludes(size);
    CLI::Option* const annotate =
        verb.add_flag("--annotate", options.annotate, "Directions at the edges, and a scale bar");
    CLI::Option* const raw =
        verb.add_flag("--raw16", options.raw16, "Stored values in 16 bits, signed ones + 32768; not windowed");
    CLI::Option* const values =
        verb.add_flag("--values", options.values, "Real values (after rescale), 32-bit floating point: a TIFF file");
    for (CLI::Option* const option : {raw, values}) option->excludes(window)->excludes(annotate)->excludes("--sheet");
    raw->excludes(values);
    verb.add_flag("--suv", options.uptake, "PET: standardized uptake values by body weight, in place of activity")
        ->excludes(raw);
    verb.add_option("--jobs", options.jobs, "Threads (one for each core)");
    verb.add_option("-o,--output", arguments.output, "FILE.png or FILE.jpg, or the folder for --all")->required();
}

}  // namespace

void AddSliceVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand(
        "slice",
        "Write pictures of planes through the volume, or, without a view or a plane, of the images as they are");
    const auto arguments = std::make_shared<Arguments>();
    AddSeriesOptions(*verb, arguments->paths, arguments->choice);
    AddPlaneOptions(*verb, *arguments);
    AddPictureOptions(*verb, *arguments);
    verb->callback([arguments] { MakeSlices(*arguments); });
}
