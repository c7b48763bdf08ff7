#include "Console.h"

#include "terminal/Terminal.h"

#include <algorithm>
#include <cstdio>

using korvane::FindingKind;

namespace {

constexpr int kPaceWidth = 28;
constexpr int kWidestBar = 60;

Talk& CurrentTalk() {
    static Talk s_talk = Talk::Normal;
    return s_talk;
}

// Takes out the passwords of FTP URLs, which a message repeats where a URL was taken for something else.
std::string WithoutPasswords(std::string text) {
    for (std::size_t at = 0; (at = text.find("ftp:", at)) != std::string::npos; at += 4) {
        const std::size_t from = text.find('%', at);
        const std::size_t to = from == std::string::npos ? from : text.find('@', from);
        if (to != std::string::npos) text.erase(from, to - from);
    }
    return text;
}

}  // namespace

void SetTalk(Talk talk) {
    CurrentTalk() = talk;
}

void Complain(const std::string& text) {
    std::fflush(stdout);  // so that a message appears behind the output that it is about
    std::fprintf(stderr, "korvane: %s\n", korvane::Visible(WithoutPasswords(text)).c_str());
    std::fflush(stderr);
}

void Warn(const std::string& text) {
    if (CurrentTalk() != Talk::Quiet) Complain(text);
}

void StopIfInterrupted() {
    if (platform::WasInterrupted()) throw korvane::Error(korvane::ErrorKind::Stopped, "stopped");
}

void Print(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) std::printf("%s\n", korvane::Visible(line).c_str());
}

void Conclude(const korvane::Outcome& outcome, const std::string& json) {
    if (json.empty()) {
        Print(outcome.lines);
    } else {
        std::printf("%s%s", json.c_str(), json.back() == '\n' ? "" : "\n");
    }
    for (const std::string& fault : outcome.faults) Complain(fault);
    if (outcome.failure) throw *outcome.failure;
}

ConsoleWatcher::ConsoleWatcher() : m_bBar(CurrentTalk() != Talk::Quiet && platform::IsErrorTerminal()) {}

ConsoleWatcher::~ConsoleWatcher() {
    Clear();
}

void ConsoleWatcher::OnTask(const korvane::Task& task) {
    m_Task = task;
    m_Start = std::chrono::steady_clock::now();
    Draw(0);
}

void ConsoleWatcher::OnStep(std::int64_t done) {
    const auto percent = static_cast<int>(static_cast<double>(done) * 100 / static_cast<double>(m_Task.total));
    if (percent != m_Percent) Draw(std::clamp(percent, 0, 100));
}

void ConsoleWatcher::OnTaskEnd() {
    Clear();
    if (CurrentTalk() != Talk::Verbose) return;
    char text[48];
    std::snprintf(text, sizeof text, ": %lld in %.2f s", static_cast<long long>(m_Task.total), Seconds());
    Complain(m_Task.label + text);
}

void ConsoleWatcher::OnFinding(const korvane::Finding& finding) {
    Clear();
    switch (finding.kind) {
    case FindingKind::FileFailed:
    case FindingKind::Unreadable:
    case FindingKind::CommandFailed: return Complain(finding.text);
    // News of the job, not warnings about data:
    case FindingKind::FirstOfSeveral:
    case FindingKind::PeerWarned:
    case FindingKind::ProcessEnded:
    case FindingKind::Lossy: return Warn(finding.text);
    default: return Warn("warning: " + finding.text);
    }
}

bool ConsoleWatcher::IsStopped() noexcept {
    return platform::WasInterrupted();
}

double ConsoleWatcher::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
}

void ConsoleWatcher::Clear() {
    if (m_Percent < 0) return;
    std::fprintf(stderr, "\r%*s\r", platform::GetTerminalWidth() - 1, "");  // not every console knows escape sequences
    std::fflush(stderr);
    m_Percent = -1;
}

void ConsoleWatcher::Draw(int percent) {
    if (!m_bBar) return;
    m_Percent = percent;
    const int room = platform::GetTerminalWidth() - static_cast<int>(m_Task.label.size()) - 10 - kPaceWidth;
    const int width = std::clamp(room, 0, kWidestBar);
    const auto done = static_cast<std::size_t>(width * percent / 100);
    const std::string bar = std::string(done, '#') + std::string(static_cast<std::size_t>(width) - done, '.');
    std::string pace = DescribePace(percent);
    pace.resize(static_cast<std::size_t>(std::clamp(room + kPaceWidth - width, 0, kPaceWidth)), ' ');
    std::fprintf(stderr, "\r%s [%s] %3d %%%s", m_Task.label.c_str(), bar.c_str(), percent, pace.c_str());
    std::fflush(stderr);
}

std::string ConsoleWatcher::DescribePace(int percent) const {
    const double seconds = Seconds();
    if (percent <= 0 || seconds <= 0) return {};
    const double units = static_cast<double>(m_Task.total) * percent / 100;
    const double rate = (m_Task.unitBytes > 0 ? units * m_Task.unitBytes / 1e6 : units) / seconds;
    const auto left = static_cast<long long>(std::min(seconds * (100 - percent) / percent, 359999.0));
    char text[64];
    std::snprintf(text, sizeof text, "  %lld%s  %lld:%02lld left", static_cast<long long>(std::min(rate, 1e9)),
                  m_Task.unitBytes > 0 ? " MB/s" : "/s", left / 60, left % 60);
    return text;
}
