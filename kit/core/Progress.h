// Progress on standard error, and the way Ctrl-C reaches the library.
#pragma once

#include "../../volume/CPercent.h"

#include <chrono>
#include <string>

namespace korvane {

/// Draws a bar with rate and remaining time where standard error is a terminal, and nothing elsewhere. As the library's callback it asks to stop once
/// Ctrl-C has come.
class ProgressBar : public CPercent {
public:
    /// `unitBytes`: what one unit of work moves, for a rate in megabytes; 0 for one in units.
    ProgressBar(std::string label, long total, double unitBytes = 0);
    ~ProgressBar() override;
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool OnProgress(short percent) override;

    /// One unit of work of the program's own; throws `Interrupted` once Ctrl-C has come.
    void Step();

private:
    void Draw(int percent) const;
    std::string DescribePace(int percent) const;

    std::string m_Label;
    double m_dUnitBytes;
    std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
    bool m_bTerminal;
};

}  // namespace korvane
