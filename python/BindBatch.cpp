// Archives in shares: what korvane/batch.py is made of.
#include "Bind.h"
#include "Calls.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace {

py::object Plan(const py::object& paths, const py::object& plan, const py::object& out, std::size_t shards,
                const std::string& format, const std::string& name, bool compress, bool sidecar,
                const std::string& irregular, unsigned jobs, const py::object& progress) {
    const korvane::BatchPlanOptions options{.shards = shards,
                                            .format = format,
                                            .name = name,
                                            .compress = compress,
                                            .sidecar = sidecar,
                                            .irregular = Choose(korvane::PolicyWords(), irregular, "irregular"),
                                            .jobs = jobs};
    const std::string folder = PathOf(plan), output = PathOf(out);
    const korvane::BatchPlan made = Run(progress, [&, all = PathsOf(paths)](korvane::Watcher& watcher) {
        auto own = options;
        own.watcher = &watcher;
        return korvane::PlanBatch(all, folder, output, own);
    });
    return py::dict(py::arg("shards") = made.shards, py::arg("tasks") = made.tasks, py::arg("bytes") = made.bytes,
                    py::arg("largest") = made.largest, py::arg("without_images") = made.withoutImages,
                    py::arg("unreadable") = made.unreadable);
}

py::object RunOne(const py::object& plan, std::size_t shard, bool retry, unsigned jobs, const py::object& progress) {
    const std::string folder = PathOf(plan);
    const korvane::BatchRun run = Run(progress, [&](korvane::Watcher& watcher) {
        return korvane::RunShard(folder, shard, {.retry = retry, .jobs = jobs, .watcher = &watcher});
    });
    return py::dict(py::arg("written") = run.written, py::arg("whole") = run.whole, py::arg("refused") = run.refused,
                    py::arg("crashed") = run.crashed);
}

void RunAll(const py::object& plan, const std::vector<std::size_t>& shards, const std::vector<std::string>& command,
            const std::vector<std::string>& first, const std::map<std::string, std::string>& variables, unsigned jobs,
            const py::object& progress) {
    const std::string folder = PathOf(plan);
    Run(progress, [&](korvane::Watcher& watcher) {
        return korvane::RunShards(folder, shards,
                                  {.command = command,
                                   .firstArguments = first,
                                   .variables = {variables.begin(), variables.end()},
                                   .jobs = jobs,
                                   .watcher = &watcher});
    });
}

}  // namespace

void BindBatch(py::module_& module) {
    module.def("_plan_batch", Plan);
    module.def("_run_shard", RunOne);
    module.def("_run_shards", RunAll);
    module.def("_report_batch",
               [](const py::object& plan) { return FromJson(korvane::ToJson(korvane::ReportBatch(PathOf(plan)))); });
    module.def("_batch_table",
               [](const py::object& plan) { return korvane::ToCsv(korvane::ReportBatch(PathOf(plan))); });
}
