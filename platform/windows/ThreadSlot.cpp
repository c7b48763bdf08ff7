#include "platform/windows/ThreadSlot.h"

#include <windows.h>

namespace platform {

ThreadSlot::ThreadSlot(Destroy destroy) : m_Index(FlsAlloc(destroy)) {}

ThreadSlot::~ThreadSlot() {
    FlsFree(m_Index);
}

void* ThreadSlot::Get() const {
    return FlsGetValue(m_Index);
}

void ThreadSlot::Set(void* own) const {
    FlsSetValue(m_Index, own);
}

}  // namespace platform
