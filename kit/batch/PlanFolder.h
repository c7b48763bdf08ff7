// The files of a plan: plan.json, shard-NNNN.json with the tasks of a shard, results-NNNN.jsonl with what became of them.
#pragma once

#include "../core/Watch.h"
#include "Batch.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace korvane {

/// What plan.json says.
struct PlanHead {
    std::string output{};
    std::size_t shards = 0;
    std::size_t tasks = 0;
    BatchPlanOptions options{};
};

/// Reads and writes the files of a plan. Results are lines that are appended, one when a task begins and one when it ends,
/// so that a process that is killed leaves what was done before it. A line that was cut by that is left out when they
/// are read.
class PlanFolder {
public:
    explicit PlanFolder(std::string folder) : m_Folder(std::move(folder)) {}

    bool IsThere() const;
    std::string LockOf(std::size_t shard) const { return NameOf("shard", shard, ".lock"); }

    /// The shards first, then the head, which makes them a plan. Throw `Error`.
    void Write(const PlanHead& head, const std::vector<std::vector<BatchTask>>& shards, const Watch& watch) const;
    PlanHead ReadHead() const;
    /// With what is known of the tasks by their results. `attempts`: how often each was begun since it ended last.
    std::vector<BatchTask> ReadShard(std::size_t shard, std::vector<int>& attempts) const;

    void AppendBegun(std::size_t shard, const BatchTask& task) const;
    /// The task begun last was stopped, which does not count as the end of a process.
    void AppendStopped(std::size_t shard, const BatchTask& task) const;
    void AppendEnd(std::size_t shard, const BatchTask& task) const;

private:
    std::string NameOf(const char* kind, std::size_t shard, const char* ending) const;
    nlohmann::json Read(const std::string& path, const char* schema) const;
    void Append(std::size_t shard, const nlohmann::ordered_json& line) const;

    std::string m_Folder;
};

}  // namespace korvane
