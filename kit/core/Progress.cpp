#include "Progress.h"

#include "HostError.h"

#include "host/terminal/Terminal.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace korvane {

namespace {

constexpr int kPaceWidth = 28;

}  // namespace

ProgressBar::ProgressBar(std::string label, long total, double unitBytes)
    : m_Label(std::move(label)), m_dUnitBytes(unitBytes), m_bTerminal(platform::IsErrorTerminal()) {
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
    const int room = platform::GetTerminalWidth() - static_cast<int>(m_Label.size()) - 10 - kPaceWidth;
    const int width = std::clamp(room, 0, 60);
    const auto done = static_cast<std::size_t>(width * percent / 100);
    const std::string bar = std::string(done, '#') + std::string(static_cast<std::size_t>(width) - done, '.');
    std::string pace = DescribePace(percent);
    pace.resize(static_cast<std::size_t>(std::clamp(room + kPaceWidth - width, 0, kPaceWidth)), ' ');
    std::fprintf(stderr, "\r%s [%s] %3d %%%s", m_Label.c_str(), bar.c_str(), percent, pace.c_str());
    std::fflush(stderr);
}

std::string ProgressBar::DescribePace(int percent) const {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
    if (percent <= 0 || seconds <= 0) return {};
    const double units = static_cast<double>(m_lTotElab) * percent / 100;
    const double rate = (m_dUnitBytes > 0 ? units * m_dUnitBytes / 1e6 : units) / seconds;
    const auto left = static_cast<long long>(std::min(seconds * (100 - percent) / percent, 359999.0));
    char text[64];
    std::snprintf(text, sizeof text, "  %lld%s  %lld:%02lld left", static_cast<long long>(std::min(rate, 1e9)),
                  m_dUnitBytes > 0 ? " MB/s" : "/s", left / 60, left % 60);
    return text;
}

}  // namespace korvane
