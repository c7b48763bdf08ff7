// The program listens to a job of the Kit: progress and remarks on standard error, Ctrl-C stops it.
#pragma once

#include <Korvane/kit/core/Watcher.h>

#include <chrono>
#include <cstdint>
#include <string>

/// Draws a bar with rate and remaining time where standard error is a terminal; prints findings as "korvane: " and their
/// text.
class ProgramWatcher : public korvane::Watcher {
public:
    ProgramWatcher();

    void OnTask(const korvane::Task& task) override;
    void OnStep(std::int64_t done) override;
    void OnTaskEnd() override;
    void OnFinding(const korvane::Finding& finding) override;
    bool IsStopped() noexcept override;

private:
    void Draw() const;
    void Clear() const;
    std::string DescribePace() const;

    korvane::Task m_Task;
    int m_Percent = 0;
    std::chrono::steady_clock::time_point m_Start;
    bool m_bTerminal;
    bool m_bDrawn = false;
};
