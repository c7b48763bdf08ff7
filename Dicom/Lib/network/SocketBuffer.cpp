#include "SocketBuffer.h"

#include <algorithm>
#include <climits>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStopCheckEvery{100};
constexpr std::size_t kLargestBlock = std::size_t{1} << 30;

}  // namespace

DcmSocket& SocketBuffer::GetSocket() {
    if (m_pSocket == nullptr) m_pSocket = std::make_unique<DcmSocket>();
    return *m_pSocket;
}

void SocketBuffer::SetDeadline(int seconds) {
    m_bDeadline = seconds > 0;
    m_Deadline = Clock::now() + std::chrono::seconds(seconds);
}

void SocketBuffer::LimitWaiting(std::int64_t seconds) {
    m_bWaitLimited = seconds > 0;
    m_WaitLeft = std::chrono::seconds(seconds);
}

bool SocketBuffer::WaitForData(int milliseconds) {
    return HasUnread() || GetSocket().Wait(milliseconds) == 1;
}

// Waits until something can be read. False when that fails, with the reason in `m_ReadFault`.
bool SocketBuffer::WaitForSocket() {
    const Clock::time_point begin = Clock::now();
    Clock::time_point end = begin + std::chrono::seconds(GetSocket().GetTimeout());
    if (m_bDeadline) end = std::min(end, m_Deadline);
    if (m_bWaitLimited) end = std::min(end, begin + m_WaitLeft);
    for (;;) {
        if (IsStopped()) {
            m_ReadFault = ReadFault::Stopped;
            return false;
        }
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) {
            m_ReadFault = ReadFault::TimedOut;
            return false;
        }
        if (m_StopCheck) left = std::min(left, kStopCheckEvery);
        const int ready = m_pSocket->Wait(static_cast<int>(std::min<long long>(left.count(), INT_MAX)));
        if (ready == 1) {
            m_WaitLeft -= Clock::now() - begin;
            return true;
        }
        if (ready < 0) {
            m_ReadFault = ReadFault::Closed;
            return false;
        }
    }
}

std::size_t SocketBuffer::Fill(void* bytes, std::size_t capacity) {
    if (m_ReadFault == ReadFault::None && IsStopped())
        m_ReadFault = ReadFault::Stopped;  // asked here too, for a peer whose data never makes a read wait
    while (m_ReadFault == ReadFault::None) {
        if (m_bDeadline && Clock::now() >= m_Deadline) {
            m_ReadFault = ReadFault::TimedOut;
            break;
        }
        const int got = GetSocket().RecvAvailable(bytes, static_cast<int>(std::min(capacity, kLargestBlock)));
        if (got > 0) return static_cast<std::size_t>(got);
        if (got != platform::kNothingReceived)
            m_ReadFault = ReadFault::Closed;
        else if (!WaitForSocket())
            break;
    }
    return 0;
}

bool SocketBuffer::Drain(const void* bytes, std::size_t count) {
    const auto* place = static_cast<const unsigned char*>(bytes);
    while (count > 0) {
        const std::size_t step = std::min(count, kLargestBlock);
        if (GetSocket().Send(place, static_cast<int>(step), m_StopCheck) == 0 || m_pSocket->HasFailed()) return false;
        place += step;
        count -= step;
    }
    return true;
}

bool SocketBuffer::Send(const void* bytes, std::size_t count) {
    return Flush() && Drain(bytes, count);
}

void SocketBuffer::Restart() {
    Forget();
    m_ReadFault = ReadFault::None;
    m_bDeadline = m_bWaitLimited = false;
}
