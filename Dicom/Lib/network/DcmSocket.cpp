#include "DcmSocket.h"

#include "Dicom/Lib/syntax/DiagnosticDump.h"
#include "base/Number.h"
#include "platform/Environment.h"
#include "platform/Socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>
#include <string>
#include <system_error>

namespace {

int g_Sockets = 0;  // objects in the process
std::mutex g_SocketsMutex;

std::string SystemErrorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace

void TraceSocketBlock(const char* format, const void* bytes, int count) {
    if (!IsDebugFlagOn(kDumpSocket)) return;
    char line[64];
    std::snprintf(line, sizeof line, format, count);
    TraceStamped(line, kDumpSocket);
    HexDump(bytes, count, kDumpSocket);
}

DcmSocket::DcmSocket() {
    bool traced = false;
    platform::GetEnvironment("DCM_DUMP_SOCKET", &traced);
    if (traced) SetDebugFlag(kDumpSocket, true);
    const std::lock_guard<std::mutex> lock(g_SocketsMutex);
    const int error = g_Sockets == 0 ? platform::StartSocketLibrary() : 0;
    m_bUsable = error == 0;
    if (m_bUsable) {
        ++g_Sockets;
    } else {
        m_LastError = error;
        std::snprintf(m_ErrorText, sizeof m_ErrorText, "WSAStartup(): errno=%d", error);
    }
}

DcmSocket::~DcmSocket() {
    Close();
    const std::lock_guard<std::mutex> lock(g_SocketsMutex);
    if (m_bUsable && --g_Sockets == 0) platform::StopSocketLibrary();
}

const platform::ServiceEntry* DcmSocket::ResolvePort(const char* port, const char* protocol) {
    const std::int32_t number = platform::ParseInteger(port);
    if (number != 0) {
        m_Service = {port, protocol != nullptr ? protocol : "",
                     platform::ToNetworkOrder(static_cast<std::uint16_t>(number))};
        return &m_Service;
    }
    if (m_bUsable && platform::FindService(port, protocol, m_Service)) return &m_Service;
    std::snprintf(m_ErrorText, sizeof m_ErrorText, "Error getservbyname(%s, %s)", port,
                  protocol != nullptr ? protocol : "NULL");
    return nullptr;
}

int DcmSocket::Open(const char* host, const char* port, const std::function<bool()>& isStopped) {
    Close();
    if (!m_bUsable) return 0;
    m_LastError = 0;
    m_ErrorText[0] = '\0';
    return Connect(host, port, isStopped);
}

int DcmSocket::Connect(const char* host, const char* port, const std::function<bool()>& isStopped) {
    std::vector<std::uint32_t> addresses;
    if (platform::ParseInteger(host) != 0 || !platform::FindHost(host, addresses)) {
        addresses = {platform::AddressFromText(host)};  // 255.255.255.255 for what is no address: connecting then fails
    }
    if (addresses.empty()) {
        std::snprintf(m_ErrorText, sizeof m_ErrorText, "Open(%s,%s): could not resolve [%s]", host, port, host);
        return 0;
    }
    const platform::ServiceEntry* const service = ResolvePort(port, nullptr);
    if (service == nullptr) {
        std::snprintf(m_ErrorText, sizeof m_ErrorText, "Open(%s,%s): could not resolve port[%s]", host, port, port);
        return 0;
    }
    errno = 0;
    m_Handle = platform::CreateSocket();
    if (m_Handle == platform::kNoSocket) {
        m_LastError = platform::LastSocketError();
        const int error = errno;
        std::snprintf(m_ErrorText, sizeof m_ErrorText, "Open(%s,%s): could not create sopcket errno=%d msg=%s", host,
                      port, error, SystemErrorText(error).c_str());
        return 0;
    }
    m_Peer = {};
    m_Peer.port = service->port;
    m_Peer.address = addresses.front();
    if (!platform::ConnectSocket(m_Handle, m_Peer, m_Timeout, isStopped)) {
        m_LastError = platform::LastSocketError();
        const int error = errno;
        Close();
        std::snprintf(m_ErrorText, sizeof m_ErrorText, "Open(%s,%s): Error on connect errno=%d msg=%s", host, port,
                      error, SystemErrorText(error).c_str());
        return 0;
    }
    Attach(m_Handle);
    return 1;
}

// Takes over a socket that is connected.
void DcmSocket::Attach(platform::SocketHandle handle) {
    m_Handle = handle;
    m_bConnected = 1;
    platform::TuneSocket(m_Handle, m_Timeout);
}

void DcmSocket::SetTimeout(int seconds) {
    m_Timeout = std::max(seconds, 0);
    if (IsConnected()) platform::TuneSocket(m_Handle, m_Timeout);
}

int DcmSocket::Send(const void* bytes, int count, const std::function<bool()>& isStopped) {
    if (!IsConnected()) return 0;
    TraceSocketBlock("Sending %d bytes\n", bytes, count);
    if (count > 0 && !platform::SendAll(m_Handle, bytes, static_cast<std::size_t>(count), isStopped)) {
        m_LastError = std::max(platform::LastSocketError(), 1);
    }
    return 1;
}

int DcmSocket::Wait(int milliseconds) {
    return IsConnected() ? platform::WaitReadable(m_Handle, milliseconds) : -1;
}

int DcmSocket::RecvAvailable(void* bytes, int capacity) {
    if (!IsConnected()) return -1;
    const int got = platform::ReceiveAvailable(m_Handle, bytes, capacity);
    if (got == platform::kNothingReceived) return got;
    if (got == platform::kReceiveFailed) m_LastError = std::max(platform::LastSocketError(), 1);
    if (got == 0) return -1;
    TraceSocketBlock("received %d bytes\n", bytes,
                     got);  // "received -1 bytes" after a failure: hosts depend on the log as it is
    return got;
}

int DcmSocket::Recv(void* bytes, int capacity) {
    if (!IsConnected()) return -1;
    if (Wait(std::min(m_Timeout, INT_MAX / 1000) * 1000) != 1) return m_Timeout > 0 ? -1 : 0;
    const int got = RecvAvailable(bytes, capacity);
    return got == platform::kNothingReceived ? -1 : got;
}

void DcmSocket::Close() {
    if (m_Handle != platform::kNoSocket) platform::CloseSocket(m_Handle);
    m_Handle = platform::kNoSocket;
    m_bConnected = 0;
}

void DcmSocket::ShutDown() {
    if (IsConnected()) platform::ShutDownSending(m_Handle);
}

void DcmSocket::KeepAlive() {
    if (IsConnected()) platform::KeepAlive(m_Handle);
}

int DcmSocket::Listen(std::uint16_t port, bool loopbackOnly) {
    return ListenAt(port, loopbackOnly ? platform::LoopbackAddress() : platform::kAnyAddress);
}

int DcmSocket::ListenAt(std::uint16_t port, std::uint32_t address) {
    Close();
    if (!m_bUsable) return 0;
    errno = 0;
    m_Handle = platform::CreateSocket();
    if (m_Handle != platform::kNoSocket && platform::ListenOn(m_Handle, port, address)) return 1;
    m_LastError = platform::LastSocketError();
    const int error = errno;
    Close();
    std::snprintf(m_ErrorText, sizeof m_ErrorText, "Listen(%u): error=%d msg=%s", static_cast<unsigned>(port),
                  m_LastError, error != 0 ? SystemErrorText(error).c_str() : "the system's socket library refused");
    return 0;
}

std::uint16_t DcmSocket::GetListeningPort() const {
    return m_Handle != platform::kNoSocket ? platform::BoundPort(m_Handle) : std::uint16_t{0};
}

int DcmSocket::Accept(DcmSocket& connection, int milliseconds) {
    connection.Close();
    if (m_Handle == platform::kNoSocket || IsConnected()) return 0;
    if (platform::WaitReadable(m_Handle, milliseconds) != 1) return 0;
    platform::SocketAddress peer;
    const platform::SocketHandle handle = platform::AcceptConnection(m_Handle, peer);
    if (handle == platform::kNoSocket) return 0;
    connection.m_LastError = 0;
    connection.m_ErrorText[0] = '\0';
    connection.m_Peer = peer;
    connection.Attach(handle);
    return 1;
}
