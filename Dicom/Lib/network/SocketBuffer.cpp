#include "SocketBuffer.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStopCheckEvery{100};
constexpr std::size_t kLargestBlock = std::size_t{1} << 30;

}  // namespace

DcmSocket& SocketBuffer::GetSocket() {
    if (m_pSocket == nullptr) m_pSocket = std::make_unique<DcmSocket>();
    return *m_pSocket;
}

void SocketBuffer::SetTransport(std::unique_ptr<Transport> transport) {
    transport->SetTimeout(GetSocket().GetTimeout());
    m_pTransport = std::move(transport);
}

bool SocketBuffer::IsConnected() const {
    return m_pTransport != nullptr || (m_pSocket != nullptr && m_pSocket->IsConnected());
}

void SocketBuffer::Disconnect() {
    m_pTransport.reset();
    if (m_pSocket != nullptr) m_pSocket->Close();
}

void SocketBuffer::ShutDownSending() {
    if (m_pTransport != nullptr) {
        m_pTransport->ShutDown();
    } else {
        GetSocket().ShutDown();
    }
}

void SocketBuffer::SetTimeout(int seconds) {
    GetSocket().SetTimeout(seconds);
    if (m_pTransport != nullptr) m_pTransport->SetTimeout(m_pSocket->GetTimeout());
}

int SocketBuffer::Wait(int milliseconds) {
    return m_pTransport != nullptr ? m_pTransport->Wait(milliseconds) : GetSocket().Wait(milliseconds);
}

int SocketBuffer::ReceiveAvailable(void* bytes, std::size_t capacity) {
    const int most = static_cast<int>(std::min(capacity, kLargestBlock));
    if (m_pTransport == nullptr) return GetSocket().RecvAvailable(bytes, most);
    const int got = m_pTransport->ReceiveAvailable(bytes, most);
    if (got != platform::kNothingReceived) TraceSocketBlock("received %d bytes\n", bytes, got);
    return got;
}

bool SocketBuffer::SendBlock(const void* bytes, std::size_t count) {
    const int length = static_cast<int>(count);
    if (m_pTransport == nullptr) {
        return GetSocket().Send(bytes, length, m_StopCheck) != 0 && !m_pSocket->HasFailed();
    }
    TraceSocketBlock("Sending %d bytes\n", bytes, length);
    return m_pTransport->Send(bytes, count, m_StopCheck);
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
    return HasUnread() || Wait(milliseconds) == 1;
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
        const int ready = Wait(static_cast<int>(std::min<long long>(left.count(), INT_MAX)));
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
        const int got = ReceiveAvailable(bytes, capacity);
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
        if (!SendBlock(place, step)) return false;
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
