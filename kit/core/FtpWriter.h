// The module's FTP writer, made so that a stop never has to wait for the server.
#pragma once

#include "export/CFTPSend.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace korvane {

/// Uploads as `CFTPSend` does, but stops at once. The calls of `CFTPSend` wait until the server answers; here they run
/// on a thread of the session, with copies of the data. Once `stop` says yes, the present call has 0.1 seconds left to
/// return. Then it fails, as do all later ones, and the thread is left alone until its connection ends.
class FtpWriter : public CFileWriter {
public:
    /// `stop` is asked by the calling thread while it waits; null: never.
    explicit FtpWriter(std::function<bool()> stop);
    /// Ends the session.
    ~FtpWriter() override;
    FtpWriter(const FtpWriter&) = delete;
    FtpWriter& operator=(const FtpWriter&) = delete;

    /// False when there is no session; `StrError` is then the text that `CFTPSend::Connect` throws.
    bool Connect(const std::string& host, const std::string& user, const std::string& password);

    // As those of `CFTPSend`. `Print` formats here, and sends the text by `Write`.
    bool Open(const char* path, const char* mode) override;
    int Close() override;
    unsigned Write(void* bytes, unsigned size, unsigned count) override;
    int Print(const char* format, ...) override;
    unsigned Seek(unsigned long offset) override;
    char* StrError() override;

private:
    struct Session;
    /// Runs a call on the session's thread and returns its result, or `otherwise` where the call was given up.
    unsigned Call(std::function<unsigned(CFTPSend&)> call, unsigned otherwise);
    bool WaitForThread();

    std::shared_ptr<Session> m_pSession;
    std::thread m_Thread;
    std::function<bool()> m_Stop;
    std::string m_Reply;
    bool m_bStopping = false;
    bool m_bLost = false;
};

}  // namespace korvane
