#include "Batch.h"
#include "PlanFolder.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Watch.h"
#include "../export/ExportAll.h"

#include "../../platform/FolderLock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace fs = std::filesystem;

namespace korvane {

namespace {

using Status = BatchTask::Status;

constexpr int kMostAttempts = 2;

class ShardRun {
public:
    ShardRun(const std::string& plan, std::size_t shard, const BatchRunOptions& options)
        : m_Plan(plan), m_Shard(shard), m_Options(options), m_Watch(options.watcher), m_Head(m_Plan.ReadHead()) {
        if (shard < 1 || shard > m_Head.shards) {
            throw Error(ErrorKind::NotFound, "there is no shard " + std::to_string(shard) + ": the plan has 1 to " +
                                                 std::to_string(m_Head.shards));
        }
        Lock();
        m_Tasks = m_Plan.ReadShard(shard, m_Attempts);
        m_Run.shard = shard;
    }

    BatchRun Do() {
        TaskProgress progress(m_Watch, "converting series", static_cast<std::int64_t>(m_Tasks.size()));
        // What has ended a process comes last, so that it keeps nobody else waiting should it do so again.
        for (const bool again : {false, true}) {
            for (std::size_t i = 0; i < m_Tasks.size(); ++i) {
                if ((m_Attempts[i] > 0) != again) continue;
                Take(m_Tasks[i], m_Attempts[i]);
                progress.Step();
            }
        }
        return m_Run;
    }

private:
    /// A folder that stays: whoever removed it could remove the lock of somebody who has just taken it.
    void Lock() {
        const std::string lock = m_Plan.LockOf(m_Shard);
        MakeDirectory(lock);
        if (m_Lock.TakeAlone(lock)) return;
        if (errno == EBUSY) {
            throw Error(ErrorKind::Refused,
                        "another process works on shard " + std::to_string(m_Shard) + " of the plan");
        }
        throw Error(ErrorKind::Disk, "cannot open " + lock + ": " + std::strerror(errno)).InFile(lock);
    }

    void Take(BatchTask& task, int attempts) {
        if (task.status == Status::Written && AreThere(task.outputs)) {
            ++m_Run.whole;
        } else if (task.status == Status::Refused && !m_Options.retry) {
            ++m_Run.refused;
        } else if (task.status == Status::Crashed && !m_Options.retry) {
            ++m_Run.crashed;
        } else if (task.status == Status::Begun && attempts >= kMostAttempts && !m_Options.retry) {
            task.status = Status::Crashed;
            task.why = "the process that worked on it ended, " + std::to_string(attempts) + " times";
            m_Plan.AppendEnd(m_Shard, task);
            ++m_Run.crashed;
        } else {
            Convert(task);
            ++(task.status == Status::Written ? m_Run.written : m_Run.refused);
        }
    }

    static bool AreThere(const std::vector<ExportOutput>& outputs) {
        return std::all_of(outputs.begin(), outputs.end(), [](const ExportOutput& output) {
            std::error_code error;
            return fs::file_size(PathFromText(output.name), error) == output.size && !error;
        });
    }

    void Convert(BatchTask& task) {
        // An earlier run may have ended between writing files and saying so: then those that are there are the task's.
        const bool isOwn = task.status != Status::Open && task.status != Status::Refused;
        RemoveParts(task);
        const auto began = std::chrono::steady_clock::now();
        m_Plan.AppendBegun(m_Shard, task);
        const auto end = [&](Status status, std::string why) {
            task.status = status;
            task.why = std::move(why);
            task.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
            m_Plan.AppendEnd(m_Shard, task);
        };
        task.warnings.clear();
        try {
            const std::string why = Export(task, isOwn);
            end(why.empty() ? Status::Written : Status::Refused, why);
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) {
                m_Plan.AppendStopped(m_Shard, task);
                throw;
            }
            end(Status::Refused, error.what());
        } catch (const std::bad_alloc&) {
            end(Status::Refused, "out of memory");
        }
    }

    /// What a refused task has written of itself would be in its own way.
    static void RemoveParts(BatchTask& task) {
        if (task.status == Status::Refused) {
            for (const ExportOutput& output : task.outputs) RemoveFile(output.name);
        }
        task.outputs.clear();
    }

    /// Why not all of it was written; "" when all was.
    std::string Export(BatchTask& task, bool isOwn) const {
        StopOnly watcher(m_Watch);
        const Found found = Find(task.files, {.jobs = m_Options.jobs, .watcher = &watcher});
        m_Watch.StopIfAsked();  // a file whose opening was broken off counts as one that cannot be read
        if (!found.GetUnreadable().empty()) return found.GetUnreadable().front().text;
        std::size_t images = 0;
        for (const Series& series : found.GetSeries()) images += series.CountImages();
        if (images != task.images) {
            return "its files have " + std::to_string(images) + " images, and had " + std::to_string(task.images) +
                   " when it was planned";
        }
        ExportAllOptions options;
        options.name = PatternOf(task.name);
        options.overwrite = isOwn;
        options.each.compress = m_Head.options.compress;
        options.each.sidecar = m_Head.options.sidecar;
        options.each.irregular = m_Head.options.irregular;
        options.jobs = m_Options.jobs;
        options.watcher = &watcher;
        const ExportAllReport report = ExportAll(found, m_Head.options.format, m_Head.output, options);
        std::string why;
        for (const ExportedSeries& series : report.series) {
            task.outputs.insert(task.outputs.end(), series.outputs.begin(), series.outputs.end());
            task.warnings.insert(task.warnings.end(), series.report.warnings.begin(), series.report.warnings.end());
            if (series.status == ExportedSeries::Status::Refused) why += (why.empty() ? "" : "; ") + series.why;
        }
        return why;
    }

    /// Tasks within the shard's own do not nest; what they find goes into the results.
    class StopOnly : public Watcher {
    public:
        explicit StopOnly(const Watch& watch) : m_Watch(watch) {}
        bool IsStopped() noexcept override { return m_Watch.IsStopped(); }

    private:
        Watch m_Watch;
    };

    static std::string PatternOf(const std::string& name) {
        std::string pattern;
        for (const char c : name) pattern += c == '%' ? "%%" : std::string(1, c);
        return pattern;
    }

    PlanFolder m_Plan;
    std::size_t m_Shard;
    const BatchRunOptions& m_Options;
    Watch m_Watch;
    PlanHead m_Head;
    platform::FolderLock m_Lock;
    std::vector<BatchTask> m_Tasks;
    std::vector<int> m_Attempts;
    BatchRun m_Run;
};

}  // namespace

BatchRun RunShard(const std::string& plan, std::size_t shard, const BatchRunOptions& options) {
    return ShardRun(plan, shard, options).Do();
}

}  // namespace korvane
