// How a long job reports its progress, and how it is stopped.
#pragma once

#include "Finding.h"
#include "KitExport.h"

#include <cstdint>
#include <string>

namespace korvane {

/// One stretch of work within a job.
struct Task {
    std::string label;       ///< a word or two: "reading headers"
    std::int64_t total = 0;  ///< units of work; at least 1
    double unitBytes = 0;    ///< bytes that one unit moves, for a rate in bytes; 0 for a rate in units
};

/// Lets the caller follow and stop a long job. Every long function of the Kit takes a pointer to one; with null nothing
/// is reported and the job cannot be stopped. The object stays the caller's and must outlive the call.
///
/// The functions are called from the thread that called the job, except `IsStopped`, which any thread of the job asks,
/// some tens of times a second: it must be safe for that, must be quick, and must not throw. What the others throw ends
/// the job and reaches the caller.
///
///     struct Bar : korvane::Watcher {
///         void OnStep(std::int64_t done) override { std::cerr << '\r' << done; }
///         bool IsStopped() noexcept override { return g_ctrlC; }
///     };
class KORVANE_KIT Watcher {
public:
    Watcher() = default;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    virtual ~Watcher();

    /// A task begins. Tasks follow each other; they do not nest.
    virtual void OnTask(const Task& task);
    /// Units of the present task that are done; grows from 0 to the total.
    virtual void OnStep(std::int64_t done);
    /// The present task is over, whole or not. Another failure may be under way, so what this throws is lost.
    virtual void OnTaskEnd();
    /// Something odd that the caller should know now: a file that failed while the job goes on, a choice that was made.
    virtual void OnFinding(const Finding& finding);
    /// Whether the job shall end. After a true it throws an `Error` of kind `Stopped` within 0.2 seconds, and leaves
    /// nothing half-written.
    virtual bool IsStopped() noexcept;
};

}  // namespace korvane
