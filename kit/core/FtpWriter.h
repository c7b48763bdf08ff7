// The module's FTP writer, in which nobody has to wait for a server.
#pragma once

#include "export/CFTPSend.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace korvane {

/// Uploads like `CFTPSend`, whose calls wait for the server for as long as it pleases: here they run on a thread of the
/// session's own, with data that it owns. Once `stop` says yes, the call at hand has 0.1 seconds left to come back; then
/// it fails, as do all later ones, and the thread is left to end with its connection.
class FtpWriter : public CFileWriter {
public:
    /// `stop` is asked by the calling thread while it waits; null: never.
    explicit FtpWriter(std::function<bool()> stop);
    /// Ends the session.
    ~FtpWriter() override;
    FtpWriter(const FtpWriter&) = delete;
    FtpWriter& operator=(const FtpWriter&) = delete;

    /// False when there is no session; the reply then says why, as that which `CFTPSend::Connect` throws.
    bool Connect(const std::string& host, const std::string& user, const std::string& password);

    // As those of `CFTPSend`, but for `Print`, which callers make a `Write` of.
    bool Open(const char* path, const char* mode) override;
    int Close() override;
    unsigned Write(void* bytes, unsigned size, unsigned count) override;
    int Print(const char* format, ...) override;
    unsigned Seek(unsigned long offset) override;
    char* StrError() override;

private:
    struct Session;
    /// Runs a call on the session's thread; its result, or `otherwise` where it was given up.
    unsigned Call(std::function<unsigned(CFTPSend&)> call, unsigned otherwise);
    bool WaitForThread();

    std::shared_ptr<Session> m_pSession;
    std::function<bool()> m_Stop;
    std::string m_Reply;
    bool m_bStopping = false;
    bool m_bLost = false;
};

}  // namespace korvane
