// Threads that stay from one short job to the next.
#pragma once

#include <functional>
#include <memory>

namespace korvane {

/// Beginning a thread, or waking one, takes as long as a tenth of a picture of a slicer. These stay: after a job they look for
/// the next one for a fifth of a millisecond, then sleep until they are woken, and after some seconds without a job they end.
/// One job at a time. In a process that was forked off there are none of them, and jobs run on the calling thread alone.
class StandingThreads {
public:
    StandingThreads();
    ~StandingThreads();
    StandingThreads(const StandingThreads&) = delete;
    StandingThreads& operator=(const StandingThreads&) = delete;

    /// Calls `work` on this thread and on up to `others` more, and returns when all calls have. One that would come too late,
    /// when this thread's has returned, is not made at all. `work` throws nothing.
    void Run(unsigned others, const std::function<void()>& work);

private:
    struct Parts;

    std::unique_ptr<Parts> m_pParts;
};

}  // namespace korvane
