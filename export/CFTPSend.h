// Uploads an exporter's files to an FTP server.
#pragma once

#include "CFileWriter.h"

#include <memory>

struct NetBuf;

namespace korvane_detail {
class FtpWatch;
}

/// A writer that uploads through FTP (RFC 959, passive mode, IPv4) instead of writing to disk. `Connect` first; then
/// each `Open` ... `Close` makes one remote file. A connection that breaks makes calls fail; it never raises SIGPIPE in
/// the host.
///
/// Every call waits for the server, but no longer than `Timeout`; then the connections are broken, and the session's
/// calls fail. What cannot be broken (looking a name up, connecting to an address that does not answer) is left to a
/// thread of its own until the system or the server ends it; the module must stay loaded that long.
///
/// User name and password can have 57 characters each, a path 1018; with longer ones the call fails.
///
/// Threads may use objects of their own at the same time; one object, and its copies, belong to one thread at a time.
///
/// A copy shares the connections of its source and must not outlive it; the copy ends neither.
class KORVANE_API CFTPSend : public CFileWriter {
public:
    /// Set once the FTP client library has been initialised, by the first object of the process. Do not write it.
    static bool Init;

    /// The longest wait of one call, in milliseconds, for sessions that begin from now on; 0 for no limit. At first
    /// 60,000. `Write` may take as long for each 64 KB. Not guarded: set it before there are threads.
    static int Timeout;

    CFTPSend();
    CFTPSend(const CFTPSend& source);
    CFTPSend& operator=(const CFTPSend& source);

    /// Closes the remote file if one is open, and ends the session.
    ~CFTPSend() override;

    /// Connects to `host` (a name or an IPv4 address, with ":port" behind it where it is not 21) and logs in; a session
    /// that was open before is ended. Throws `StrError()` as a `char*`: "" when there is no connection, else the last
    /// reply of the server. The text stays valid until this class throws again on the same thread.
    void Connect(const char* host, const char* user, const char* password);

    /// Changes the directory on the server. Throws the server's reply as a `char*`.
    void ChDir(const char* dir);

    /// Creates the remote file `path`, which goes to the server as it is. Text transfer when the second character of
    /// `mode` is 't' ("wt"), else binary. False on failure.
    bool Open(const char* path, const char* mode) override;

    /// Ends the remote file: 1 when the server confirmed it, 0 when not, and 0 with no file. (Not what
    /// `CFileWriter::Close` returns.)
    int Close() override;

    /// Sends size * count bytes. The number of BYTES sent, so equal to `count` only where `size` is 1; 0 when sending
    /// failed, (unsigned)-1 without an open file.
    unsigned Write(void* buf, unsigned size, unsigned count) override;

    /// Sends a formatted text, at most 511 characters of it; the number of bytes sent, 0 or -1 as above.
    int Print(const char* format, ...) override;

    /// An upload cannot go back: sends `offset` zero bytes from where it stands, and returns `offset`.
    unsigned Seek(unsigned long offset) override;

    /// The server's last reply, line end included; "" with no connection.
    char* StrError() override;

    /// Whether a file since `Connect` did not reach the server whole: something was not sent, or its end not confirmed.
    /// The exporters do not notice either.
    bool HasFailed() const { return m_bFailed; }

private:
    class Call;
    bool HasSession() const;
    int Send(const void* bytes, int count);
    void EndSession();

    NetBuf* m_pControl;
    NetBuf* m_pData;
    /// The connection belongs to the object this one was copied from.
    bool m_bControlBorrowed;
    bool m_bDataBorrowed;
    bool m_bFailed;
    std::shared_ptr<korvane_detail::FtpWatch> m_pWatch;
};
