#include "PlanFolder.h"

#include "../core/Error.h"
#include "../core/JsonText.h"
#include "../core/Paths.h"

#include "../../platform/ReplacingFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <unordered_map>
#include <utility>

namespace fs = std::filesystem;

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr const char* kPlan = "korvane.batch-plan";
constexpr const char* kShard = "korvane.batch-shard";
constexpr const char* kStopped = "stopped";

Json JsonOf(const BatchTask& task) {
    Json json;
    json["task"] = task.number;
    json["uid"] = JsonText(task.uid);
    json["seriesNumber"] = task.series;
    json["description"] = JsonText(task.description);
    json["images"] = task.images;
    json["bytes"] = task.bytes;
    json["name"] = task.name;
    json["files"] = task.files;
    return json;
}

BatchTask TaskOf(const nlohmann::json& json, std::size_t shard) {
    BatchTask task;
    task.number = json.at("task");
    task.shard = shard;
    task.uid = json.at("uid");
    task.series = json.at("seriesNumber");
    task.description = json.at("description");
    task.images = json.at("images");
    task.bytes = json.at("bytes");
    task.name = json.at("name");
    task.files = json.at("files");
    return task;
}

/// A line of results, into what is known of its task.
void Take(const nlohmann::json& line, BatchTask& task, int& attempts) {
    const std::string status = line.at("status");
    if (status == WordOf(BatchTask::Status::Begun)) {
        ++attempts;
        task.status = BatchTask::Status::Begun;
        return;
    }
    attempts = 0;
    if (status == kStopped) return;
    for (const BatchTask::Status ended :
         {BatchTask::Status::Written, BatchTask::Status::Refused, BatchTask::Status::Crashed}) {
        if (status == WordOf(ended)) task.status = ended;
    }
    task.why = line.value("why", "");
    task.seconds = line.value("seconds", 0.0);
    task.warnings = line.value("warnings", std::vector<std::string>());
    task.outputs.clear();
    for (const nlohmann::json& output : line.at("outputs")) {
        task.outputs.push_back({.name = output.at("file"), .size = output.at("size")});
    }
}

void WriteWhole(const std::string& path, const Json& json) {
    std::string text;
    try {
        text = json.dump(1) + '\n';
    } catch (const nlohmann::json::exception&) {
        throw Error(ErrorKind::Unsupported, "a path that is not UTF-8 cannot stand in a plan: " + path).InFile(path);
    }
    platform::ReplacingFile file;
    if (file.Open(path) && file.Write(text.data(), text.size()) && file.Commit()) return;
    throw Error(ErrorKind::Disk, "cannot write " + path + ": " + std::strerror(errno)).InFile(path);
}

}  // namespace

bool PlanFolder::IsThere() const {
    std::error_code error;
    return fs::exists(PathFromText(m_Folder + "/plan.json"), error);
}

std::string PlanFolder::NameOf(const char* kind, std::size_t shard, const char* ending) const {
    char number[24];
    std::snprintf(number, sizeof number, "-%04llu", static_cast<unsigned long long>(shard));
    return m_Folder + '/' + kind + number + ending;
}

void PlanFolder::Write(const PlanHead& head, const std::vector<std::vector<BatchTask>>& shards,
                       const Watch& watch) const {
    MakeDirectory(m_Folder);
    for (std::size_t i = 0; i < shards.size(); ++i) {
        watch.StopIfAsked();
        Json json{{"schema", kShard}, {"version", kVersion}, {"shard", i + 1}, {"tasks", Json::array()}};
        for (const BatchTask& task : shards[i]) json["tasks"].push_back(JsonOf(task));
        WriteWhole(NameOf("shard", i + 1, ".json"), json);
    }
    Json json{{"schema", kPlan},
              {"version", kVersion},
              {"output", head.output},
              {"shards", head.shards},
              {"tasks", head.tasks},
              {"format", head.options.format},
              {"name", head.options.name},
              {"compress", head.options.compress},
              {"sidecar", head.options.sidecar},
              {"irregular", WordOf(head.options.irregular)}};
    WriteWhole(m_Folder + "/plan.json", json);
}

