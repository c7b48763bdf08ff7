// Lets threads wait for each other.
#pragma once

#include <condition_variable>
#include <mutex>

/// As `std::latch`. That of GCC 12 loses a wake-up now and then where the system has no futex (the 32-bit Windows
/// build): it looks at the count before it takes its mutex, and waits for ever when the last arrival comes in between.
class Latch {
public:
    explicit Latch(int count) : m_Left(count) {}

    void CountDown() {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (--m_Left == 0) m_Opened.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Opened.wait(lock, [this] { return m_Left <= 0; });
    }
    void ArriveAndWait() {
        CountDown();
        Wait();
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Opened;
    int m_Left;
};
