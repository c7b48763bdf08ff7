// How the Kit's long calls run under Python: without the interpreter's lock, told of, and stopped by Ctrl-C.
#pragma once

#include <Korvane/Kit.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include <pybind11/pybind11.h>

/// Tells a Python callable of progress, as `progress(label, done, total)`, and carries the wish to stop into the job.
/// Made and destroyed with the interpreter's lock held; the Kit calls it without.
class CallWatcher : public korvane::Watcher {
public:
    /// `progress`: a callable; None for nobody; True for a bar by tqdm, where that is installed.
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

/// Whether a signal's handler has raised an exception, KeyboardInterrupt for Ctrl-C. Takes the lock to ask.
bool SignalRaised();

/// Only the main thread runs handlers of signals.
bool IsMainThread();

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
            // That it was stopped; the interrupt says more.
        }
        const pybind11::gil_scoped_acquire locked;
        throw pybind11::error_already_set();
    }
    return result.get();
}
