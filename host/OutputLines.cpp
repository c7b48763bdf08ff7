#include "OutputLines.h"

#include "Console.h"
#include "terminal/Terminal.h"

#include <algorithm>

using namespace korvane;

namespace {

constexpr std::size_t kMostPending = std::size_t{64} << 20;
constexpr int kLook = 100;  // milliseconds from one question whether to stop to the next

}  // namespace

OutputLines::~OutputLines() {
    if (m_bFailed || !Write(0)) return;
    const auto unread = std::count(m_Pending.begin() + static_cast<std::ptrdiff_t>(m_Written), m_Pending.end(), '\n');
    if (unread > 0) Warn(std::to_string(unread) + " lines of standard output were not read");
}

void OutputLines::Add(const std::string& line) {
    m_Pending += line + '\n';
    Write(0);
    if (m_Pending.size() - m_Written < kMostPending) return;
    Warn("whoever reads standard output does not: waiting");
    Finish();
}

bool OutputLines::Write(int milliseconds) {
    if (m_Pending.empty() || m_bFailed) return !m_bFailed;
    while (m_Written < m_Pending.size() && !m_bFailed && platform::CanWriteOutput(milliseconds)) {
        // Ends at a line's end where possible, since a reader can do nothing with a part of a line.
        const std::size_t most = std::min(platform::kOutputStep, m_Pending.size() - m_Written);
        const std::size_t lineEnd = m_Pending.rfind('\n', m_Written + most - 1);
        const std::size_t count = lineEnd == std::string::npos || lineEnd < m_Written ? most : lineEnd + 1 - m_Written;
        m_bFailed = !platform::WriteOutput(m_Pending.data() + m_Written, count);
        m_Written += count;
    }
    if (m_Written == m_Pending.size() || m_Written > kMostPending) {
        m_Pending.erase(0, m_Written);
        m_Written = 0;
    }
    return !m_bFailed;
}

void OutputLines::Finish() {
    while (Write(kLook) && !m_Pending.empty()) StopIfInterrupted();
    if (m_bFailed) throw korvane::Error(korvane::ErrorKind::Disk, "cannot write to standard output");
}
