// A place in which each thread has a pointer of its own (fiber-local storage).
#pragma once

namespace platform {

/// At the end of a thread whose pointer is not null, `destroy` is called with it.
class ThreadSlot {
public:
    using Destroy = void(__stdcall*)(void* own);

    explicit ThreadSlot(Destroy destroy);
    /// `destroy` is not called any more afterwards: its code may be about to be unloaded.
    ~ThreadSlot();
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    /// The calling thread's pointer, null at first.
    void* Get() const;
    void Set(void* own) const;

private:
    const unsigned long m_Index;
};

}  // namespace platform
