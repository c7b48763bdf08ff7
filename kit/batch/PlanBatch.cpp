#include "Batch.h"
#include "PlanFolder.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../export/ExportFormat.h"
#include "../export/NamePattern.h"
#include "../study/Find.h"
#include "../study/FoundFiles.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <queue>
#include <set>
#include <utility>

namespace fs = std::filesystem;

namespace korvane {

namespace {

std::string Absolute(const std::string& path) {
    return TextFromPath(fs::absolute(PathFromText(path)).lexically_normal());
}

/// The series of one UID, which is converted as a whole: its images may be told apart by orientation, matrix and the like.
class TaskMaker {
public:
    TaskMaker(const Found& found, const std::string& name) : m_Found(found), m_Pattern(name) {
        if (found.GetFiles().unpacked) {
            throw Error(ErrorKind::Unsupported,
                        "archives and streams cannot be planned: whoever works on a plan needs files");
        }
    }

    std::vector<BatchTask> Make(BatchPlan& plan) {
        std::map<std::string, std::vector<const Series*>> byUid;
        std::vector<std::string> order;
        for (const Series& series : m_Found.GetSeries()) {
            if (!series.HasPixels()) {
                ++plan.withoutImages;
                continue;
            }
            if (byUid[series.GetUid()].empty()) order.push_back(series.GetUid());
            byUid[series.GetUid()].push_back(&series);
        }
        std::vector<BatchTask> tasks;
        for (const std::string& uid : order) {
            tasks.push_back(Task(byUid[uid]));
            tasks.back().number = tasks.size();
        }
        return tasks;
    }

private:
    BatchTask Task(const std::vector<const Series*>& all) {
        BatchTask task;
        const Series& first = *all.front();
        task.uid = first.GetUid();
        task.series = first.GetNumber();
        task.description = first.GetDescription();
        std::set<std::string> files;
        for (const Series* const series : all) {
            task.images += series->CountImages();
            for (const SeriesSlice& slice : series->GetSlices()) files.insert(slice.path);
        }
        for (const std::string& file : files) {
            std::error_code error;
            const std::uintmax_t size = fs::file_size(PathFromText(file), error);
            if (!error) task.bytes += size;
            task.files.push_back(Absolute(file));
        }
        task.name = m_Names.Take(m_Pattern.MakeName(first), {""});
        return task;
    }

    const Found& m_Found;
    NamePattern m_Pattern;
    NamesTaken m_Names;
};

/// The largest task first, each into the shard that has least so far. A task counts some bytes even where it has none.
std::vector<std::vector<BatchTask>> ShareOut(std::vector<BatchTask> tasks, std::size_t shards) {
    constexpr std::uint64_t kEach = 65536;
    std::vector<std::vector<BatchTask>> shared(shards);
    std::stable_sort(tasks.begin(), tasks.end(),
                     [](const BatchTask& a, const BatchTask& b) { return a.bytes > b.bytes; });
    using Load = std::pair<std::uint64_t, std::size_t>;
    std::priority_queue<Load, std::vector<Load>, std::greater<>> loads;
    for (std::size_t i = 0; i < shards; ++i) loads.emplace(0, i);
    for (BatchTask& task : tasks) {
        const auto [load, least] = loads.top();
        loads.pop();
        loads.emplace(load + task.bytes + kEach, least);
        shared[least].push_back(std::move(task));
    }
    return shared;
}

std::uint64_t BytesOf(const std::vector<BatchTask>& tasks) {
    return std::accumulate(tasks.begin(), tasks.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const BatchTask& task) { return sum + task.bytes; });
}

}  // namespace

BatchPlan PlanBatch(const std::vector<std::string>& paths, const std::string& plan, const std::string& output,
                    const BatchPlanOptions& options) {
    if (ExportFormat::Find(options.format) == nullptr)
        throw Error(ErrorKind::WrongArgument, "there is no format \"" + options.format + '"');
    if (output.empty()) throw Error(ErrorKind::WrongArgument, "a plan needs a folder for its outputs");
    const PlanFolder folder(plan);
    if (folder.IsThere()) {
        throw Error(ErrorKind::WrongArgument, plan + " holds a plan already: run it, or name another folder")
            .InFile(plan);
    }
    const Found found = Find(paths, {.jobs = options.jobs, .watcher = options.watcher});
    BatchPlan result;
    result.unreadable = found.GetUnreadable();
    std::vector<BatchTask> tasks = TaskMaker(found, options.name).Make(result);
    if (tasks.empty())
        throw Error(ErrorKind::NotFound, paths.front() + ": no series with images").InFile(paths.front());
    result.tasks = tasks.size();
    result.bytes = BytesOf(tasks);
    result.shards = options.shards == 0 ? tasks.size() : std::min(options.shards, tasks.size());
    const auto shards = ShareOut(std::move(tasks), result.shards);
    for (const std::vector<BatchTask>& shard : shards) result.largest = std::max(result.largest, BytesOf(shard));
    folder.Write({Absolute(output), result.shards, result.tasks, options}, shards, options.watcher);
    return result;
}

}  // namespace korvane
