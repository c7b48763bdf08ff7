// Objects of which each thread has its own, with a destructor that runs at the thread's end.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#endif

namespace platform {

#if defined(_WIN32)

/// The calling thread's T, made at its first use. The compiler's `thread_local` frees the memory of such objects before
/// their destructors run on this system, so they lie on the heap, found through fiber-local storage.
template <typename T>
class PerThread {
public:
    static T& Get() {
        static const PerThread slots;
        void* own = FlsGetValue(slots.m_Index);
        if (own == nullptr) {
            own = new T;
            FlsSetValue(slots.m_Index, own);
        }
        return *static_cast<T*>(own);
    }

private:
    PerThread() : m_Index(FlsAlloc(Destroy)) {}
    ~PerThread() { FlsFree(m_Index); }  // before the module with the code of Destroy is unloaded

    static void WINAPI Destroy(void* own) { delete static_cast<T*>(own); }

    const DWORD m_Index;
};

#else

/// The calling thread's T. It may still be reached behind its destructor, by objects that are destroyed later.
template <typename T>
class PerThread {
public:
    static T& Get() {
        static thread_local T s_own;
        return s_own;
    }
};

#endif

}  // namespace platform
