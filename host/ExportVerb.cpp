// korvane export: a series becomes a volume and the files of a research format.
#include "Console.h"
#include "SeriesOptions.h"
#include "Verbs.h"
#include "terminal/Terminal.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

constexpr char kPassword[] = "KORVANE_FTP_PASSWORD";

struct Arguments {
    PathOptions paths;
    SeriesChoice choice;
    bool all = false;
    bool bids = false;
    BidsTree tree;
    ExportAllOptions allOptions;
    std::string format;
    std::string url;
    ExportOptions options;
};

// From the environment, else from the user where there is a terminal.
std::string AskPassword(const std::string& user, const std::string& host) {
    if (const auto known = platform::GetVariable(kPassword)) return *known;
    std::string password;
    const std::string whose = user + " at " + host;
    const bool found = platform::ReadPassword("password of " + Visible(whose), password);
    StopIfInterrupted();
    if (!found) throw Error(ErrorKind::Refused, "no password for " + whose + ": set " + kPassword);
    return password;
}

void ExportEvery(Arguments& arguments) {
    ConsoleWatcher watcher;
    ExportAllOptions& options = arguments.allOptions;
    if (arguments.bids) options.bids = arguments.tree;
    options.each = arguments.options;
    options.each.askPassword = AskPassword;
    options.reportFile = arguments.options.reportFile;
    options.jobs = arguments.options.jobs;
    options.watcher = &watcher;
    const Found found = Find(arguments.choice.paths, {options.jobs, &watcher, arguments.choice.input});
    Conclude(OutcomeOf(ExportAll(found, arguments.format, arguments.url, options)));
}

void CheckArguments(const Arguments& arguments) {
    const ExportAllOptions defaults;
    const bool asks = arguments.bids || arguments.allOptions.overwrite || !arguments.allOptions.resume.empty() ||
                      arguments.allOptions.name != defaults.name;
    if (!arguments.all && asks)
        throw Error(ErrorKind::WrongArgument, "--name, --bids, --overwrite and --resume need --all");
    if (arguments.all &&
        (!arguments.choice.series.empty() || arguments.choice.number || arguments.choice.volume != 0)) {
        throw Error(ErrorKind::WrongArgument, "--all takes every series: no --series, --series-number or --volume");
    }
}

void ExportSeries(Arguments& arguments) {
    CheckArguments(arguments);
    arguments.paths.Fill(arguments.choice.paths, arguments.choice.input);
    if (arguments.all) return ExportEvery(arguments);
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    arguments.choice.watcher = &watcher;
    arguments.options.askPassword = AskPassword;
    const ExportReport report = Export(arguments.choice, arguments.format, arguments.url, arguments.options);
    Print(Describe(report));
}

}  // namespace

void AddExportVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("export", "Write a series as a volume file");
    const auto arguments = std::make_shared<Arguments>();
    AddSeriesOptions(*verb, arguments->paths, arguments->choice);
    verb->add_option(
            "--format", arguments->format,
            "analyze: Analyze 7.5, NAME.hdr and NAME.img; bob: brick of bytes, NAME.header, NAME.ImageInfo and "
            "NAME.img, with numbers in the names where files exist; vox: RTViz, NAME.vox; nifti: NIfTI, NAME.nii; "
            "nrrd: NAME.nrrd; metaimage: NAME.mha; dicom: a derived series, NAME-0001.dcm and on")
        ->required()
        ->check(CLI::IsMember(GetExportFormats()));
    verb->add_option("--to", arguments->url,
                     "With --all a folder; else PATH/NAME, file:PATH/NAME or ftp:USER%PASSWORD@HOST/PATH/NAME; an "
                     "empty PASSWORD is taken "
                     "from KORVANE_FTP_PASSWORD, or asked for")
        ->required();
    verb->add_flag("--all", arguments->all,
                   "Every volume of every series into the folder --to, with a table at the end; those that fail do not "
                   "end the job, but it then exits with 1");
    verb->add_option(
            "--name", arguments->allOptions.name,
            "With --all: pattern of the names; %s number, %d description, %p protocol, %e echo, %m modality, %t "
            "study date, %n patient, %i patient ID, %u UID; slashes make folders")
        ->default_str("%s_%d");
    CLI::Option* const bids = verb->add_flag("--bids", arguments->bids,
                                             "With --all: a BIDS tree in --to; what is not clear goes under "
                                             "sourcedata, named by --name; .nii.gz and sidecars");
    CLI::Option* const subject =
        verb->add_option("--subject", arguments->tree.subject, "With --bids: the subject's label")->needs(bids);
    bids->needs(subject);
    verb->add_option("--session", arguments->tree.session, "With --bids: the session's label")->needs(bids);
    verb->add_flag("--overwrite", arguments->allOptions.overwrite, "With --all: replace files of an earlier run");
    verb->add_option("--resume", arguments->allOptions.resume,
                     "With --all: pass over what this --report of an earlier run says is done, and is there");
    AddPolicyOption(*verb, arguments->options.irregular,
                    "Planes that are not even, positions that repeat: keep (as they are, the first volume), reject, "
                    "resample (evenly along z), split (an output for each volume and even run, NAME-1 ...)");
    verb->add_flag("--gzip", arguments->options.compress,
                   "Compress on all cores: NAME.nii.gz, the voxels of NAME.nrrd (NAME.nii.gz in --to does the same)");
    verb->add_flag(
        "--sidecar", arguments->options.sidecar,
        "nifti, nrrd, metaimage: NAME.json with the scan's facts in the terms of BIDS, NAME.bval and NAME.bvec of "
        "diffusion; without names, dates and places");
    verb->add_flag("--suv", arguments->options.uptake,
                   "PET: standardized uptake values by body weight, in place of activity");
    verb->add_flag("--preview", arguments->options.preview,
                   "nifti, nrrd, metaimage: NAME.png with the middle plane of three views");
    verb->add_option("--jobs", arguments->options.jobs, "Threads (one for each core)");
    verb->add_flag("--dry-run", arguments->options.dryRun,
                   "Read and convert everything, write nothing, and say what would be");
    verb->add_option("--report", arguments->options.reportFile,
                     "A file for a report in JSON: inputs, geometry, files, checksums");
    verb->callback([arguments] { ExportSeries(*arguments); });
}
