// Shards worked on by processes of this machine.
#include "Batch.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../core/Watch.h"

#include "platform/Program.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <set>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr std::chrono::milliseconds kLook{10};
constexpr int kLooksForEnd = 100;

class Supervisor {
public:
    Supervisor(const std::string& plan, const std::vector<std::size_t>& shards, const BatchWorkers& workers)
        : m_Workers(workers), m_Watch(workers.watcher), m_Waiting(shards.begin(), shards.end()) {
        std::set<std::size_t> all;
        for (const BatchTask& task : ReportBatch(plan).tasks) {
            all.insert(task.shard);
            ++m_Left[task.shard];
        }
        if (shards.empty()) m_Waiting.assign(all.begin(), all.end());
        for (const std::size_t shard : shards) {
            if (!all.contains(shard)) {
                throw Error(ErrorKind::NotFound, "there is no shard " + std::to_string(shard) + ": the plan has 1 to " +
                                                     std::to_string(all.size()));
            }
        }
        // Each series ends two processes at most; what ends more of them is no series.
        for (auto& [shard, left] : m_Left) left = 2 * left + 2;
    }

    ~Supervisor() { EndAll(); }
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    void Run() {
        TaskProgress progress(m_Watch, "converting shards", static_cast<std::int64_t>(m_Waiting.size()));
        const unsigned jobs = CountJobs(m_Workers.jobs);
        while (!m_Waiting.empty() || !m_Working.empty()) {
            while (!m_Waiting.empty() && m_Working.size() < jobs) {
                Start(m_Waiting.front(), m_Workers.firstArguments);
                m_Waiting.pop_front();
            }
            progress.Step(Look());
            std::this_thread::sleep_for(kLook);
        }
    }

private:
    struct Worker {
        std::size_t shard;
        platform::Program program;
    };

    void Start(std::size_t shard, const std::vector<std::string>& further) {
        platform::ProgramStart start{
            .command = m_Workers.command, .variables = m_Workers.variables, .sharesOutput = true};
        start.command.push_back(std::to_string(shard));
        start.command.insert(start.command.end(), further.begin(), further.end());
        Worker worker{shard, {}};
        std::string why;
        if (!worker.program.Start(start, why))
            throw Error(ErrorKind::Disk, "cannot start " + start.command.front() + ": " + why);
        m_Working.push_back(std::move(worker));
    }

    /// Returns how many shards nobody works on any more.
    std::int64_t Look() {
        std::vector<std::size_t> ended;
        const std::size_t over = std::erase_if(m_Working, [&](Worker& worker) {
            const auto end = worker.program.Ask();
            if (end && !end->isOwn) ended.push_back(worker.shard);
            return end.has_value();
        });
        std::size_t restarted = 0;
        for (const std::size_t shard : ended) {
            const bool goesOn = m_Left[shard] > 0;
            m_Watch.Tell({.kind = FindingKind::ProcessEnded,
                          .text = "the process that worked on shard " + std::to_string(shard) + " was ended; " +
                                  (goesOn ? "another one goes on" : "too many were, and the rest of it stays open")});
            if (!goesOn) continue;
            --m_Left[shard];
            Start(shard, {});
            ++restarted;
        }
        return static_cast<std::int64_t>(over - restarted);
    }

    /// A worker that is asked a second time ends at once, whatever it does.
    void EndAll() noexcept {
        for (int request = 0; request < 2 && !m_Working.empty(); ++request) {
            for (const Worker& worker : m_Working) worker.program.RequestEnd();
            for (int look = 0; look < kLooksForEnd && !m_Working.empty(); ++look) {
                std::this_thread::sleep_for(kLook);
                std::erase_if(m_Working, [](Worker& worker) { return worker.program.Ask().has_value(); });
            }
        }
    }

    const BatchWorkers& m_Workers;
    Watch m_Watch;
    std::deque<std::size_t> m_Waiting;
    std::vector<Worker> m_Working;
    std::map<std::size_t, std::size_t> m_Left;  // how often a shard may be begun again
};

}  // namespace

BatchReport RunShards(const std::string& plan, const std::vector<std::size_t>& shards, const BatchWorkers& workers) {
    Supervisor(plan, shards, workers).Run();
    return ReportBatch(plan);
}

}  // namespace korvane
