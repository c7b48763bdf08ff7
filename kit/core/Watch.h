// How the Kit's jobs use the caller's `Watcher`: one `Watch` for a job, one `TaskProgress` for each task in it.
#pragma once

#include "Watcher.h"

#include "../../volume/CPercent.h"

#include <exception>
#include <functional>

namespace korvane {

/// Passes a job's reports and questions to the caller's watcher; cheap to copy. Without a watcher reports are dropped
/// and nothing stops.
class Watch {
public:
    Watch() = default;
    Watch(Watcher* watcher) : m_pWatcher(watcher) {}  // NOLINT(google-explicit-constructor): a pointer to one is one

    bool IsStopped() const noexcept { return m_pWatcher != nullptr && m_pWatcher->IsStopped(); }
    /// Throws `Error` of kind `Stopped` once the caller has asked for it.
    void StopIfAsked() const;
    /// The question for operations of lower rooms.
    std::function<bool()> GetStopQuestion() const;
    void Tell(const Finding& finding) const;

    Watcher* GetWatcher() const { return m_pWatcher; }

private:
    Watcher* m_pWatcher = nullptr;
};

/// A task, from its first unit to the last. It is also the module's callback (`SetCallback`), which counts the same
/// units.
class TaskProgress : public CPercent {
public:
    TaskProgress(const Watch& watch, std::string label, std::int64_t total, double unitBytes = 0);
    ~TaskProgress() override;
    TaskProgress(const TaskProgress&) = delete;
    TaskProgress& operator=(const TaskProgress&) = delete;

    /// Called by the module; true stops it. The module would take what a watcher throws for a failure of its own, so
    /// that is kept, and stops it too.
    bool OnProgress(short percent) override;
    /// What the watcher threw in the meantime, null without: to be thrown on once the module has returned.
    std::exception_ptr GetThrown() const { return m_Thrown; }

    /// Counts units that the Kit has done itself. Throws `Error` of kind `Stopped` when the job is to end.
    void Step(std::int64_t units = 1);

private:
    Watch m_Watch;
    std::int64_t m_Total;
    std::int64_t m_Done = 0;
    std::exception_ptr m_Thrown;
};

}  // namespace korvane
