// TCP connections of the Kit: both address families, plain or encrypted.
#pragma once

#include "TlsOptions.h"

#include "Dicom/Lib/network/Transport.h"
#include "base/SocketTypes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace korvane {

/// Keeps the system's socket library in use.
class SocketLibrary {
public:
    SocketLibrary();
    ~SocketLibrary();
    SocketLibrary(const SocketLibrary&) = delete;
    SocketLibrary& operator=(const SocketLibrary&) = delete;
};

/// An open socket, closed at the end.
class OwnSocket {
public:
    explicit OwnSocket(platform::SocketHandle handle = platform::kNoSocket) : m_Handle(handle) {}
    ~OwnSocket() { Close(); }
    OwnSocket(OwnSocket&& other) noexcept : m_Handle(other.Take()) {}
    OwnSocket& operator=(OwnSocket&& other) noexcept;

    platform::SocketHandle Get() const { return m_Handle; }
    bool IsOpen() const { return m_Handle != platform::kNoSocket; }
    void Close();

private:
    platform::SocketHandle Take();

    platform::SocketHandle m_Handle;
};

/// A connection that is not encrypted.
class PlainConnection : public Transport {
public:
    explicit PlainConnection(OwnSocket socket);

    int Wait(int milliseconds) override;
    int ReceiveAvailable(void* bytes, int capacity) override;
    bool Send(const void* bytes, std::size_t count, const std::function<bool()>& isStopped) override;
    void SetTimeout(int seconds) override;
    void ShutDown() override;

private:
    OwnSocket m_Socket;
};

/// Certificates and rules for the connections of a job; may be used by several threads.
class TlsContext {
public:
    enum class Side { Connects, Accepts };

    /// Throws `Error`: `Unsupported` where this build cannot encrypt, `WrongArgument` for files that cannot be used.
    TlsContext(const TlsOptions& options, Side side);
    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    /// Agrees with the peer on keys, before the deadline. `host`: for whom the peer's certificate must be; empty: for
    /// anybody. Null with the reason in `why`, which is empty where the job was stopped.
    std::unique_ptr<Transport> Wrap(OwnSocket socket, const std::string& host,
                                    std::chrono::steady_clock::time_point deadline,
                                    const std::function<bool()>& isStopped, std::string& why) const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_pParts;
};

/// The same certificates and rules, for connections that a library of others makes: `context` is its `SSL_CTX*`. Throws
/// `Error`. Only where this build can encrypt.
void PrepareTls(void* context, const TlsOptions& options);

}  // namespace korvane
