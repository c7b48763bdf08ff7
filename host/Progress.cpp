#include "Progress.h"

#include "HostError.h"

#include <Korvane/platform/Terminal.h>

#include <algorithm>
#include <cstdio>
#include <utility>

ProgressBar::ProgressBar(std::string label, long total)
    : m_Label(std::move(label)), m_bTerminal(platform::IsErrorTerminal()) {
    SetTotElab(total);
    StartProgress();
    Draw(0);
}

ProgressBar::~ProgressBar() {
    if (!m_bTerminal) return;
    std::fprintf(stderr, "\r%*s\r", platform::GetTerminalWidth() - 1, "");  // not every console knows escape sequences
    std::fflush(stderr);
}

bool ProgressBar::OnProgress(short percent) {
    Draw(percent);
    return platform::WasInterrupted();
}

void ProgressBar::Step() {
    FireProgress(1);
    StopIfInterrupted();
}

void ProgressBar::Draw(int percent) const {
    if (!m_bTerminal) return;
    const int room = platform::GetTerminalWidth() - static_cast<int>(m_Label.size()) - 10;
    const int width = std::clamp(room, 0, 60);
    const auto done = static_cast<std::size_t>(width * percent / 100);
    const std::string bar = std::string(done, '#') + std::string(static_cast<std::size_t>(width) - done, '.');
    std::fprintf(stderr, "\r%s [%s] %3d %%", m_Label.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
}
