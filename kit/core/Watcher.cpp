#include "Watcher.h"

namespace korvane {

Watcher::~Watcher() = default;
void Watcher::OnTask(const Task& /*task*/) {}
void Watcher::OnStep(std::int64_t /*done*/) {}
void Watcher::OnTaskEnd() {}
void Watcher::OnFinding(const Finding& /*finding*/) {}
bool Watcher::IsStopped() noexcept {
    return false;
}

}  // namespace korvane
