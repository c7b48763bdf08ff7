// korvane batch: an archive converted in shares, on one machine or many.
#include "Console.h"
#include "SeriesOptions.h"
#include "Verbs.h"
#include "terminal/Terminal.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    std::vector<std::string> paths;
    std::string plan;
    std::string output;
    BatchPlanOptions options;
    std::size_t shard = 0;
    BatchRunOptions run;
    unsigned workers = 0;
    bool inside = false;
    bool json = false;
    bool csv = false;
};

void Plan(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    arguments.plan = arguments.paths.back();
    arguments.paths.pop_back();
    if (arguments.output.empty()) arguments.output = arguments.plan + "/output";
    Conclude(OutcomeOf(PlanBatch(arguments.paths, arguments.plan, arguments.output, arguments.options)));
}

/// In processes of this program, which are called with --inside, so that a series that ends one keeps no other back.
void RunOutside(const Arguments& arguments, Watcher& watcher) {
    BatchWorkers workers{.command = {platform::GetOwnProgram(), "batch", "run", arguments.plan},
                         .jobs = arguments.workers,
                         .watcher = &watcher};
    const std::string jobs = std::to_string(arguments.run.jobs);
    workers.command.insert(workers.command.end(), {"--inside", "--jobs", jobs, "--shard"});
    if (arguments.run.retry) workers.firstArguments = {"--retry"};
    std::vector<std::size_t> shards;
    if (arguments.shard != 0) shards.push_back(arguments.shard);
    BatchReport report = RunShards(arguments.plan, shards, workers);
    if (arguments.shard != 0) {
        std::erase_if(report.tasks, [&](const BatchTask& task) { return task.shard != arguments.shard; });
    }
    Conclude({.failure = OutcomeOf(report).failure});
}

void Run(Arguments& arguments) {
    ConsoleWatcher watcher;
    if (!arguments.inside) return RunOutside(arguments, watcher);
    arguments.run.watcher = &watcher;
    Conclude(OutcomeOf(RunShard(arguments.plan, arguments.shard, arguments.run)));
}

void Report(const Arguments& arguments) {
    const BatchReport report = ReportBatch(arguments.plan);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : arguments.csv ? ToCsv(report) : "");
}

void AddPlan(CLI::App& batch, const std::shared_ptr<Arguments>& arguments) {
    CLI::App* const verb = batch.add_subcommand("plan", "Find the series under PATHs and share them out");
    BatchPlanOptions& options = arguments->options;
    verb->add_option("PATH", arguments->paths, "Folders or files, then the plan's folder, which is made")
        ->required()
        ->expected(2, -1);
    verb->add_option("--to", arguments->output, "Folder for the outputs; without it PLAN/output");
    verb->add_option("--shards", options.shards, "Shards of about the same bytes; 0: one for each series")
        ->capture_default_str();
    verb->add_option("--format", options.format, "As of \"korvane export\"")
        ->check(CLI::IsMember(GetExportFormats()))
        ->capture_default_str();
    verb->add_option("--name", options.name, "Pattern of the outputs' names, as of \"korvane export --all\"")
        ->capture_default_str();
    verb->add_flag("--gzip", options.compress, "Compress, where the format can");
    verb->add_flag("--sidecar", options.sidecar, "JSON, b-values and directions beside each file");
    AddPolicyOption(*verb, options.irregular, "As of \"korvane export\"");
    verb->add_option("--jobs", options.jobs, "Threads; 0: one for each core")->capture_default_str();
    verb->callback([arguments] { Plan(*arguments); });
}

void AddRun(CLI::App& batch, const std::shared_ptr<Arguments>& arguments) {
    CLI::App* const verb =
        batch.add_subcommand("run", "Convert the series of a shard, or of all; goes on where an earlier run was ended");
    verb->add_option("PLAN", arguments->plan, "The plan's folder")->required();
    CLI::Option* const shard =
        verb->add_option("--shard", arguments->shard, "Which one, from 1 (all)")->check(CLI::PositiveNumber);
    verb->add_option("--workers", arguments->workers,
                     "Shards at once, each in a process of its own (one for each core)")
        ->excludes(shard);
    verb->add_flag("--retry", arguments->run.retry, "Try refused and crashed series once more");
    verb->add_option("--jobs", arguments->run.jobs, "Threads of a process; 0: one for each core")
        ->capture_default_str();
    verb->add_flag("--inside", arguments->inside, "Work in this process, not in one of its own")
        ->group("")
        ->needs(shard);
    verb->callback([arguments] { Run(*arguments); });
}

void AddReport(CLI::App& batch, const std::shared_ptr<Arguments>& arguments) {
    CLI::App* const verb = batch.add_subcommand("report", "Tell what came of each series");
    verb->add_option("PLAN", arguments->plan, "The plan's folder")->required();
    CLI::Option* const json = verb->add_flag("--json", arguments->json, "As JSON");
    verb->add_flag("--csv", arguments->csv, "As a table (RFC 4180)")->excludes(json);
    verb->callback([arguments] { Report(*arguments); });
}

}  // namespace

void AddBatchVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("batch", "Convert an archive in shares, on many machines");
    verb->require_subcommand(1);
    const auto arguments = std::make_shared<Arguments>();
    AddPlan(*verb, arguments);
    AddRun(*verb, arguments);
    AddReport(*verb, arguments);
}