nlohmann::json PlanFolder::Read(const std::string& path, const char* schema) const {
    std::ifstream file(PathFromText(path), std::ios::binary);
    if (!file) throw Error(ErrorKind::NotFound, "there is no " + path).InFile(path);
    nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
    if (file.bad()) throw Error(ErrorKind::Disk, "cannot read " + path).InFile(path);
    if (!json.is_object() || json.value("schema", nlohmann::json()) != schema || json.value("version", 0) != kVersion) {
        throw Error(ErrorKind::Damaged, path + ": not of a plan that this version can read").InFile(path);
    }
    return json;
}

PlanHead PlanFolder::ReadHead() const {
    const std::string path = m_Folder + "/plan.json";
    const nlohmann::json json = Read(path, kPlan);
    try {
        PlanHead head{json.at("output"), json.at("shards"), json.at("tasks")};
        head.options.format = json.at("format");
        head.options.name = json.at("name");
        head.options.compress = json.at("compress");
        head.options.sidecar = json.at("sidecar");
        head.options.irregular = PolicyWords().at(json.at("irregular"));
        return head;
    } catch (const std::exception& error) {
        throw Error(ErrorKind::Damaged, path + ": " + error.what()).InFile(path);
    }
}

std::vector<BatchTask> PlanFolder::ReadShard(std::size_t shard, std::vector<int>& attempts) const {
    const std::string path = NameOf("shard", shard, ".json");
    const nlohmann::json json = Read(path, kShard);
    std::vector<BatchTask> tasks;
    try {
        for (const nlohmann::json& task : json.at("tasks")) tasks.push_back(TaskOf(task, shard));
    } catch (const std::exception& error) {
        throw Error(ErrorKind::Damaged, path + ": " + error.what()).InFile(path);
    }
    attempts.assign(tasks.size(), 0);
    std::unordered_map<std::size_t, std::size_t> places;  // of tasks, by their numbers
    for (std::size_t i = 0; i < tasks.size(); ++i) places.emplace(tasks[i].number, i);
    std::ifstream results(PathFromText(NameOf("results", shard, ".jsonl")), std::ios::binary);
    for (std::string text; std::getline(results, text);) {
        const nlohmann::json line = nlohmann::json::parse(text, nullptr, false);
        try {
            const auto place = places.find(line.at("task").get<std::size_t>());
            if (place != places.end()) Take(line, tasks[place->second], attempts[place->second]);
        } catch (const nlohmann::json::exception&) {  // cut by the end of a process
        }
    }
    return tasks;
}

void PlanFolder::AppendBegun(std::size_t shard, const BatchTask& task) const {
    Append(shard, {{"task", task.number}, {"status", WordOf(BatchTask::Status::Begun)}});
}

void PlanFolder::AppendStopped(std::size_t shard, const BatchTask& task) const {
    Append(shard, {{"task", task.number}, {"status", kStopped}});
}

void PlanFolder::AppendEnd(std::size_t shard, const BatchTask& task) const {
    Json line{{"task", task.number}, {"status", WordOf(task.status)}, {"seconds", task.seconds}};
    if (!task.why.empty()) line["why"] = JsonText(task.why);
    line["warnings"] = JsonTexts(task.warnings);
    line["outputs"] = Json::array();
    for (const ExportOutput& output : task.outputs) {
        line["outputs"].push_back({{"file", JsonText(output.name)}, {"size", output.size}});
    }
    Append(shard, line);
}

/// A line break ahead ends a line that an earlier process has left unfinished.
void PlanFolder::Append(std::size_t shard, const Json& line) const {
    const std::string path = NameOf("results", shard, ".jsonl");
    std::ofstream file(PathFromText(path), std::ios::binary | std::ios::app);
    file << '\n' + line.dump() + '\n' << std::flush;
    if (!file) throw Error(ErrorKind::Disk, "cannot write " + path).InFile(path);
}

}  // namespace korvane
