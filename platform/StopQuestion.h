// The question whether a long operation shall end early.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <utility>

namespace platform {

/// True: stop now. It is asked on the thread that does the work, may be asked again after a true, and must not throw.
/// An empty one stands for an operation that is never stopped.
using StopQuestion = std::function<bool()>;

/// Asks a question only so often that the work does not suffer, and remembers that the answer was yes.
class StopCheck {
public:
    /// The most bytes to move between two calls of `IsStopped`: a fast disk takes about a millisecond for them.
    static constexpr std::size_t kStep = std::size_t{1} << 20;

    void SetQuestion(StopQuestion question) { m_Question = std::move(question); }
    bool HasQuestion() const { return static_cast<bool>(m_Question); }

    /// Before the next `count` bytes are moved. Asks for the first ones, then after `kStep` bytes or 20 ms.
    bool IsStopped(std::size_t count) {
        if (!m_Question || m_bStopped) return m_bStopped;
        const auto now = std::chrono::steady_clock::now();
        if (m_Bytes < kStep && now - m_Asked < std::chrono::milliseconds(20)) {
            m_Bytes += count;
            return false;
        }
        m_Bytes = count;
        m_Asked = now;
        m_bStopped = m_Question();
        return m_bStopped;
    }

    /// Another file begins.
    void Restart() {
        m_Bytes = kStep;
        m_bStopped = false;
    }

private:
    StopQuestion m_Question;
    std::size_t m_Bytes = kStep;  // since the question was asked; at first as if it were due
    std::chrono::steady_clock::time_point m_Asked;
    bool m_bStopped = false;
};

}  // namespace platform
