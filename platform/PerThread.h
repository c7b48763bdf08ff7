// Objects of which each thread has its own, with a destructor that runs at the thread's end.
#pragma once

#if defined(_WIN32)
#include "platform/windows/ThreadSlot.h"
#endif

namespace platform {

#if defined(_WIN32)

/// `Get` returns the calling thread's T, made when the thread first asks. On Windows MinGW's `thread_local` frees the
/// memory of an object before its destructor runs. So the objects lie on the heap here and are found through
/// fiber-local storage, whose callback destroys them when the thread ends.
template <typename T>
class PerThread {
public:
    static T& Get() {
        static const ThreadSlot slot(Destroy);
        void* own = slot.Get();
        if (own == nullptr) {
            own = new T;
            slot.Set(own);
        }
        return *static_cast<T*>(own);
    }

private:
    static void __stdcall Destroy(void* own) { delete static_cast<T*>(own); }
};

#else

/// `Get` returns the calling thread's T. Objects of the thread that are destroyed after it may still call `Get`, and
/// then get the T whose destructor has run: T must bear that.
template <typename T>
class PerThread {
public:
    static T& Get() {
        // In a shared library each mention of a thread's object is a call, and one with a destructor is mentioned twice.
        static thread_local T* s_pOwn = nullptr;
        if (s_pOwn == nullptr) [[unlikely]]
            s_pOwn = Make();
        return *s_pOwn;
    }

private:
    [[gnu::noinline, gnu::cold]] static T* Make() {
        static thread_local T s_own;
        return &s_own;
    }
};

#endif

}  // namespace platform
