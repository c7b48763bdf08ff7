// All series that were found, as files of a research format.
#pragma once

#include "../core/KitExport.h"
#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "../study/Find.h"
#include "Export.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// A tree as the Brain Imaging Data Structure (BIDS) lays it out, for one subject.
struct BidsTree {
    std::string subject{};  ///< a label: letters and digits
    std::string session{};  ///< another; "" for none
};

/// How a whole folder is exported. The defaults write every volume of every series and keep what is there.
struct ExportAllOptions {
    /// Names of the outputs, without extension. Fields: %s series number, %d description, %p protocol, %e echo number, %m
    /// modality, %t study date, %n patient's name, %i patient's ID, %u series UID; slashes make
    /// folders. Names that would be the same get letters behind (a, b ...).
    std::string name = "%s_%d";
    /// NIfTI alone, compressed and with sidecars, in a local folder: what a series clearly is (T1w, T2w, T2starw, FLAIR, PDw,
    /// bold and sbref with a task, dwi, field maps) goes to its place and has its name there, several of one name as runs;
    /// all else goes under sourcedata/, named by `name`. dataset_description.json is written where there is none.
    std::optional<BidsTree> bids{};
    bool overwrite = false;  ///< files of an earlier run may be replaced; else their series is refused
    /// The report file of an earlier run: series whose files it calls done, and which are there with the same bytes, are
    /// passed over. It may be the same file as the new report's, and need not exist.
    std::string resume{};
    /// For each series. Of these `volume`, `reportFile`, `jobs` and `watcher` are not used.
    ExportOptions each{};
    /// One report on all as JSON; also written when the job is stopped, and now and then while it runs, for a job that is
    /// killed.
    std::string reportFile{};
    unsigned jobs = 0;  ///< series that are worked on side by side; 0: one for each core
    Watcher* watcher = nullptr;
};

/// What became of one series.
struct ExportedSeries {
    enum class Status {
        Written,  ///< or would be, in a dry run
        Refused,  ///< nothing of it was written; `why`
        Whole,    ///< by the report of an earlier run
        NoImage,  ///< an object without pixels
        Open,     ///< the job was stopped before
    };

    std::size_t row = 0;  ///< in the list of series, from 1
    int number = 0;       ///< Series Number
    std::string uid{};
    std::string description{};
    std::string firstFile{};
    std::size_t images = 0;
    std::string name{};  ///< of its outputs, without folder and extension
    Status status = Status::Open;
    std::string why{};      ///< it was refused, or lies under sourcedata/
    ExportReport report{};  ///< of what was written or refused
    std::vector<ExportOutput> outputs{};
};

struct KORVANE_KIT ExportAllReport {
    std::string format{};
    std::string destination{};  ///< without a password
    std::vector<ExportedSeries> series{};
    std::vector<std::string> unreadable{};  ///< files and folders, one line each: a series may lack slices
    bool stopped = false;

    std::size_t Count(ExportedSeries::Status status) const;
    /// Nothing was refused and nothing was unreadable.
    bool IsWhole() const { return unreadable.empty() && Count(ExportedSeries::Status::Refused) == 0 && !stopped; }
};

KORVANE_KIT const char* WordOf(ExportedSeries::Status status);

/// Writes all volumes of all series into a folder, which is made where it is missing: "path", "file:path" or
/// "ftp:user%password@host/path". A series is written whole or not at all; one that fails is told in the report, and the
/// others go on. Volumes that mean different things (echoes, phases, maps) become files whose names end in that; the
/// names do not depend on `jobs`. Throws `Error` for arguments that are wrong, where nothing was found (`NotFound`), for a
/// report file that cannot be written, and `Stopped`, then with a report file of what was done.
///
///     const auto report = korvane::ExportAll(korvane::Find({"study"}), "nifti", "out");
///     for (const std::string& line : korvane::OutcomeOf(report).lines) std::cout << line << '\n';
KORVANE_KIT ExportAllReport ExportAll(const Found& found, const std::string& format, const std::string& folder,
                                      const ExportAllOptions& options = {});

/// One JSON object with a line end: "schema" ("korvane.export-all"), "version" (1), counts, and the series in the order of
/// the list, each with its status, files and, where it was worked on, its own report as of `Export`.
KORVANE_KIT std::string ToJson(const ExportAllReport& report);

/// The lines are a table, one or more for each series, and a line of counts.
KORVANE_KIT Outcome OutcomeOf(const ExportAllReport& report);

}  // namespace korvane
