#include "ProgramWatcher.h"

#include "terminal/Terminal.h"
#include <Korvane/kit/core/HostError.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

constexpr int kPaceWidth = 28;

}  // namespace

ProgramWatcher::ProgramWatcher() : m_bTerminal(platform::IsErrorTerminal()) {}

void ProgramWatcher::OnTask(const korvane::Task& task) {
    m_Task = task;
    m_Percent = 0;
    m_Start = std::chrono::steady_clock::now();
    m_bDrawn = m_bTerminal;
    Draw();
}

void ProgramWatcher::OnStep(std::int64_t done) {
    const int percent = static_cast<int>(static_cast<double>(done) * 100 /
                                         static_cast<double>(std::max<std::int64_t>(m_Task.total, 1)));
    if (percent == m_Percent) return;
    m_Percent = percent;
    Draw();
}

void ProgramWatcher::OnTaskEnd() {
    Clear();
    m_bDrawn = false;
}

void ProgramWatcher::OnFinding(const korvane::Finding& finding) {
    Clear();
    korvane::Warn(finding.text);
    Draw();
}

bool ProgramWatcher::IsStopped() noexcept {
    return platform::WasInterrupted();
}

void ProgramWatcher::Clear() const {
    if (!m_bDrawn) return;
    std::fprintf(stderr, "\r%*s\r", platform::GetTerminalWidth() - 1, "");  // not every console knows escape sequences
    std::fflush(stderr);
}

void ProgramWatcher::Draw() const {
    if (!m_bDrawn) return;
    const int room = platform::GetTerminalWidth() - static_cast<int>(m_Task.label.size()) - 10 - kPaceWidth;
    const int width = std::clamp(room, 0, 60);
    const auto done = static_cast<std::size_t>(width * m_Percent / 100);
    const std::string bar = std::string(done, '#') + std::string(static_cast<std::size_t>(width) - done, '.');
    std::string pace = DescribePace();
    pace.resize(static_cast<std::size_t>(std::clamp(room + kPaceWidth - width, 0, kPaceWidth)), ' ');
    std::fprintf(stderr, "\r%s [%s] %3d %%%s", m_Task.label.c_str(), bar.c_str(), m_Percent, pace.c_str());
    std::fflush(stderr);
}

std::string ProgramWatcher::DescribePace() const {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
    if (m_Percent <= 0 || seconds <= 0) return {};
    const double units = static_cast<double>(m_Task.total) * m_Percent / 100;
    const double rate = (m_Task.unitBytes > 0 ? units * m_Task.unitBytes / 1e6 : units) / seconds;
    const auto left = static_cast<long long>(std::min(seconds * (100 - m_Percent) / m_Percent, 359999.0));
    char text[64];
    std::snprintf(text, sizeof text, "  %lld%s  %lld:%02lld left", static_cast<long long>(std::min(rate, 1e9)),
                  m_Task.unitBytes > 0 ? " MB/s" : "/s", left / 60, left % 60);
    return text;
}
