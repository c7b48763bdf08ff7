// Files that are copied onto a medium by whichever thread has time.
#pragma once

#include "../core/Watch.h"

#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <string>

namespace korvane {

/// Copies are begun in the order in which they were asked for, each by one thread, and none behind one that failed. So what
/// fails is what would have failed first on one thread.
class MediumCopies {
public:
    explicit MediumCopies(const Watch& watch) : m_Watch(watch) {}

    void Add(const std::string& source, const std::string& destination);

    /// Makes the next copies, at most so many. On any thread; nothing is thrown.
    void Work(std::size_t most);

    /// Those that no thread has begun; 0 after a failure.
    std::size_t CountWaiting() const;
    /// How many were made since the last call.
    std::size_t TakeDone();

    /// Throws the failure of the first that failed: once all that were begun have ended, it is the same in each run.
    void Rethrow() const;

private:
    struct Copy {
        std::string source;
        std::string destination;
    };

    void Make(const Copy& copy) const;

    Watch m_Watch;
    mutable std::mutex m_Mutex;
    std::deque<Copy> m_Waiting;
    std::size_t m_nBegun = 0;
    std::size_t m_nDone = 0;
    std::size_t m_Failed = 0;  // the number of the first that failed
    std::exception_ptr m_Failure;
};

/// A failure in the builder's words with the system's reason, where that is known and not among them.
std::string WithReason(const std::string& message, int error);

}  // namespace korvane
