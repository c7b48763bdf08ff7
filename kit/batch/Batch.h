// An archive converted in shares, on several machines or one after the other.
#pragma once

#include "../core/ExportOutput.h"
#include "../core/KitExport.h"
#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "../export/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

/// How an archive is shared out, and how its series are exported.
struct BatchPlanOptions {
    std::size_t shards = 1;  ///< 0: one for each task
    std::string format = "nifti";
    std::string name = "%s_%d";  ///< of the outputs, as in `ExportAllOptions`
    bool compress = false;       ///< of `ExportOptions`, as the next two
    bool sidecar = false;
    Irregular irregular = Irregular::Keep;
    unsigned jobs = 0;  ///< threads; 0: one for each core
    Watcher* watcher = nullptr;
};

/// What a plan holds.
struct BatchPlan {
    std::size_t shards = 0;
    std::size_t tasks = 0;            ///< one for each Series Instance UID with images
    std::uint64_t bytes = 0;          ///< of all files
    std::uint64_t largest = 0;        ///< of the files of the largest shard
    std::size_t withoutImages = 0;    ///< series that are left out: reports, plans and the like
    std::vector<Finding> unreadable;  ///< files and folders that could not be read; a task may lack slices
};

/// Finds the series under `paths` and writes a plan for converting them into files below the folder `output`: a new folder
/// `plan` with plan.json and a file for each shard, the shards about equal in bytes. Every machine that works on a shard
/// must see `plan`, `output` and the paths under the same names. Nothing is converted yet. Archives cannot be planned.
/// Throws `Error`: `WrongArgument` where `plan` holds a plan already, `NotFound`, `Disk`, `Stopped`.
///
///     korvane::PlanBatch({"/archive"}, "/jobs/plan", "/jobs/nifti", {.shards = 16});
///     korvane::RunShard("/jobs/plan", 1);  // to 16, in any order, on any machine
///     std::cout << korvane::ToCsv(korvane::ReportBatch("/jobs/plan"));
KORVANE_KIT BatchPlan PlanBatch(const std::vector<std::string>& paths, const std::string& plan,
                                const std::string& output, const BatchPlanOptions& options = {});

struct BatchRunOptions {
    bool retry = false;  ///< tasks that were refused, or that ended their process, are tried once more
    unsigned jobs = 0;   ///< threads within a task; 0: one for each core
    Watcher* watcher = nullptr;
};

/// What became of the tasks of a shard in one run of it.
struct BatchRun {
    std::size_t shard = 0;
    std::size_t written = 0;
    std::size_t whole = 0;    ///< by an earlier run, and their files are there
    std::size_t refused = 0;  ///< by this run or an earlier one
    std::size_t crashed = 0;  ///< ended the process that worked on them, twice
};

/// Converts the tasks of a shard (from 1), one after the other, and notes in the plan's folder what became of each. A task
/// is written whole or not at all; one that fails is told in the report, and the others go on. Where an earlier run was
/// stopped or killed this one goes on. A task in which the process ended is tried once more after all the others; if
/// that ends the process again, it counts as crashed and is left out from then on. Throws `Error`: `NotFound` for a plan or
/// a shard that is not there, `Refused` while another process works on the shard, `Damaged`, `Disk`, `Stopped`.
KORVANE_KIT BatchRun RunShard(const std::string& plan, std::size_t shard, const BatchRunOptions& options = {});

/// One task of a plan.
struct BatchTask {
    enum class Status {
        Open,     ///< nobody has begun it
        Begun,    ///< somebody works on it, or was killed while doing so
        Written,  ///< its files are whole
        Refused,  ///< nothing of it was written, or not all: `why`
        Crashed,  ///< ended the process that worked on it, twice
    };

    std::size_t number = 0;  ///< in the plan, from 1
    std::size_t shard = 0;   ///< from 1
    std::string uid{};       ///< Series Instance UID
    int series = 0;          ///< Series Number
    std::string description{};
    std::size_t images = 0;
    std::uint64_t bytes = 0;  ///< of its files
    std::string name{};       ///< of its outputs, below the output folder, without extension
    std::vector<std::string> files{};

    Status status = Status::Open;
    std::string why{};
    double seconds = 0;  ///< that its last run took
    std::vector<std::string> warnings{};
    std::vector<ExportOutput> outputs{};
};

KORVANE_KIT const char* WordOf(BatchTask::Status status);

/// What has come of a plan so far. May be made while shards are worked on.
struct KORVANE_KIT BatchReport {
    std::string output{};            ///< the folder of the files
    std::vector<BatchTask> tasks{};  ///< by their numbers; `files` is empty

    std::size_t Count(BatchTask::Status status) const;
    /// All tasks are written.
    bool IsWhole() const { return Count(BatchTask::Status::Written) == tasks.size(); }
};

/// Throws `Error`: `NotFound` where there is no plan, `Damaged`, `Disk`.
KORVANE_KIT BatchReport ReportBatch(const std::string& plan);

/// Processes of this machine that work on shards for `RunShards`.
struct BatchWorkers {
    /// A program and its first arguments, which a shard's number is put behind. It calls `RunShard` and ends; its output and
    /// faults go where those of this process go.
    std::vector<std::string> command{};
    std::vector<std::string> firstArguments{};  ///< behind the number, of a shard's first process alone
    std::vector<std::pair<std::string, std::string>> variables{};  ///< of its environment, beside this process's
    unsigned jobs = 0;                                             ///< processes at once; 0: one for each core
    Watcher* watcher = nullptr;
};

/// Has shards worked on (none: all of the plan), each by a process of its own. Where one is ended, by a crash or by somebody,
/// the watcher is told, and another one goes on with its shard: so a series that ends processes keeps no other from being
/// converted. Returns when no process works any more; what came of the tasks is in the plan. Throws `Error` as
/// `ReportBatch`; `Disk` where no process can be started; `Stopped`, once all have been asked to end and did.
KORVANE_KIT BatchReport RunShards(const std::string& plan, const std::vector<std::size_t>& shards,
                                  const BatchWorkers& workers);

/// One JSON object with a line end: "schema" ("korvane.batch"), "version" (1), counts, and the tasks.
KORVANE_KIT std::string ToJson(const BatchReport& report);
/// A table (RFC 4180): a row of names, then one for each task.
KORVANE_KIT std::string ToCsv(const BatchReport& report);
KORVANE_KIT Outcome OutcomeOf(const BatchPlan& plan);
KORVANE_KIT Outcome OutcomeOf(const BatchRun& run);
/// The lines are the tasks that were begun and are not written, and one of counts.
KORVANE_KIT Outcome OutcomeOf(const BatchReport& report);

}  // namespace korvane
