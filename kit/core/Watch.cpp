#include "Watch.h"

#include "Error.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace korvane {

void Watch::StopIfAsked() const {
    if (IsStopped()) throw Error(ErrorKind::Stopped, "stopped");
}

std::function<bool()> Watch::GetStopQuestion() const {
    return [watcher = m_pWatcher] { return watcher != nullptr && watcher->IsStopped(); };
}

void Watch::Tell(const Finding& finding) const {
    if (m_pWatcher != nullptr) m_pWatcher->OnFinding(finding);
}

TaskProgress::TaskProgress(const Watch& watch, std::string label, std::int64_t total, double unitBytes)
    : m_Watch(watch), m_Total(std::max<std::int64_t>(total, 1)) {
    // The module counts in 32 bits and multiplies by 100; larger totals are counted by `Step` alone.
    SetTotElab(static_cast<long>(std::min<std::int64_t>(m_Total, std::numeric_limits<std::int32_t>::max() / 100)));
    StartProgress();
    if (Watcher* const watcher = m_Watch.GetWatcher()) watcher->OnTask({std::move(label), m_Total, unitBytes});
}

TaskProgress::~TaskProgress() {
    Watcher* const watcher = m_Watch.GetWatcher();
    if (watcher == nullptr) return;
    try {
        watcher->OnTaskEnd();
    } catch (...) {  // a destructor must not throw, and another exception may be under way
    }
}

bool TaskProgress::OnProgress(short percent) {
    if (m_Thrown != nullptr) return true;
    try {
        if (Watcher* const watcher = m_Watch.GetWatcher()) watcher->OnStep(m_Total * percent / 100);
    } catch (...) {
        m_Thrown = std::current_exception();
        return true;
    }
    return m_Watch.IsStopped();
}

void TaskProgress::Step(std::int64_t units) {
    m_Done = std::min(m_Done + units, m_Total);
    if (Watcher* const watcher = m_Watch.GetWatcher()) watcher->OnStep(m_Done);
    m_Watch.StopIfAsked();
}

}  // namespace korvane
