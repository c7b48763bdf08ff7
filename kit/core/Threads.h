// Work on all cores.
#pragma once

#include "Watch.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace korvane {

class StandingThreads;

/// How many threads a job may use: as many as asked for, or one for each core where `asked` is 0. At least 1, at most
/// 256.
unsigned CountJobs(unsigned asked);

/// Whether the calling thread is at work for one of these functions, so that what it calls of them runs on it alone.
bool IsInPool();

/// Calls `body(0)` to `body(count - 1)` on up to `jobs` threads (see `CountJobs`), the calling one among them, and
/// returns when all are done. Indices are handed out in ascending order. When a body throws, or the watcher stops the
/// job, no more are begun; the exception of the lowest index reaches the caller once all threads have ended. Called
/// from within a body it runs on that thread alone: pools do not nest.
void ForEach(unsigned jobs, std::size_t count, const Watch& watch, const std::function<void(std::size_t)>& body);

/// The same with threads that stay for the next call; calls with the same ones come one after the other.
void ForEach(StandingThreads& threads, unsigned jobs, std::size_t count, const Watch& watch,
             const std::function<void(std::size_t)>& body);

/// Makes results on all cores and takes them in order. `make(i)` runs on up to `jobs` threads, for at most `ahead`
/// indices beyond the last one taken. `take(i)` runs on the calling thread, for 0 to `count - 1` in order, each after
/// `make(i)` has returned. Exceptions are as with `ForEach`.
void ForEachInOrder(unsigned jobs, std::size_t count, std::size_t ahead, const Watch& watch,
                    const std::function<void(std::size_t)>& make, const std::function<void(std::size_t)>& take);

/// The same where the taker is somebody else's code that asks for one result after the other. Ends its threads when it goes.
class InOrder {
public:
    InOrder(unsigned jobs, std::size_t count, std::size_t ahead, const Watch& watch,
            std::function<void(std::size_t)> make);
    ~InOrder();
    InOrder(const InOrder&) = delete;
    InOrder& operator=(const InOrder&) = delete;

    /// For 0 to `count - 1`, in order: returns when `make(index)` has. The results before are done with. Throws what made
    /// it fail, and `Error` of kind `Stopped`.
    void Await(std::size_t index);

private:
    struct Pool;

    Watch m_Watch;
    std::function<void(std::size_t)> m_Make;
    std::unique_ptr<Pool> m_pPool;  // null: the calling thread makes them
};

}  // namespace korvane
