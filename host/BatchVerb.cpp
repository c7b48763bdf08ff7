// korvane batch: an archive converted in shares, on one machine or many.
#include "Console.h"
#include "Verbs.h"
#include "terminal/ChildProgram.h"

#include <CLI/CLI.hpp>

#include <cstdio>
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
    const BatchPlan plan = PlanBatch(arguments.paths, arguments.plan, arguments.output, arguments.options);
    for (const Finding& finding : plan.unreadable) Warn(finding.text);
    std::printf("%zu series in %zu shards, %.1f MB, at most %.1f MB a shard; %zu without images left out\n", plan.tasks,
                plan.shards, static_cast<double>(plan.bytes) / 1e6, static_cast<double>(plan.largest) / 1e6,
                plan.withoutImages);
    if (!plan.unreadable.empty())
        throw Error(ErrorKind::Damaged, std::to_string(plan.unreadable.size()) + " files or folders not read");
}

void RunInside(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.run.watcher = &watcher;
    const BatchRun run = RunShard(arguments.plan, arguments.shard, arguments.run);
    std::printf("shard %zu: %zu series written, %zu done before, %zu refused, %zu crashed\n", arguments.shard,
                run.written, run.whole, run.refused, run.crashed);
    const std::size_t failed = run.refused + run.crashed;
    if (failed != 0)
        throw Error(ErrorKind::Damaged,
                    std::to_string(failed) + " series not written; \"korvane batch report\" says why");
}

/// The work is done by a child: a series that ends its process is noted, and another child goes on with the rest.
void Run(Arguments& arguments) {
    if (arguments.inside) {
        RunInside(arguments);
        return;
    }
    std::vector<std::string> words{"batch",   "run", arguments.plan, "--shard", std::to_string(arguments.shard),
                                   "--inside"};
    if (arguments.run.jobs != 0) words.insert(words.end(), {"--jobs", std::to_string(arguments.run.jobs)});
    if (arguments.run.retry) words.emplace_back("--retry");
    // Each series ends two processes at most; what ends more of them is not a series.
    for (std::size_t left = 2 * ReportBatch(arguments.plan).tasks.size() + 2; left > 0; --left) {
        const std::optional<int> status = RunChild(words);
        StopIfInterrupted();
        if (status) std::exit(*status);
        Warn("the process that worked on shard " + std::to_string(arguments.shard) + " was ended; another one goes on");
        std::erase(words, "--retry");
    }
    throw Error(ErrorKind::Damaged, "the processes that worked on the shard were all ended");
}

void Report(const Arguments& arguments) {
    const BatchReport report = ReportBatch(arguments.plan);
    if (arguments.json) {
        std::fputs(ToJson(report).c_str(), stdout);
    } else if (arguments.csv) {
        std::fputs(ToCsv(report).c_str(), stdout);
    } else {
        for (const std::string& line : Describe(report)) std::printf("%s\n", Visible(line).c_str());
    }
    if (!report.IsWhole()) throw Error(ErrorKind::Damaged, "not all series are written");
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
    verb->add_option_function<std::string>(
            "--irregular", [arguments](const std::string& word) { arguments->options.irregular = PolicyOf(word); },
            "keep, reject, resample or split, as of \"korvane export\"")
        ->check(CLI::IsMember({"keep", "reject", "resample", "split"}));
    verb->add_option("--jobs", options.jobs, "Threads; 0: one for each core")->capture_default_str();
    verb->callback([arguments] { Plan(*arguments); });
}

void AddRun(CLI::App& batch, const std::shared_ptr<Arguments>& arguments) {
    CLI::App* const verb =
        batch.add_subcommand("run", "Convert the series of a shard; goes on where an earlier run was ended");
    verb->add_option("PLAN", arguments->plan, "The plan's folder")->required();
    verb->add_option("--shard", arguments->shard, "Which one, from 1")->required()->check(CLI::PositiveNumber);
    verb->add_flag("--retry", arguments->run.retry, "Try refused and crashed series once more");
    verb->add_option("--jobs", arguments->run.jobs, "Threads; 0: one for each core")->capture_default_str();
    verb->add_flag("--inside", arguments->inside, "Work in this process, not in one of its own")->group("");
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
