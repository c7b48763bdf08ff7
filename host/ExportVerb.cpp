// korvane export: a series becomes a volume and the files of a research format.
#include "Destination.h"
#include "ExportFiles.h"
#include "HostError.h"
#include "Progress.h"
#include "SeriesOptions.h"
#include "SeriesVolume.h"
#include "SeriesWarnings.h"
#include "TextEncoding.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>
#include <Korvane/Korvane.h>
#include <Korvane/platform/Terminal.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kAnalyzeSide = 32767;

struct Arguments {
    SeriesChoice choice;
    std::string format = "analyze";
    std::string url;
};

/// Types that an Analyze file of the library has no form for, or would hold as something else.
void CheckAnalyze(const SeriesVolume& series) {
    const PixelForm& form = series.GetHeader().form;
    std::string what;
    if (!series.IsGrey()) {
        what = series.DescribeColours();
    } else if (form.allocated != 8 && form.allocated != 16) {
        what = std::to_string(form.allocated) + "-bit pixels";
    } else if (form.allocated == 8 && form.isSigned) {
        what = "signed 8-bit pixels";
    } else if (form.columns > kAnalyzeSide || form.rows > kAnalyzeSide || series.GetSliceCount() > kAnalyzeSide) {
        what = "more than 32767 voxels along a side";
    }
    if (!what.empty()) throw HostError(series.GetHeader().path + ": " + what + " have no form in an Analyze file");
}

/// What the file does not say about its values.
std::vector<std::string> RemarksOn(const ImageHeader& header, const FramePlace& place, CVolume& volume) {
    std::vector<std::string> remarks;
    if (volume.GetType() == CVolume::PT_USHORT) {
        if (header.modality == "XA") {
            remarks.emplace_back("unsigned data of modality XA: the file holds half of each value");
        } else {
            remarks.emplace_back("unsigned data: the file holds each value less 32767, and nothing in it says so");
            if (volume.GetMax() == 65535) remarks.emplace_back("the value 65535 wraps around to -32768");
        }
    }
    if (!place.slope.empty() && !place.intercept.empty() && (place.slope != "1" || place.intercept != "0")) {
        remarks.push_back("values are as stored: the real value is stored * " + place.slope + " + " + place.intercept);
    }
    if (header.form.photometric == "MONOCHROME1") remarks.emplace_back("MONOCHROME1: low values are bright");
    return remarks;
}

void Report(const ExportFiles& files, CVolume& volume, const std::vector<std::string>& remarks) {
    std::string names;
    for (const std::string& name : files.GetNames()) names += (names.empty() ? "" : " and ") + name;
    std::printf("wrote %s\n", Visible(names).c_str());
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    std::printf("%d x %d x %d voxels of %s x %s x %s mm, values %lld to %lld\n", dim[0], dim[1], dim[2],
                ShortNumber(space[0]).c_str(), ShortNumber(space[1]).c_str(), ShortNumber(space[2]).c_str(),
                volume.GetMin(), volume.GetMax());
    for (const std::string& remark : remarks) std::printf("%s\n", Visible(remark).c_str());
}

/// The exporter's own answer is true even when it was stopped, or when a file could not be closed.
void Save(CDicomVolume& assembled, const Destination& destination, ExportFiles& files) {
    CAnalyzeVolume exporter;
    exporter = assembled;
    int dim[4];
    assembled.GetVolume()->GetDimensions(dim);
    CFileWriter* const writer = files.MakeWriter().release();
    exporter.SetFileWriter(writer);
    bool saved;
    {
        ProgressBar progress("writing", dim[2]);
        exporter.SetCallback(&progress);
        saved = destination.isFtp
                    ? exporter.Save(destination.directory.c_str(), destination.name.c_str())
                    : exporter.SaveUrl(("file:" + destination.directory + "\\" + destination.name).c_str());
        exporter.SetCallback(nullptr);
    }
    if (saved && files.GetFailure().empty() && !platform::WasInterrupted()) {
        exporter.SetFileWriter(nullptr);  // ends an FTP session
        files.Commit();
        return;
    }
    std::string failure = platform::WasInterrupted() ? "stopped" : files.GetFailure();
    if (failure.empty()) failure = "cannot write " + destination.Describe();
    if (destination.isFtp && !files.GetNames().empty()) failure += "; " + EmptyRemoteFiles(*writer, files);
    throw HostError(failure);
}

void Export(const Arguments& arguments) {
    const Destination destination = ParseDestination(arguments.url);
    SeriesVolume series(arguments.choice);
    CheckAnalyze(series);
    series.Load();
    ExportFiles files(destination);
    Save(series.GetAssembled(), destination, files);
    Report(files, series.GetVolume(), RemarksOn(series.GetHeader(), series.GetPlace(), series.GetVolume()));
}

}  // namespace

void AddExportVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("export", "Write a series as a volume file");
    const auto arguments = std::make_shared<Arguments>();
    AddSeriesOptions(*verb, arguments->choice);
    verb->add_option("--format", arguments->format, "analyze: Analyze 7.5, NAME.hdr and NAME.img")
        ->required()
        ->check(CLI::IsMember({"analyze"}));
    verb->add_option("--to", arguments->url, "file:PATH/NAME or ftp:USER%PASSWORD@HOST/PATH/NAME, without extension")
        ->required();
    verb->callback([arguments] { Export(*arguments); });
}
