// Runs the Kit's long calls under Python: without the interpreter's lock, with progress, and so that Ctrl-C stops them.
#pragma once

#include <Korvane/Kit.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include <pybind11/pybind11.h>

/// Calls a Python callable as `progress(label, done, total)`, and stops the job after `Stop`. An exception from the
/// callable ends the job and reaches the caller. Made and destroyed with the interpreter's lock held; the Kit calls it
/// without the lock.
class CallWatcher : public korvane::Watcher {
public:
    /// `progress`: a callable; None for no reports; True for a bar by tqdm, where that is installed.
    explicit CallWatcher(const pybind11::object& progress);

    void OnTask(const korvane::Task& task) override;
    void OnStep(std::int64_t done) override;
    void OnTaskEnd() override;
    bool IsStopped() noexcept override { return m_bStopped; }

    void Stop() { m_bStopped = true; }

private:
    void Call(std::int64_t done);

    pybind11::object m_Progress;
    korvane::Task m_Task;
    std::chrono::steady_clock::time_point m_Told{};
    std::atomic<bool> m_bStopped = false;
};

/// Whether a signal's handler has raised an exception, such as KeyboardInterrupt for Ctrl-C. Takes the interpreter's
/// lock.
bool SignalRaised();

/// Whether this is the main thread, the only one that runs Python's signal handlers.
bool IsMainThread();

/// Stops a short call when Ctrl-C was pressed, without a thread for it: on the main thread it looks for signals when it is asked
/// whether to stop, every 20 ms.
class SignalWatcher : public korvane::Watcher {
public:
    bool IsStopped() noexcept override;
    /// Whether a handler has raised an exception, which is Python's current one on the main thread then.
    bool HasRaised() const { return m_bRaised; }

private:
    const std::thread::id m_Main = IsMainThread() ? std::this_thread::get_id() : std::thread::id();
    std::chrono::steady_clock::time_point m_Looked = std::chrono::steady_clock::now();  // of the main thread alone
    std::atomic<bool> m_bRaised = false;
};

/// Runs `job(watcher)` without the interpreter's lock on the calling thread, and returns its result: for calls of milliseconds,
/// which a thread of their own would double. The exception that a signal's handler raised goes on to the caller.
template <class Job>
auto RunHere(Job job) {
    SignalWatcher watcher;
    const pybind11::gil_scoped_release unlocked;
    try {
        auto result = job(watcher);
        if (!watcher.HasRaised()) return result;
    } catch (const std::exception&) {
        if (!watcher.HasRaised()) throw;
    }
    const pybind11::gil_scoped_acquire locked;
    throw pybind11::error_already_set();
}

/// Runs `job(watcher)` without the interpreter's lock and returns its result. Called on the main thread, the job gets a
/// thread of its own and this one looks for signals meanwhile, so that Ctrl-C stops the job however busy it is; the
/// exception that the handler raised then goes on to the caller, once the job has ended.
template <class Job>
auto Run(const pybind11::object& progress, Job job) {
    CallWatcher watcher(progress);
    const bool isMain = IsMainThread();
    const pybind11::gil_scoped_release unlocked;
    if (!isMain) return job(watcher);
    auto result = std::async(std::launch::async, [&] { return job(watcher); });
    bool raised = false;
    while (result.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
        if (raised || !SignalRaised()) continue;
        raised = true;
        watcher.Stop();
    }
    if (raised || SignalRaised()) {
        try {
            result.get();
        } catch (const std::exception&) {
            // The `Error` of kind `Stopped` is dropped: the exception of the signal handler is raised instead.
        }
        const pybind11::gil_scoped_acquire locked;
        throw pybind11::error_already_set();
    }
    return result.get();
}
