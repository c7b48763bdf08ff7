// The person in front of the program: messages, a progress bar, Ctrl-C.
#pragma once

#include <Korvane/Kit.h>

#include <chrono>
#include <string>

/// How much the program says on standard error.
enum class Talk {
    Quiet,    ///< failures alone
    Normal,   ///< and warnings, and a progress bar on a terminal
    Verbose,  ///< and what is done, a line for each task with its time
};

void SetTalk(Talk talk);

/// A failure: one line on standard error, behind the output that it is about. What could not be printed is escaped,
/// passwords of FTP URLs are taken out.
void Complain(const std::string& text);
/// The same of a warning; nothing when the program is to be quiet.
void Warn(const std::string& text);

/// Throws `korvane::Error` of kind `Stopped` once Ctrl-C has come.
void StopIfInterrupted();

/// Draws a bar with rate and remaining time where standard error is a terminal, prints what is found on the way, and asks
/// the job to stop once Ctrl-C has come.
class ConsoleWatcher : public korvane::Watcher {
public:
    ConsoleWatcher();
    ~ConsoleWatcher() override;

    void OnTask(const korvane::Task& task) override;
    void OnStep(std::int64_t done) override;
    void OnTaskEnd() override;
    /// One line: warnings with that word before them, what happened to a single file or a choice that was made without.
    void OnFinding(const korvane::Finding& finding) override;
    bool IsStopped() noexcept override;

private:
    void Draw(int percent);
    void Clear();
    std::string DescribePace(int percent) const;
    double Seconds() const;

    korvane::Task m_Task;
    std::chrono::steady_clock::time_point m_Start;
    int m_Percent = -1;  // drawn last; -1: no bar stands there
    bool m_bBar;
};
