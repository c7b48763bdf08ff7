// What the program says to the person who runs it: messages and a progress bar; and Ctrl-C.
#pragma once

#include <Korvane/Kit.h>

#include <chrono>
#include <string>
#include <vector>

/// How much the program says on standard error.
enum class Talk {
    Quiet,    ///< failures only
    Normal,   ///< also warnings, and a progress bar on a terminal
    Verbose,  ///< also a line for each task, with the time that it took
};

void SetTalk(Talk talk);

/// Prints a failure as one line on standard error, after standard output has been flushed. Control characters are
/// escaped, passwords of FTP URLs are taken out.
void Complain(const std::string& text);
/// Prints a warning in the same way; does nothing with `Talk::Quiet`.
void Warn(const std::string& text);

/// Throws `korvane::Error` of kind `Stopped` once Ctrl-C has come.
void StopIfInterrupted();

/// Prints lines on standard output, escaped.
void Print(const std::vector<std::string>& lines);
/// Prints what became of a job, or the JSON text `json` in place of the lines unless it is empty; then complains of its faults,
/// and throws its failure.
void Conclude(const korvane::Outcome& outcome, const std::string& json = {});

/// Draws a bar with rate and remaining time where standard error is a terminal, prints what is found on the way, and
/// asks the job to stop once Ctrl-C has come.
class ConsoleWatcher : public korvane::Watcher {
public:
    ConsoleWatcher();
    ~ConsoleWatcher() override;

    void OnTask(const korvane::Task& task) override;
    void OnStep(std::int64_t done) override;
    void OnTaskEnd() override;
    /// Prints one line: behind "warning:" what is odd about data, without it news of the job (a file that failed, a
    /// choice that was made).
    void OnFinding(const korvane::Finding& finding) override;
    bool IsStopped() noexcept override;

private:
    void Draw(int percent);
    void Clear();
    std::string DescribePace(int percent) const;
    double Seconds() const;

    korvane::Task m_Task;
    std::chrono::steady_clock::time_point m_Start;
    int m_Percent = -1;  // shown by the bar; -1: no bar is drawn
    bool m_bBar;
};
