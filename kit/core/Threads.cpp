#include "Threads.h"

#include "Error.h"
#include "StandingThreads.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr unsigned kMostJobs = 256;

thread_local bool t_bInPool = false;

// The state that the threads of one call share.
class Crew {
public:
    Crew(std::size_t count, std::size_t ahead, const Watch& watch) : m_Count(count), m_Ahead(ahead), m_Watch(watch) {}

    // Gives out the next index to work on; false when none is left.
    bool Begin(std::size_t& index) {
        std::unique_lock lock(m_Mutex);
        m_Room.wait(lock, [this] { return m_bEnd || m_Next >= m_Count || m_Next < m_Taken + m_Ahead; });
        if (m_bEnd || m_Next >= m_Count) return false;
        if (m_Watch.IsStopped()) {
            EndLocked();
            return false;
        }
        index = m_Next++;
        return true;
    }

    void Work(const std::function<void(std::size_t)>& body) {
        const bool before = std::exchange(t_bInPool, true);
        std::size_t index = 0;
        while (Begin(index)) {
            try {
                body(index);
                Finish(index, nullptr);
            } catch (...) {
                Finish(index, std::current_exception());
            }
        }
        t_bInPool = before;
    }

    // Waits until `make` of an index has returned; false when it never will, after a failure or a stop.
    bool Await(std::size_t index) {
        std::unique_lock lock(m_Mutex);
        m_Awaited = index;
        m_Ready.wait(lock, [this, index] { return m_Made[index] || (m_bEnd && !IsUnderWay(index)); });
        return m_Made[index];
    }

    // Threads that wait for room are woken when there is half of it: waking one for each index costs more than small
    // ones do.
    void Take(std::size_t index) {
        const std::lock_guard lock(m_Mutex);
        m_Taken = index + 1;
        if (m_Next - m_Taken <= m_Ahead / 2) m_Room.notify_all();
    }

    void End() {
        const std::lock_guard lock(m_Mutex);
        EndLocked();
    }

    void TrackOrder() { m_Made.assign(m_Count, false); }

    void Rethrow() const {
        if (m_Failure) std::rethrow_exception(m_Failure);
        m_Watch.StopIfAsked();
    }

private:
    bool IsUnderWay(std::size_t index) const {
        return index < m_Next && !m_Made[index] && !(m_Failure && index >= m_Failed);
    }

    void Finish(std::size_t index, const std::exception_ptr& failure) {
        const std::lock_guard lock(m_Mutex);
        if (failure && (!m_Failure || index < m_Failed)) {
            m_Failure = failure;
            m_Failed = index;
        }
        if (!failure && !m_Made.empty()) m_Made[index] = true;
        if (failure) {
            EndLocked();
        } else if (m_bEnd || index == m_Awaited) {
            m_Ready.notify_all();
        }
    }

    void EndLocked() {
        m_bEnd = true;
        m_Room.notify_all();
        m_Ready.notify_all();
    }

    std::size_t m_Count;
    std::size_t m_Ahead;
    Watch m_Watch;
    std::mutex m_Mutex;
    std::condition_variable m_Room;   // for what is to be made
    std::condition_variable m_Ready;  // for what is to be taken
    std::vector<bool> m_Made;
    std::size_t m_Next = 0;
    std::size_t m_Taken = 0;
    std::size_t m_Awaited = 0;
    std::size_t m_Failed = 0;
    std::exception_ptr m_Failure;
    bool m_bEnd = false;
};

// Threads that end before the crew does.
class Threads {
public:
    Threads(Crew& crew, unsigned count, const std::function<void(std::size_t)>& body) : m_Crew(crew) {
        m_Threads.reserve(count);
        try {
            for (unsigned i = 0; i < count; ++i) m_Threads.emplace_back([&crew, &body] { crew.Work(body); });
        } catch (const std::system_error&) {
            // The system gave fewer threads than wanted: the calling thread works as well, or checks that there is one.
        }
    }
    ~Threads() { Join(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    bool IsEmpty() const { return m_Threads.empty(); }
    void Join() {
        for (std::thread& thread : m_Threads) {
            if (thread.joinable()) thread.join();
        }
    }
    void Stop() {
        m_Crew.End();
        Join();
    }

private:
    Crew& m_Crew;
    std::vector<std::thread> m_Threads;
};

}  // namespace

unsigned CountJobs(unsigned asked) {
    const unsigned wanted = asked != 0 ? asked : std::thread::hardware_concurrency();
    return std::clamp(wanted, 1U, kMostJobs);
}

bool IsInPool() {
    return t_bInPool;
}

void ForEach(unsigned jobs, std::size_t count, const Watch& watch, const std::function<void(std::size_t)>& body) {
    const auto threads = static_cast<unsigned>(std::min<std::size_t>(t_bInPool ? 1 : CountJobs(jobs), count));
    Crew crew(count, count, watch);
    {
        Threads others(crew, threads > 0 ? threads - 1 : 0, body);
        crew.Work(body);
    }
    crew.Rethrow();
}

void ForEach(StandingThreads& threads, unsigned jobs, std::size_t count, const Watch& watch,
             const std::function<void(std::size_t)>& body) {
    const auto wanted = static_cast<unsigned>(std::min<std::size_t>(t_bInPool ? 1 : CountJobs(jobs), count));
    Crew crew(count, count, watch);
    threads.Run(wanted > 0 ? wanted - 1 : 0, [&] { crew.Work(body); });
    crew.Rethrow();
}

void ForEachInOrder(unsigned jobs, std::size_t count, std::size_t ahead, const Watch& watch,
                    const std::function<void(std::size_t)>& make, const std::function<void(std::size_t)>& take) {
    InOrder results(jobs, count, ahead, watch, make);
    for (std::size_t i = 0; i < count; ++i) {
        results.Await(i);
        take(i);
    }
    watch.StopIfAsked();
}

struct InOrder::Pool {
    Pool(unsigned threads, std::size_t count, std::size_t ahead, const Watch& watch,
         const std::function<void(std::size_t)>& make)
        : crew(count, std::max<std::size_t>(ahead, 1), watch), workers(MakeReady(crew), threads, make) {}
    ~Pool() { workers.Stop(); }

    static Crew& MakeReady(Crew& crew) {
        crew.TrackOrder();
        return crew;
    }

    Crew crew;
    Threads workers;
};

InOrder::InOrder(unsigned jobs, std::size_t count, std::size_t ahead, const Watch& watch,
                 std::function<void(std::size_t)> make)
    : m_Watch(watch), m_Make(std::move(make)) {
    const unsigned threads = t_bInPool ? 1 : CountJobs(jobs);
    if (threads < 2 || count < 2) return;
    m_pPool = std::make_unique<Pool>(threads, count, ahead, watch, m_Make);
    if (m_pPool->workers.IsEmpty()) m_pPool.reset();
}

InOrder::~InOrder() = default;

void InOrder::Await(std::size_t index) {
    if (!m_pPool) {
        m_Watch.StopIfAsked();
        m_Make(index);
        return;
    }
    if (index > 0) m_pPool->crew.Take(index - 1);
    if (m_pPool->crew.Await(index)) return;
    m_pPool->workers.Stop();
    m_pPool->crew.Rethrow();
    throw Error(ErrorKind::Stopped, "stopped");
}

}  // namespace korvane
