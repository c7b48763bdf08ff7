#include "Connection.h"

#include "platform/Socket.h"

#include <utility>

namespace korvane {

SocketLibrary::SocketLibrary() {
    platform::StartSocketLibrary();
}

SocketLibrary::~SocketLibrary() {
    platform::StopSocketLibrary();
}

OwnSocket& OwnSocket::operator=(OwnSocket&& other) noexcept {
    if (this != &other) {
        Close();
        m_Handle = other.Take();
    }
    return *this;
}

platform::SocketHandle OwnSocket::Take() {
    return std::exchange(m_Handle, platform::kNoSocket);
}

void OwnSocket::Close() {
    if (IsOpen()) platform::CloseSocket(Take());
}

PlainConnection::PlainConnection(OwnSocket socket) : m_Socket(std::move(socket)) {}

int PlainConnection::Wait(int milliseconds) {
    return platform::WaitReadable(m_Socket.Get(), milliseconds);
}

int PlainConnection::ReceiveAvailable(void* bytes, int capacity) {
    const int got = platform::ReceiveAvailable(m_Socket.Get(), bytes, capacity);
    return got == 0 ? -1 : got;
}

bool PlainConnection::Send(const void* bytes, std::size_t count, const std::function<bool()>& isStopped) {
    return platform::SendAll(m_Socket.Get(), bytes, count, isStopped);
}

void PlainConnection::SetTimeout(int seconds) {
    platform::TuneSocket(m_Socket.Get(), seconds);
}

void PlainConnection::ShutDown() {
    platform::ShutDownSending(m_Socket.Get());
}

}  // namespace korvane
