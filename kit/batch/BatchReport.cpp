#include "Batch.h"
#include "PlanFolder.h"

#include "../core/JsonText.h"

#include <algorithm>
#include <cstdio>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;
using Status = BatchTask::Status;

constexpr Status kAll[] = {Status::Written, Status::Refused, Status::Crashed, Status::Begun, Status::Open};

std::string NamesOf(const std::vector<ExportOutput>& outputs) {
    std::string names;
    for (const ExportOutput& output : outputs) names += (names.empty() ? "" : "; ") + output.name;
    return names;
}

std::string SecondsOf(const BatchTask& task) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", task.seconds);
    return text;
}

/// A field of RFC 4180. A sign that a spreadsheet would take for a formula gets a quote ahead.
std::string Field(std::string text) {
    if (!text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos) text.insert(0, 1, '\'');
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + '"';
}

Json JsonOf(const BatchTask& task) {
    Json json{{"task", task.number},       {"shard", task.shard},         {"status", WordOf(task.status)},
              {"uid", JsonText(task.uid)}, {"seriesNumber", task.series}, {"description", JsonText(task.description)},
              {"images", task.images},     {"bytes", task.bytes},         {"name", JsonText(task.name)},
              {"seconds", task.seconds}};
    if (!task.why.empty()) json["why"] = JsonText(task.why);
    json["warnings"] = JsonTexts(task.warnings);
    json["outputs"] = Json::array();
    for (const ExportOutput& output : task.outputs)
        json["outputs"].push_back({{"file", JsonText(output.name)}, {"size", output.size}});
    return json;
}

}  // namespace

const char* WordOf(BatchTask::Status status) {
    switch (status) {
    case Status::Open: return "open";
    case Status::Begun: return "begun";
    case Status::Written: return "written";
    case Status::Refused: return "refused";
    case Status::Crashed: return "crashed";
    }
    return "open";
}

std::size_t BatchReport::Count(Status status) const {
    return static_cast<std::size_t>(
        std::count_if(tasks.begin(), tasks.end(), [&](const BatchTask& task) { return task.status == status; }));
}

BatchReport ReportBatch(const std::string& plan) {
    const PlanFolder folder(plan);
    const PlanHead head = folder.ReadHead();
    BatchReport report{head.output, {}};
    for (std::size_t shard = 1; shard <= head.shards; ++shard) {
        std::vector<int> attempts;
        for (BatchTask& task : folder.ReadShard(shard, attempts)) {
            task.files.clear();
            report.tasks.push_back(std::move(task));
        }
    }
    std::sort(report.tasks.begin(), report.tasks.end(),
              [](const BatchTask& a, const BatchTask& b) { return a.number < b.number; });
    return report;
}

std::string ToJson(const BatchReport& report) {
    Json json{{"schema", "korvane.batch"}, {"version", 1}, {"output", JsonText(report.output)}};
    for (const Status status : kAll) json[WordOf(status)] = report.Count(status);
    json["tasks"] = Json::array();
    for (const BatchTask& task : report.tasks) json["tasks"].push_back(JsonOf(task));
    return json.dump(1) + '\n';
}

std::string ToCsv(const BatchReport& report) {
    std::string table = "task,shard,status,series,description,uid,images,bytes,seconds,files,why\r\n";
    for (const BatchTask& task : report.tasks) {
        const std::string fields[] = {std::to_string(task.number),
                                      std::to_string(task.shard),
                                      WordOf(task.status),
                                      std::to_string(task.series),
                                      Field(task.description),
                                      task.uid,
                                      std::to_string(task.images),
                                      std::to_string(task.bytes),
                                      SecondsOf(task),
                                      Field(NamesOf(task.outputs)),
                                      Field(task.why)};
        for (const std::string& field : fields) table += (&field == fields ? "" : ",") + field;
        table += "\r\n";
    }
    return table;
}

Outcome OutcomeOf(const BatchPlan& plan) {
    char text[160];
    std::snprintf(text, sizeof text,
                  "%llu series in %llu shards, %.1f MB, at most %.1f MB a shard; %llu without images left out",
                  static_cast<unsigned long long>(plan.tasks), static_cast<unsigned long long>(plan.shards),
                  static_cast<double>(plan.bytes) / 1e6, static_cast<double>(plan.largest) / 1e6,
                  static_cast<unsigned long long>(plan.withoutImages));
    Outcome outcome{.lines = {text}};
    for (const Finding& finding : plan.unreadable) outcome.faults.push_back(finding.text);
    if (!plan.unreadable.empty()) {
        outcome.failure.emplace(ErrorKind::Damaged,
                                std::to_string(plan.unreadable.size()) + " files or folders not read");
    }
    return outcome;
}

Outcome OutcomeOf(const BatchRun& run) {
    Outcome outcome{.lines = {"shard " + std::to_string(run.shard) + ": " + std::to_string(run.written) +
                              " series written, " + std::to_string(run.whole) + " done before, " +
                              std::to_string(run.refused) + " refused, " + std::to_string(run.crashed) + " crashed"}};
    const std::size_t failed = run.refused + run.crashed;
    if (failed > 0)
        outcome.failure.emplace(ErrorKind::Damaged,
                                std::to_string(failed) + " series not written; the report says why");
    return outcome;
}

Outcome OutcomeOf(const BatchReport& report) {
    Outcome outcome;
    for (const BatchTask& task : report.tasks) {
        if (task.status == Status::Written || task.status == Status::Open) continue;
        outcome.lines.push_back("task " + std::to_string(task.number) + ", series " + std::to_string(task.series) +
                                " \"" + task.description + "\": " + WordOf(task.status) +
                                (task.why.empty() ? "" : ": " + task.why));
    }
    std::string counts = std::to_string(report.tasks.size()) + " series";
    for (const Status status : kAll) {
        const std::size_t count = report.Count(status);
        if (count != 0) counts += ", " + std::to_string(count) + ' ' + WordOf(status);
    }
    outcome.lines.push_back(counts);
    if (!report.IsWhole()) outcome.failure.emplace(ErrorKind::Damaged, "not all series are written");
    return outcome;
}

}  // namespace korvane
