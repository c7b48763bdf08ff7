// korvane export: a series becomes a volume and the files of a research format.
#include "SeriesOptions.h"
#include "Verbs.h"
#include <Korvane/kit/export/ExportJob.h>

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

void AddExportVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("export", "Write a series as a volume file");
    const auto request = std::make_shared<ExportRequest>();
    AddSeriesOptions(*verb, request->choice);
    verb->add_option(
            "--format", request->format,
            "analyze: Analyze 7.5, NAME.hdr and NAME.img; bob: brick of bytes, NAME.header, NAME.ImageInfo and "
            "NAME.img, with numbers in the names where files exist; vox: RTViz, NAME.vox")
        ->required()
        ->check(CLI::IsMember({"analyze", "bob", "vox"}));
    verb->add_option(
            "--to", request->url,
            "file:PATH/NAME or ftp:USER%PASSWORD@HOST/PATH/NAME, without extension; an empty PASSWORD is taken "
            "from KORVANE_FTP_PASSWORD, or asked for")
        ->required();
    verb->add_option("--irregular", request->policy,
                     "Planes that are not even, positions that repeat: keep (as they are, the first volume), reject, "
                     "resample (evenly along z), split (an output for each volume and even run, NAME-1 ...)")
        ->check(CLI::IsMember({"keep", "reject", "resample", "split"}))
        ->capture_default_str();
    verb->add_flag("--dry-run", request->dryRun, "Read and convert everything, write nothing, and say what would be");
    verb->add_option("--report", request->report, "A file for a report in JSON: inputs, geometry, files, checksums");
    verb->callback([request] { ExportJob(*request).Run(); });
}
