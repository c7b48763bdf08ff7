// Progress on standard error, and the way Ctrl-C reaches the library.
#pragma once

#include <Korvane/volume/CPercent.h>

#include <string>

/// Draws a bar where standard error is a terminal, and nothing elsewhere. As the library's callback it asks to stop once
/// Ctrl-C has come.
class ProgressBar : public CPercent {
public:
    ProgressBar(std::string label, long total);
    ~ProgressBar() override;
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool OnProgress(short percent) override;

    /// One unit of work of the program's own; throws `Interrupted` once Ctrl-C has come.
    void Step();

private:
    void Draw(int percent) const;

    std::string m_Label;
    bool m_bTerminal;
};
